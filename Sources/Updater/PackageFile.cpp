#include "Updater/PackageFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdio>

#include "osal/osal_ownfile.h"

namespace {

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

PackageFile::Identity PackageFile::identityOf(const struct stat& info) {
#if defined(__APPLE__)
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtimespec, info.st_ctimespec};
#else
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
#endif
}

bool PackageFile::acquire(const std::string& path) {
  path_ = path;
  remembered_ = {};
  if (fd_) return true;
  // Append opens without emptying: a file that another run holds must keep its content.
  ScopedFd fd;
  if (osal_openOwnFile(path.c_str(), OwnFileUse::Append, 0600, fd) != 0) return false;
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return false;
  fd_.reset(fd.release());
  return true;
}

void PackageFile::remember() {
  struct stat info {};
  if (::fstat(fd_.get(), &info) == 0) remembered_ = identityOf(info);
}

bool PackageFile::isUntouched(bool attached) const {
  struct stat info {};
  if (::lstat(path_.c_str(), &info) != 0) return false;
  const Identity now = identityOf(info);
  return now.device == remembered_.device && now.inode == remembered_.inode &&
         now.size == remembered_.size && sameTime(now.modified, remembered_.modified) &&
         (attached || sameTime(now.changed, remembered_.changed));
}

void PackageFile::remove() {
  fd_.reset();
  std::remove(path_.c_str());
}
