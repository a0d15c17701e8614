#include "ground/osal_ownfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace {

/// Somebody who puts things in the way again and again must not keep this process busy for ever.
constexpr int kMaxAttempts = 16;

constexpr int kAlways = O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

int accessFlags(OwnFileUse use) {
  switch (use) {
    case OwnFileUse::Read:
      return O_RDONLY;
    case OwnFileUse::Append:
      return O_RDWR | O_APPEND;
    case OwnFileUse::Log:
      return O_WRONLY | O_APPEND;
    case OwnFileUse::Overwrite:
      break;
  }
  return O_RDWR;
}

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

/// A file that is only read may belong to anybody; one that is written must be out of everybody
/// else's reach. A log may still be taken out of it: whoever has it open can only forge lines.
bool mayUse(const struct stat& info, OwnFileUse use) {
  if (!S_ISREG(info.st_mode)) return false;
  if (use == OwnFileUse::Read) return true;
  if (info.st_uid != ::geteuid() || info.st_nlink != 1) return false;
  return use == OwnFileUse::Log || (info.st_mode & kOthersWrite) == 0;
}

/// Empties the file and makes the descriptor an ordinary, waiting one.
int prepare(int fd, OwnFileUse use) {
  if (use == OwnFileUse::Overwrite && ::ftruncate(fd, 0) != 0) return errno;
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) return errno;
  return 0;
}

/// Whether `error` is what open answers for links, FIFOs without a reader, sockets and files of
/// other users, which are then examined, and unlinked when they are indeed such.
bool mayBeInTheWay(int error) {
  return error == ELOOP || error == EMLINK || error == ENXIO || error == ENODEV ||
         error == EACCES || error == EPERM || error == EOPNOTSUPP;
}

/// Unlinks `name` when it can't be used. Returns 0 or an errno value.
int clearTheWay(int folder, const char* name, OwnFileUse use) {
  struct stat info {};
  if (::fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT ? 0 : errno;
  if (mayUse(info, use)) return EACCES;
  return ::unlinkat(folder, name, 0) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

bool osal_folderIsShared(const char* folder) {
  struct stat info {};
  if (::stat(folder, &info) != 0) return true;
  if ((info.st_mode & kOthersWrite) != 0) return true;
  return info.st_uid != 0 && info.st_uid != ::geteuid();
}

int osal_makeOwnFolder(const char* path) {
  struct stat info {};
  if (::mkdir(path, 0700) != 0 && errno != EEXIST) return errno;
  if (::lstat(path, &info) != 0) return errno;
  if (!S_ISDIR(info.st_mode)) return ENOTDIR;
  if (info.st_uid != ::geteuid()) return EPERM;
  return ::chmod(path, 0700) == 0 ? 0 : errno;
}

int osal_openOwnFile(const char* path, OwnFileUse use, mode_t mode, ScopedFd& fd) {
  return osal_openOwnFileAt(AT_FDCWD, path, use, mode, fd);
}

int osal_openOwnFileAt(int folder, const char* name, OwnFileUse use, mode_t mode, ScopedFd& fd) {
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    ScopedFd opened(::openat(folder, name, accessFlags(use) | kAlways));
    int error = opened ? 0 : errno;
    if (opened) {
      struct stat info {};
      if (::fstat(opened.get(), &info) != 0) return errno;
      if (mayUse(info, use)) {
        // On a file system without permissions this fails, which is no reason to do without the
        // log.
        if (use == OwnFileUse::Log && (info.st_mode & kOthersWrite) != 0) {
          ::fchmod(opened.get(), info.st_mode & 0755);
        }
        error = prepare(opened.get(), use);
        if (error == 0) fd = std::move(opened);
        return error;
      }
    } else if (error == ENOENT) {
      if (use == OwnFileUse::Read) return ENOENT;
      opened.reset(::openat(folder, name, accessFlags(use) | kAlways | O_CREAT | O_EXCL, mode));
      if (opened) {
        error = prepare(opened.get(), use);
        if (error == 0) fd = std::move(opened);
        return error;
      }
      if (errno != EEXIST) return errno;
      continue;
    } else if (!mayBeInTheWay(error)) {
      return error;
    }
    if (const int blocked = clearTheWay(folder, name, use); blocked != 0) return blocked;
  }
  return EEXIST;
}

int osal_openFixedFile(const char* path, OwnFileUse use, mode_t mode, ScopedFd& fd) {
  const std::string name(path);
  const std::size_t slash = name.rfind('/');
  std::string folder = ".";
  if (slash != std::string::npos) folder = name.substr(0, slash == 0 ? 1 : slash);
  if (osal_folderIsShared(folder.c_str())) return osal_openOwnFile(path, use, mode & S_IRWXU, fd);

  int flags = accessFlags(use) | O_CLOEXEC | O_NOCTTY;
  if (use != OwnFileUse::Read) flags |= O_CREAT;
  if (use == OwnFileUse::Overwrite) flags |= O_TRUNC;
  fd.reset(::open(path, flags, mode));
  return fd ? 0 : errno;
}
