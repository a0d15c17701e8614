#include "Updater/package/PackageFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "ground/osal_ownfile.h"

namespace {

// The mode says whose the lock on the file is, as long as there is one: the run's that still
// downloads or installs it, or that of the system, which has the image attached.
constexpr mode_t kOurs = 0600;
constexpr mode_t kHandedOver = 0400;

bool isHandedOver(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && (info.st_mode & 07777) == kHandedOver;
}

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
  ScopedFd fd;
  // An image that is still attached from an earlier run keeps its file; this run takes a new one.
  const bool locked = openLocked(fd) || (fd && isHandedOver(fd.get()) &&
                                         ::unlink(path.c_str()) == 0 && openLocked(fd));
  if (!locked) return false;
  if (isHandedOver(fd.get())) ::fchmod(fd.get(), kOurs);
  fd_.reset(fd.release());
  return true;
}

bool PackageFile::openLocked(ScopedFd& fd) const {
  // Append opens without emptying: a file that another run holds must keep its content.
  return osal_openOwnFile(path_.c_str(), OwnFileUse::Append, kOurs, fd) == 0 &&
         ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0;
}

void PackageFile::handOver() {
  ::fchmod(fd_.get(), kHandedOver);
  ::flock(fd_.get(), LOCK_UN);
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
