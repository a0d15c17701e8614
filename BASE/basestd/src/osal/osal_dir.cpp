#include "osal/osal_dir.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "ground/osal_bytes.h"
#include "logging/QDLog.h"
#include "logging/QDLogPath.h"
#include "osal/osal_path.h"

OSAL_Dir::~OSAL_Dir() {
  if (dir != nullptr) ::closedir(dir);
}

int OSAL_Dir::openDir(const unsigned char* folder, bool warnOnly) {
  if (folder == nullptr) {
    QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  if (dir != nullptr) {
    QDLOG(OSAL, ERR, "Cannot open (handle already in use) directory : " << QDLogPath(folder));
    return -1;
  }
  const char* const text = osal_chars(folder);
  const std::size_t length = std::strlen(text);
  const bool tooLong = length + 1 > kMaxPath;
  dir = ::opendir(text);
  const int error = dir == nullptr ? errno : 0;
  if (error != 0 && !(error == ENAMETOOLONG && tooLong)) {
    QDLOG(OSAL, warnOnly ? WRN : ERR,
          "Cannot open (" << error << ") directory " << QDLogPath(folder));
    return -1;
  }
  if (tooLong) {
    pathLength = kMaxPath;  // no room for an entry: no type will be asked for
    QDLOG(OSAL, warnOnly ? WRN : ERR, "Path too long : " << QDLogPath(folder));
    return -1;
  }
  std::memcpy(path, text, length);
  path[length] = '/';
  path[length + 1] = '\0';
  pathLength = length + 1;
  searchable_ = false;
  QDLOG(OSAL, INF, "Directory opened (" << dir << ") -> " << QDLogPath(folder));
  return 0;
}

int OSAL_Dir::readDir(void* name, unsigned int size, QDFileType* type, bool warnOnly) {
  if (name == nullptr || size == 0) {
    QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  char* const out = static_cast<char*>(name);
  *out = '\0';
  if (dir == nullptr) {
    QDLOG(OSAL, ERR, "Invalid handle (readDir)");
    return -1;
  }
  errno = 0;  // the end of the directory leaves it alone
  const dirent* const entry = ::readdir(dir);
  if (entry == nullptr) {
    const int error = errno;
    if (error != 0) {
      QDLOG(OSAL, warnOnly ? WRN : ERR,
            "Read directory (" << dir << ") -> error (" << error << ")");
      return -1;
    }
    QDLOG(OSAL, INF, "Read directory (" << dir << ") -> done");
    return 0;
  }
  const std::size_t length = std::strlen(entry->d_name);
  if (length >= size) {
    QDLOG(OSAL, warnOnly ? WRN : ERR, "Buffer too short to read directory (" << dir << ") -> ");
    return -1;
  }
  std::memcpy(out, entry->d_name, length + 1);
  if (type != nullptr) *type = typeOf(*entry);
  QDLOG(OSAL, INF, "Read directory (" << dir << ") -> " << out);
  return 0;
}

int OSAL_Dir::closeDir(bool mustBeOpen, bool warnOnly) {
  if (dir == nullptr) {
    if (!mustBeOpen) return 0;
    QDLOG(OSAL, ERR, "Invalid handle (closeDir)");
    return -1;
  }
  // The messages need the handle as a number only. It is volatile because g++ -O3 otherwise warns
  // that the handle is used after it was closed.
  const volatile auto number = reinterpret_cast<std::uintptr_t>(dir);
  const int result = ::closedir(dir);
  const int error = errno;
  dir = nullptr;
  if (result != 0) {
    QDLOG(OSAL, warnOnly ? WRN : ERR,
          "Cannot close (" << error << ") directory (" << reinterpret_cast<void*>(number) << ")");
    return -1;
  }
  QDLOG(OSAL, INF, "Directory closed (" << reinterpret_cast<void*>(number) << ")");
  return 0;
}

QDFileType OSAL_Dir::typeOf(const dirent& entry) {
  const std::size_t length = std::strlen(entry.d_name);
  const std::size_t room = sizeof path - 1 - pathLength;
  std::memcpy(path + pathLength, entry.d_name, std::min(length, room));
  path[pathLength + std::min(length, room)] = '\0';
  if (length > room) return QD_FILETYPE_UNKNOWN;  // a path that was cut names something else
  // An entry that the listing calls a regular file is one; asking the system about each would take
  // most of a walk's time.
  const bool reachable = searchable_ && pathLength + length < kMaxPath;
  if (reachable && entry.d_type == DT_REG) return QD_FILETYPE_REG;
  QDFileType type = QD_FILETYPE_UNKNOWN;
  searchable_ = osal_getFileType(osal_bytes(path), &type, false) == 0;
  return type;
}
