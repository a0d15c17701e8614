#include "osal/osal_map.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "ground/osal_bytes.h"
#include "logging/QDLog.h"
#include "logging/QDLogPath.h"

OSAL_Map::~OSAL_Map() { unmap(false); }

int OSAL_Map::map(const unsigned char* path, bool writable, unsigned int wanted, char** start,
                  unsigned int* length) {
  if (fd != -1 || ptr != nullptr || size != 0) {
    QDLOG(OSAL, ERR, "Cannot map (handle already in use) file : " << QDLogPath(path));
    return -1;
  }
  if (path == nullptr) {
    QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  fd = ::open(osal_chars(path), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOCTTY);
  if (fd == -1) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot open (" << error << ") file " << QDLogPath(path));
    return -1;
  }
  if (mapOpened(path, writable, wanted) != 0) {
    if (::close(fd) != 0) QDLOG(OSAL, ERR, "Cannot close file " << QDLogPath(path));
    fd = -1;
    return -1;
  }
  if (start != nullptr) *start = ptr;
  if (length != nullptr) *length = size;
  return 0;
}

int OSAL_Map::mapOpened(const unsigned char* path, bool writable, unsigned int wanted) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot get stat (" << error << ") of file " << QDLogPath(path));
    return -1;
  }
  if (info.st_size < 0 || info.st_size > std::numeric_limits<unsigned int>::max()) {
    QDLOG(OSAL, ERR,
          "Size too big or incoherent (st_size = " << info.st_size << ") for file "
                                                   << QDLogPath(path));
    return -1;
  }
  const unsigned int length = wanted != 0 ? wanted : static_cast<unsigned int>(info.st_size);
  if (info.st_size < length && ::ftruncate(fd, length) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR,
          "Cannot expand to size " << length << "B (" << error << ") file " << QDLogPath(path));
    return -1;
  }
  const int access = writable ? PROT_READ | PROT_WRITE : PROT_READ;
  void* const start = ::mmap(nullptr, length, access, MAP_SHARED, fd, 0);
  if (start == MAP_FAILED) {
    QDLOG(OSAL, ERR, "Cannot map " << length << "B of file " << QDLogPath(path));
    return -1;
  }
  ptr = static_cast<char*>(start);
  size = length;
  return 0;
}

int OSAL_Map::unmap(bool mustBeMapped) {
  int result = 0;
  if (ptr == nullptr) {
    if (mustBeMapped) {
      QDLOG(OSAL, ERR, "OSAL_Map::unmap - Map pointer is NULL");
      result = -1;
    }
  } else {
    if (::munmap(ptr, size) != 0) {
      const int error = errno;
      QDLOG(OSAL, ERR,
            "OSAL_Map::unmap - Cannot unmap zone " << static_cast<void*>(ptr) << " of size " << size
                                                   << "B (" << error << ")");
      result = -1;
    }
    ptr = nullptr;
    size = 0;
  }
  if (fd == -1) {
    if (!mustBeMapped) return result;
    QDLOG(OSAL, ERR, "OSAL_Map::unmap - File handle invalid");
    return -1;
  }
  if (::close(fd) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "OSAL_Map::unmap - Cannot close (" << error << ") file");
    result = -1;
  }
  fd = -1;
  return result;
}
