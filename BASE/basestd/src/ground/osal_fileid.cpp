#include "ground/osal_fileid.h"

#include <sys/stat.h>

namespace {

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

OSAL_FileState stateOf(const struct stat& info) {
#if defined(__APPLE__)
  return {osal_fileIdOf(info), info.st_size, info.st_mtimespec, info.st_ctimespec};
#else
  return {osal_fileIdOf(info), info.st_size, info.st_mtim, info.st_ctim};
#endif
}

}  // namespace

bool OSAL_FileState::operator==(const OSAL_FileState& other) const {
  return id == other.id && size == other.size && sameTime(modified, other.modified) &&
         sameTime(changed, other.changed);
}

OSAL_FileId osal_fileIdOf(const struct stat& info) { return {info.st_dev, info.st_ino}; }

OSAL_FileId osal_fileId(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 ? osal_fileIdOf(info) : OSAL_FileId{};
}

OSAL_FileId osal_fileId(const char* path) {
  struct stat info {};
  return ::stat(path, &info) == 0 ? osal_fileIdOf(info) : OSAL_FileId{};
}

OSAL_FileState osal_fileState(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 ? stateOf(info) : OSAL_FileState{};
}

OSAL_FileState osal_fileStateAt(const char* path) {
  struct stat info {};
  return ::lstat(path, &info) == 0 ? stateOf(info) : OSAL_FileState{};
}
