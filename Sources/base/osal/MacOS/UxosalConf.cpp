#include "base/osal/MacOS/UxosalConf.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ground/osal_bytes.h"
#include "logging/QDLog.h"
#include "osal/osal_file.h"
#include "osal/osal_path.h"

namespace {

constexpr unsigned int kMaxSize = 65535;
constexpr char kTemporaryFolder[] = "/tmp/.quietstore\r";
constexpr int kMaxPath = 1024;

/// Cuts the `length` bytes read, of `size` that fit, to the value. False when its end is not there.
bool terminate(char* value, unsigned int length, unsigned int size) {
  char* const end = std::find_if(value, value + length, [](char c) {
    return c == '\t' || c == '\n' || c == '\r' || c == '\0';
  });
  if (end == value + size) return false;
  *end = '\0';
  return true;
}

int readValue(const char* path, char* value, unsigned int size) {
  bool exists = false;
  if (osal_exists(osal_bytes(path), &exists, false) != 0) {
    QDLOG(OSAL, ERR, "osal_getconfstr -> osal_exists failed");
    return -1;
  }
  if (!exists) return 0;
  OSAL_File file;
  if (file.open(osal_bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_NOCACHE, false) != 0) {
    QDLOG(OSAL, ERR, "osal_getconfstr -> osal_open failed");
    return -1;
  }
  unsigned int length = size;
  if (file.read(value, &length, false) != 0) {
    QDLOG(OSAL, ERR, "osal_getconfstr -> osal_read failed");
    return -1;
  }
  if (file.close(false, false) != 0) QDLOG(OSAL, EL2, "osal_getconfstr -> osal_close failed");
  if (!terminate(value, length, size)) {
    QDLOG(OSAL, EL2, "osal_getconfstr -> buffer too short");
    return -1;
  }
  return 0;
}

/// Replaces what the open file holds by `value` and closes it. `function` begins the messages.
int replaceContent(OSAL_File& file, const char* value, const char* function) {
  if (file.truncate(0) != 0) {
    QDLOG(OSAL, ERR, function << " -> osal_truncate failed");
    return -1;
  }
  if (file.writeFix(value, static_cast<unsigned int>(std::strlen(value))) != 0) {
    QDLOG(OSAL, ERR, function << " -> osal_writeFix failed");
    return -1;
  }
  if (file.close(false, false) != 0) QDLOG(OSAL, EL2, function << " -> osal_close failed");
  return 0;
}

/// Creates the temporary folder, or takes the one that is there. That must be a folder itself: a
/// link would lead to wherever its maker wants.
bool haveTemporaryFolder() {
  if (osal_mkdir(osal_bytes(kTemporaryFolder), nullptr, false) != 0) return false;
  struct stat info {};
  return ::lstat(kTemporaryFolder, &info) == 0 && S_ISDIR(info.st_mode);
}

int failChmod(int error) {
  QDLOG(OSAL, ERR, "osal_setconfstr -> chmod failed (" << error << ")");
  return -1;
}

}  // namespace

int osal_getconfstr(const char* path, char* value, unsigned int size) {
  if (value == nullptr || size == 0) {
    QDLOG(OSAL, EL2, "osal_getconfstr -> buffer too short");
    return -1;
  }
  *value = '\0';
  const int result = readValue(path, value, std::min(size, kMaxSize));
  if (result != 0) *value = '\0';
  return result;
}

int osal_setconfstr(const char* path, const char* value, bool ownerOnly, bool allReadWrite) {
  if (value == nullptr) {
    QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  OSAL_File file;
  if (file.open(osal_bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_NOCACHE, false) != 0) {
    QDLOG(OSAL, ERR, "osal_setconfstr -> osal_open failed");
    return -1;
  }
  // Others must not be able to read the owner's value, not even for a moment.
  if (ownerOnly && ::fchmod(file.fd, 0600) != 0) return failChmod(errno);
  if (replaceContent(file, value, "osal_setconfstr") != 0) return -1;
  if (allReadWrite && ::chmod(path, 0666) != 0) return failChmod(errno);
  return 0;
}

int osal_setconfstrtmp(const char* name, const char* value) {
  if (name == nullptr || value == nullptr) {
    QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  if (!haveTemporaryFolder()) {
    QDLOG(OSAL, ERR, "osal_setconfstrtmp -> osal_mkdir failed");
    return -1;
  }
  char path[kMaxPath + 1];
  const int length = std::snprintf(path, sizeof path, "%s/%s", kTemporaryFolder, name);
  if (length < 0 || length > kMaxPath || std::strchr(name, '/') != nullptr) {
    QDLOG(OSAL, ERR, "osal_setconfstrtmp -> snprintf failed (lg=" << length << ")");
    return -1;
  }
  OSAL_File file;
  if (file.openOwn(osal_bytes(path), false) != 0) {
    QDLOG(OSAL, ERR, "osal_setconfstrtmp -> osal_open failed");
    return -1;
  }
  return replaceContent(file, value, "osal_setconfstrtmp");
}
