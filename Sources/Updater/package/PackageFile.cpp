#include "Updater/package/PackageFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdio>

#include "ground/osal_ownfile.h"

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

PackageFile::Identity PackageFile::identityAt(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 ? identityOf(info) : Identity{};
}

bool PackageFile::sameFile(const Identity& a, const Identity& b) {
  return a.inode != 0 && a.inode == b.inode && a.device == b.device;
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

bool PackageFile::isUntouched() const {
  const Identity now = identityAt(path_);
  return sameFile(now, remembered_) && now.size == remembered_.size &&
         sameTime(now.modified, remembered_.modified) && sameTime(now.changed, remembered_.changed);
}

bool PackageFile::isStillThere() const { return sameFile(identityAt(path_), remembered_); }

void PackageFile::remove() {
  std::remove(path_.c_str());
  fd_.reset();
}
