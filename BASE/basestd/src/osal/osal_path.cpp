#include "osal/osal_path.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "ground/osal_bytes.h"
#include "ground/osal_scoped.h"
#include "ground/osal_shell.h"
#include "logging/QDLog.h"
#include "logging/QDLogPath.h"
#include "osal/osal_entry.h"

#if defined(__APPLE__)
#include <sys/mount.h>
#else
#include <sys/vfs.h>
#endif

namespace {

/// Makes a system call on `path`. Returns its error code, 0 for success.
template <typename Call>
int errorOf(const unsigned char* path, Call call) {
  if (path == nullptr) return EFAULT;  // the C library may not be asked with a null pointer
  return call(osal_chars(path)) == 0 ? 0 : errno;
}

timeval toTimeval(unsigned long long nanoseconds) {
  timeval time{};
  time.tv_sec = static_cast<time_t>(nanoseconds / 1'000'000'000);
  time.tv_usec = static_cast<suseconds_t>(nanoseconds / 1'000 % 1'000'000);
  return time;
}

}  // namespace

QDFileType osal_fileTypeOf(mode_t mode) {
  if (S_ISREG(mode)) return QD_FILETYPE_REG;
  if (S_ISDIR(mode)) return QD_FILETYPE_DIR;
  if (S_ISLNK(mode)) return QD_FILETYPE_SYMLINK;
  return QD_FILETYPE_UNKNOWN;
}

int osal_getFileType(const unsigned char* path, QDFileType* type, bool silent) {
  struct stat info {};
  const int error = errorOf(path, [&](const char* p) { return ::stat(p, &info); });
  if (error != 0) {
    if (!silent) {
      QDLOG(OSAL, ERR, "Cannot get file type (" << error << ") for path :" << QDLogPath(path));
    }
    return -1;
  }
  if (type != nullptr) *type = osal_fileTypeOf(info.st_mode);
  return 0;
}

int osal_exists(const unsigned char* path, bool* exists, bool silent) {
  if (path == nullptr) {
    if (!silent) QDLOG(OSAL, ERR, "osal_exists : NULL arg");
    return -1;
  }
  const int error = errorOf(path, [](const char* p) { return ::access(p, F_OK); });
  if (error != 0 && error != ENOENT && error != ENOTDIR) {
    if (!silent) {
      QDLOG(OSAL, ERR,
            "osal_exists : cannot check file (" << error << ") at path " << QDLogPath(path));
    }
    return -1;
  }
  if (exists != nullptr) *exists = error == 0;
  if (!silent) {
    QDLOG(OSAL, DBG,
          "osal_exists : check file (" << (error == 0 ? "exists" : "not exists") << ") at path "
                                       << QDLogPath(path));
  }
  return 0;
}

int osal_mkdir(const unsigned char* path, bool* existed, bool silent) {
  const int error = errorOf(path, [](const char* p) { return ::mkdir(p, 0777); });
  if (error != 0 && error != EEXIST) {
    if (!silent) {
      QDLOG(OSAL, ERR,
            "osal_mkdir : cannot create directory (" << error << ") at path " << QDLogPath(path));
    }
    return -1;
  }
  const bool created = error == 0;
  if (existed != nullptr) *existed = !created;
  if (!silent) {
    QDLOG(OSAL, created ? INF : DBG,
          "osal_mkdir : directory " << (created ? "created" : "already exists") << " at path "
                                    << QDLogPath(path));
  }
  return 0;
}

int osal_rmdir(const unsigned char* path, bool* missing) {
  return osal_rmdirAt(AT_FDCWD, osal_chars(path), path, missing);
}

int osal_rmdirIfEmpty(const unsigned char* path, bool* removed) {
  const int error = errorOf(path, [](const char* p) { return ::rmdir(p); });
  if (error != 0 && error != ENOENT && error != ENOTEMPTY && error != EEXIST) {
    QDLOG(OSAL, ERR,
          "osal_rmdir : cannot remove directory (" << error << ") at path " << QDLogPath(path));
    return -1;
  }
  if (removed != nullptr) *removed = error == 0;
  if (error == 0) QDLOG(OSAL, INF, "osal_rmdir : directory removed at path " << QDLogPath(path));
  return 0;
}

int osal_rmfile(const unsigned char* path, bool* removed, bool silent) {
  return osal_rmfileAt(AT_FDCWD, osal_chars(path), path, removed, silent);
}

int osal_rename(const unsigned char* from, const unsigned char* to, bool silent) {
  const int error = errorOf(to == nullptr ? to : from,
                            [to](const char* p) { return ::rename(p, osal_chars(to)); });
  if (error != 0) {
    if (!silent) {
      QDLOG(OSAL, ERR,
            "osal_rename : cannot rename file (" << error << ") at path " << QDLogPath(from)
                                                 << " to " << QDLogPath(to));
    }
    return -1;
  }
  if (!silent) {
    QDLOG(OSAL, INF,
          "osal_rename : file at path " << QDLogPath(from) << " renamed to " << QDLogPath(to));
  }
  return 0;
}

int osal_setAllRights(const unsigned char* path, bool silent) {
  const int error = errorOf(path, [](const char* p) { return ::chmod(p, 0777); });
  if (error != 0) {
    if (!silent) {
      QDLOG(OSAL, ERR, "Cannot make chmod/0777 (" << error << ") at path : " << QDLogPath(path));
    }
    return -1;
  }
  if (!silent) QDLOG(OSAL, INF, "chmod/0777 at path : " << QDLogPath(path));
  return 0;
}

int osal_setTimes(const unsigned char* path, unsigned long long aTime, unsigned long long mTime) {
  const timeval times[] = {toTimeval(aTime), toTimeval(mTime)};
  const int error = errorOf(path, [&](const char* p) { return ::utimes(p, times); });
  if (error != 0) {
    QDLOG(OSAL, ERR, "Cannot change aTime & mTime (" << error << ") at path : " << QDLogPath(path));
    return -1;
  }
  QDLOG(OSAL, INF,
        "Set aTime = " << aTime << " ; mTime = " << mTime << " at path : " << QDLogPath(path));
  return 0;
}

int osal_mktemp(unsigned char* pattern, int suffixLength, bool /*silent*/) {
  if (pattern == nullptr || suffixLength < 0) return -1;
  const ScopedFd file(::mkostemps(osal_chars(pattern), suffixLength, O_CLOEXEC));
  return file ? 0 : -1;
}

int osal_getFSFreeSpace(const unsigned char* path, unsigned long long* freeBytes) {
  if (path == nullptr || *path == '\0') {
    QDLOG(OSAL, WRN, "osal_FSGetFreeSpace : Invalid path");
    return -1;
  }
  struct statfs info {};
  const int error = errorOf(path, [&](const char* p) { return ::statfs(p, &info); });
  if (error != 0) {
    QDLOG(
        OSAL, WRN,
        "OSAL_FSGetFreeSpace : Cannot get fstatfs (" << error << ") on directory (" << path << ")");
    return -1;
  }
  const unsigned long long available = static_cast<unsigned long long>(info.f_bavail) *
                                       static_cast<unsigned long long>(info.f_bsize);
  if (freeBytes != nullptr) *freeBytes = available;
  QDLOG(OSAL, DBG,
        "OSAL_FSGetFreeSpace : get free space = " << available << " on FS of directory (" << path
                                                  << ")");
  return 0;
}

int osal_getRealPath(const unsigned char* path, unsigned char* realPath) {
  char unused[PATH_MAX];
  char* const resolved = realPath == nullptr ? unused : osal_chars(realPath);
  *resolved = '\0';  // not every system writes it when it fails
  const int error =
      errorOf(path, [&](const char* p) { return ::realpath(p, resolved) == nullptr ? -1 : 0; });
  if (error != 0) {
    QDLOG(OSAL, ERR,
          "osal_getRealPath failed (" << QDLogPath(resolved).text()
                                      << ") on path: " << QDLogPath(path).text());
    return -1;
  }
  return 0;
}

int osal_umount(const char* path) {
  constexpr std::size_t kMaxCommand = 1023;
  if (path == nullptr) return 0;
  const std::string command = "umount " + osal_shellQuote(path) + " 2>/dev/null >/dev/null";
  // A command that was cut would be another one.
  if (command.size() <= kMaxCommand) {
    [[maybe_unused]] const int status = std::system(command.c_str());
  }
  return 0;
}

int osal_getFSInfo(const unsigned char* path, ...) { return path == nullptr ? -1 : -2; }
int osal_is_mounted(...) { return -1; }
int osal_mount_cifs(...) { return -1; }
int osal_mount_nfs(...) { return -1; }
