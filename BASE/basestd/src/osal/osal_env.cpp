#include "osal/osal_env.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "logging/QDLog.h"

namespace {

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

int osal_setEnv(const char* key, const char* value) {
  if (key == nullptr || value == nullptr) {
    QDLOG(OSAL, ERR,
          "Bad argument : key = \"" << orEmpty(key) << "\"; value = \"" << orEmpty(value) << '"');
    return -1;
  }
  if (::setenv(key, value, 1) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR,
          "Could not set (" << error << ") environment variable \"" << key << "\" to value : \""
                            << value << '"');
    return -1;
  }
  return 0;
}

int osal_getEnv(const char* key, char* value, unsigned int size) {
  if (key == nullptr) {
    QDLOG(OSAL, ERR, "Bad argument : key = \"\"");
    return -1;
  }
  const char* found = std::getenv(key);
  if (found == nullptr) {
    QDLOG(OSAL, WRN, "Could not find environment variable \"" << key << '"');
    if (value == nullptr || size == 0) {
      QDLOG(OSAL, ERR, "Buffer too small");
      return -1;
    }
    *value = '\0';
    return 0;
  }
  const std::size_t needed = std::strlen(found) + 1;
  if (value == nullptr || needed > size) {
    QDLOG(OSAL, ERR,
          "Buffer too small to put result = \"" << found << "\" for key = \"" << key << '"');
    return -1;
  }
  std::memcpy(value, found, needed);
  return 0;
}
