#include "Updater/package/PackageFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cstdio>

#include "Updater/package/utilsPackage.h"
#include "ground/osal_ownfile.h"

namespace {

// The mode shows who holds a lock on the file: a run that is downloading or installing it, or the
// system, which has the image attached.
constexpr mode_t kOurs = 0600;
constexpr mode_t kHandedOver = 0400;

bool isHandedOver(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && (info.st_mode & 07777) == kHandedOver;
}

}  // namespace

bool PackageFile::acquire(const std::string& path) {
  path_ = path;
  remembered_ = {};
  if (fd_ && osal_fileState(fd_.get()).id == osal_fileStateAt(path.c_str()).id) return true;
  fd_.reset();
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

unsigned long long PackageFile::size() const {
  struct stat info {};
  if (::fstat(fd_.get(), &info) == 0 && info.st_nlink > 0) {
    return static_cast<unsigned long long>(info.st_size);
  }
  return boost::filesystem::file_size(path_);
}

std::string PackageFile::md5() const {
  ::lseek(fd_.get(), 0, SEEK_SET);
  return utils::computeMD5(fd_.get());
}

void PackageFile::remember() { remembered_ = osal_fileState(fd_.get()); }

bool PackageFile::isUntouched() const {
  return remembered_.id && osal_fileStateAt(path_.c_str()) == remembered_;
}

bool PackageFile::isStillThere() const {
  return remembered_.id && osal_fileStateAt(path_.c_str()).id == remembered_.id;
}

void PackageFile::remove() {
  std::remove(path_.c_str());
  fd_.reset();
}
