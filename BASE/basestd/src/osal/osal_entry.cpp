#include "osal/osal_entry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "logging/QDLog.h"
#include "logging/QDLogPath.h"

namespace {

#if defined(O_PATH)
constexpr int kReach = O_PATH;
#elif defined(O_SEARCH)
constexpr int kReach = O_SEARCH;
#else
constexpr int kReach = O_RDONLY;
#endif

struct CloseDir {
  void operator()(DIR* dir) const noexcept { ::closedir(dir); }
};

QDFileType entryTypeOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return QD_FILETYPE_REG;
    case S_IFDIR:
      return QD_FILETYPE_DIR;
    case S_IFLNK:
      return QD_FILETYPE_SYMLINK;
    case S_IFIFO:
      return QD_FILETYPE_FIFO;
    case S_IFSOCK:
      return QD_FILETYPE_SOCK;
    case S_IFBLK:
      return QD_FILETYPE_BSPE;
    case S_IFCHR:
      return QD_FILETYPE_CSPE;
    default:
      return QD_FILETYPE_UNKNOWN;
  }
}

/// Returns 0 or an errno value. The C library may not be asked with a null pointer.
int unlinkEntry(int folder, const char* name, int flags) {
  if (name == nullptr) return EFAULT;
  return ::unlinkat(folder, name, flags) == 0 ? 0 : errno;
}

void logRemoved(bool removed, const unsigned char* path) {
  QDLOG(OSAL, INF,
        "osal_rmfile : file " << (removed ? "removed" : "not exists") << " at path "
                              << QDLogPath(path));
}

int openFolder(int folder, const char* name, int flags, const unsigned char* path, ScopedFd& fd) {
  fd.reset(::openat(folder, name, flags | O_DIRECTORY | O_CLOEXEC | O_NOCTTY));
  if (!fd) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot open (" << error << ") directory " << QDLogPath(path));
    return -1;
  }
  QDLOG(OSAL, INF, "Directory opened (" << fd.get() << ") -> " << QDLogPath(path));
  return 0;
}

}  // namespace

int osal_getEntryType(int folder, const char* name, const unsigned char* path, QDFileType* type) {
  struct stat info {};
  if (::fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
    const int error = errno;
    if (error == ENOENT) {
      if (type != nullptr) *type = QD_FILETYPE_NOTEXISTS;
      return 0;
    }
    QDLOG(OSAL, ERR, "Cannot get file type (" << error << ") for path :" << QDLogPath(path));
    return -1;
  }
  if (type != nullptr) *type = entryTypeOf(info.st_mode);
  return 0;
}

int osal_openFolderAt(int folder, const char* name, const unsigned char* path, ScopedFd& fd) {
  return openFolder(folder, name, O_RDONLY | O_NOFOLLOW, path, fd);
}

int osal_reachFolderAt(int folder, const char* name, const unsigned char* path, ScopedFd& fd) {
  return openFolder(folder, name, kReach, path, fd);
}

int osal_listFolder(int folder, std::vector<OSAL_Entry>& entries) {
  // The stream takes its descriptor with it when it is closed.
  ScopedFd copy(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
  const std::unique_ptr<DIR, CloseDir> dir(copy ? ::fdopendir(copy.get()) : nullptr);
  int error = dir ? 0 : errno;
  if (dir) {
    static_cast<void>(copy.release());
    for (errno = 0; const dirent* const entry = ::readdir(dir.get()); errno = 0) {
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      entries.push_back({std::string(name), entry->d_type == DT_REG});
    }
    error = errno;
  }
  if (error == 0) return 0;
  QDLOG(OSAL, ERR, "Read directory (" << folder << ") -> error (" << error << ")");
  return -1;
}

int osal_rmdirAt(int folder, const char* name, const unsigned char* path, bool* missing) {
  const int error = unlinkEntry(folder, name, AT_REMOVEDIR);
  if (error != 0 && error != ENOENT) {
    QDLOG(OSAL, ERR,
          "osal_rmdir : cannot remove directory (" << error << ") at path " << QDLogPath(path));
    return -1;
  }
  const bool removed = error == 0;
  if (missing != nullptr) *missing = !removed;
  QDLOG(OSAL, removed ? INF : DBG,
        "osal_rmdir : directory " << (removed ? "removed" : "not exists") << " at path "
                                  << QDLogPath(path));
  return 0;
}

int osal_rmfileAt(int folder, const char* name, const unsigned char* path, bool* removed,
                  bool silent) {
  const int error = unlinkEntry(folder, name, 0);
  if (error != 0 && error != ENOENT) {
    if (!silent) {
      QDLOG(OSAL, ERR,
            "osal_rmfile : cannot remove file (" << error << ") at path " << QDLogPath(path));
    }
    return -1;
  }
  if (removed != nullptr) *removed = error == 0;
  if (!silent) logRemoved(error == 0, path);
  return 0;
}

bool osal_tryRmfileAt(int folder, const char* name, const unsigned char* path) {
  if (unlinkEntry(folder, name, 0) != 0) return false;
  logRemoved(true, path);
  return true;
}
