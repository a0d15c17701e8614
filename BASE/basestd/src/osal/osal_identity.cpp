#include "osal/osal_identity.h"

#include <sys/utsname.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "ground/osal_hex.h"
#include "logging/QDLog.h"
#include "osal/osal_host.h"

namespace {

constexpr unsigned int kHexUuidSize = 33;

void writeHex(const unsigned char* uuid, char* text) {
  osal_writeHex(uuid, 16, false, text);
  text[kHexUuidSize - 1] = '\0';
}

}  // namespace

int osal_GetUname(OSAL_uname& u) {
  struct utsname system {};
  if (::uname(&system) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "osal_GetUname -> error " << error);
    return -1;
  }
  u = {system.sysname, system.nodename, system.release, system.version, system.machine};
  return 0;
}

std::string osal_getHostname() {
  char name[1025] = {};
  if (::gethostname(name, sizeof name - 1) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "osal_getHostname -> error " << error);
    return {};
  }
  return name;
}

int osal_getHostUID(char* buf, unsigned int size) {
  if (buf == nullptr || size < kHexUuidSize) {
    QDLOG(OSAL, ERR, "Buffer too short");
    return -1;
  }
  std::array<unsigned char, 16> uuid{};
  if (const int error = host_uuid(uuid); error != 0) {
    QDLOG(OSAL, ERR, "gethostuuid failed with error " << error);
    return -1;
  }
  writeHex(uuid.data(), buf);
  return 0;
}

int osal_genUUID(char* buf, unsigned int size) {
  if (buf == nullptr || size < kHexUuidSize) {
    QDLOG(OSAL, ERR,
          "osal_genUUID -> buffer too small (" << size << " B ; " << kHexUuidSize << " B needed)");
    return -1;
  }
  uuid_t uuid;
  ::uuid_generate_time(uuid);
  writeHex(uuid, buf);
  return 0;
}

int osal_getcomputername(unsigned char* buf, unsigned int size) {
  std::string name;
  if (const int error = host_machineName(name); error == EILSEQ) {
    QDLOG(OSAL, ERR, "Error converting computer name");
    return -1;
  } else if (error != 0) {
    QDLOG(OSAL, EL2, "Error getting computer name");
    return -1;
  }
  if (buf == nullptr || name.size() + 1 > size) {
    QDLOG(OSAL, ERR, "Buffer too short to get computer name");
    return -1;
  }
  std::memcpy(buf, name.c_str(), name.size() + 1);
  return 0;
}
