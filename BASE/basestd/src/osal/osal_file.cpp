#include "osal/osal_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "ground/osal_bytes.h"
#include "ground/osal_ownfile.h"
#include "logging/QDLog.h"
#include "logging/QDLogPath.h"

static_assert(sizeof(off_t) == 8, "file sizes take 64 bits: build with _FILE_OFFSET_BITS=64");

namespace {

constexpr mode_t kNewFileMode = 0777;
constexpr mode_t kNewStreamMode = 0666;
constexpr unsigned int kDumpSize = 16;  // bytes of each transfer that the log shows

int openFlags(QDOpenMode mode) {
  switch (mode) {
    case QD_OPENMODE_RWNOTEXISTING:
      return O_RDWR | O_CREAT | O_EXCL;
    case QD_OPENMODE_RWEXISTING:
      return O_RDWR;
    case QD_OPENMODE_RWCANCREATE:
      return O_RDWR | O_CREAT;
    default:
      return O_RDONLY;
  }
}

/// How stdio opens a file, and what it calls that. Its own open cannot make a descriptor
/// close-on-exec on every system.
struct StreamMode {
  int flags;
  const char* name;
};

StreamMode streamMode(QDOpenMode mode) {
  switch (mode) {
    case QD_OPENMODE_RWNOTEXISTING:
    case QD_OPENMODE_RWCANCREATE:
      return {O_WRONLY | O_CREAT | O_TRUNC, "w"};
    case QD_OPENMODE_RWEXISTING:
      return {O_RDWR, "r+"};
    default:
      return {O_RDONLY, "r"};
  }
}

/// Returns 0 or an errno value.
int stopCaching(int fd) {
#if defined(__APPLE__)
  return ::fcntl(fd, F_NOCACHE, 1) == -1 ? errno : 0;
#else
  // Linux has no such switch. It takes the promise that the data is used once, and drops
  // such data before any other.
  return ::posix_fadvise(fd, 0, 0, POSIX_FADV_NOREUSE);
#endif
}

/// Returns 0 or an errno value.
int openOwnFileInPlainFolder(const std::filesystem::path& path, ScopedFd& file) {
  const std::filesystem::path parent =
      path.parent_path();  // without a slash at its end, which would make the system follow a link
  const ScopedFd folder(::open(parent.empty() ? "." : parent.c_str(),
                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY));
  if (!folder) return errno;
  return osal_openOwnFileAt(folder.get(), path.filename().c_str(), OwnFileUse::Overwrite,
                            kNewFileMode, file);
}

}  // namespace

OSAL_File::~OSAL_File() { close(true, false); }

int OSAL_File::open(const unsigned char* path, QDOpenMode mode, unsigned short options,
                    bool silent) {
  if (!mayOpen(path, silent)) return -1;
  buffered = (options & OSAL_OPEN_BUFFERED) != 0;
  const int result =
      buffered ? openBuffered(path, mode, silent) : openUnbuffered(path, mode, options, silent);
  if (result == 0 && !silent) QDLOG(OSAL, INF, "File opened (" << fd << ") : " << QDLogPath(path));
  return result;
}

int OSAL_File::openOwn(const unsigned char* path, bool silent) {
  if (!mayOpen(path, silent)) return -1;
  buffered = false;
  ScopedFd opened;
  const int error = openOwnFileInPlainFolder(osal_chars(path), opened);
  if (error != 0) {
    if (!silent) QDLOG(OSAL, ERR, "Cannot open (" << error << ") file " << QDLogPath(path));
    return -1;
  }
  fd = opened.release();
  if (!silent) QDLOG(OSAL, INF, "File opened (" << fd << ") : " << QDLogPath(path));
  return 0;
}

int OSAL_File::read(void* buf, unsigned int* len, bool silent) {
  if (buf == nullptr || len == nullptr) {
    if (!silent) QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  if (!isOpen("read", silent)) return -1;
  const ssize_t count = flush() == 0 ? ::read(fd, buf, *len) : -1;
  if (count < 0) {
    const int error = errno;
    if (!silent) QDLOG(OSAL, ERR, "Cannot read (" << error << ") from file (" << fd << ")");
    return -1;
  }
  *len = static_cast<unsigned int>(count);
  if (!silent) {
    QDLOG(OSAL, INF, "Data read (" << *len << "B) from file (" << fd << ")");
    QDLOG(OSAL, 8, "Data (" << *len << " B) = " << QDLogBlob(buf, std::min(*len, kDumpSize)));
  }
  return 0;
}

int OSAL_File::writeFix(const void* data, unsigned int len) {
  if (data == nullptr) {
    QDLOG(OSAL, ERR, "Arguments error");
    return -1;
  }
  if (!isOpen("writeFix", false)) return -1;
  if (buffered) return writeBuffered(data, len);
  const ssize_t count = ::write(fd, data, len);
  if (count < 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot write (" << error << ") to file (" << fd << ")");
    return -1;
  }
  if (count != static_cast<ssize_t>(len)) {
    QDLOG(OSAL, ERR,
          "Only " << count << "B instead of " << len << "B written to file (" << fd << ")");
    return -1;
  }
  QDLOG(OSAL, INF, "Data written (" << len << "B) to file (" << fd << ")");
  QDLOG(OSAL, 8, "Data (" << len << " B) = " << QDLogBlob(data, std::min(len, kDumpSize)));
  return 0;
}

int OSAL_File::truncate(unsigned long long size) {
  if (!isOpen("truncate", false)) return -1;
  if (flush() != 0 || ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot truncate (" << error << ") file (" << fd << ") to size " << size);
    return -1;
  }
  QDLOG(OSAL, INF, "File (" << fd << ") truncated to size " << size);
  return 0;
}

int OSAL_File::seekSet(unsigned long long pos) {
  if (!isOpen("seekSet", false)) return -1;
  if (flush() != 0 || ::lseek(fd, static_cast<off_t>(pos), SEEK_SET) == -1) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot make lseek/SEEK_SET (" << error << ") on file (" << fd << ")");
    return -1;
  }
  QDLOG(OSAL, INF, "lseek/SEEK_SET at pos " << pos << " on file (" << fd << ")");
  return 0;
}

int OSAL_File::sync() {
  if (!isOpen("sync", false)) return -1;
  if (flush() != 0 || ::fsync(fd) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot synchronize (" << error << ") file (" << fd << ")");
    return -1;
  }
  QDLOG(OSAL, INF, "File synchronized (" << fd << ")");
  return 0;
}

int OSAL_File::getSize(unsigned long long* size, unsigned long long* allocated, bool silent) {
  if (!isOpen("getSize", silent)) return -1;
  struct stat info {};
  if (flush() != 0 || ::fstat(fd, &info) != 0) {
    const int error = errno;
    if (!silent) QDLOG(OSAL, ERR, "Cannot get stat (" << error << ") on file (" << fd << ")");
    return -1;
  }
  if (info.st_size < 0 || info.st_blocks < 0) {
    if (!silent) {
      QDLOG(OSAL, ERR,
            "Incoherent values (st_size = " << info.st_size << ", st_blocks = " << info.st_blocks
                                            << ") for file (" << fd << ")");
    }
    return -1;
  }
  const auto length = static_cast<unsigned long long>(info.st_size);
  const auto onDisk = static_cast<unsigned long long>(info.st_blocks) * 512;
  if (size != nullptr) *size = length;
  if (allocated != nullptr) *allocated = onDisk;
  if (!silent) {
    QDLOG(OSAL, DBG, "get size = " << length << " of file (" << fd << ")");
    QDLOG(OSAL, DBG, "get real size = " << onDisk << " of file (" << fd << ")");
  }
  return 0;
}

int OSAL_File::close(bool silent, bool mustBeOpen) {
  if (fd == -1 && !mustBeOpen) return 0;
  if (!isOpen("close", silent)) return -1;
  const int closed = fd;
  const int result = stream != nullptr ? std::fclose(stream) : ::close(fd);
  const int error = errno;
  fd = -1;
  stream = nullptr;
  unflushed_ = false;
  if (result != 0) {
    if (!silent) QDLOG(OSAL, EL2, "Cannot close (" << error << ") file (" << closed << ")");
    return -1;
  }
  if (!silent) QDLOG(OSAL, INF, "File closed (" << closed << ")");
  return 0;
}

bool OSAL_File::mayOpen(const unsigned char* path, bool silent) const {
  if (path == nullptr) {
    if (!silent) QDLOG(OSAL, ERR, "Arguments error");
    return false;
  }
  if (fd != -1 || stream != nullptr) {
    if (!silent) {
      QDLOG(OSAL, ERR, "Cannot open (handle already in use) file " << QDLogPath(path));
    }
    return false;
  }
  return true;
}

bool OSAL_File::isOpen(const char* operation, bool silent) const {
  if (fd != -1) return true;
  if (!silent) QDLOG(OSAL, ERR, "Invalid handle (" << operation << ")");
  return false;
}

int OSAL_File::openBuffered(const unsigned char* path, QDOpenMode mode, bool silent) {
  const auto [flags, name] = streamMode(mode);
  ScopedFd opened(::open(osal_chars(path), flags | O_CLOEXEC | O_NOCTTY, kNewStreamMode));
  stream = opened ? ::fdopen(opened.get(), name) : nullptr;
  if (stream == nullptr) {
    const int error = errno;
    if (!silent) {
      QDLOG(OSAL, ERR, "Cannot open (" << error << ") file " << QDLogPath(path) << " (buffered)");
    }
    return -1;
  }
  fd = opened.release();
  return 0;
}

int OSAL_File::openUnbuffered(const unsigned char* path, QDOpenMode mode, unsigned short options,
                              bool silent) {
  fd = ::open(osal_chars(path), openFlags(mode) | O_CLOEXEC | O_NOCTTY, kNewFileMode);
  if (fd == -1) {
    const int error = errno;
    if (!silent) QDLOG(OSAL, ERR, "Cannot open (" << error << ") file " << QDLogPath(path));
    return -1;
  }
  if ((options & OSAL_OPEN_NOCACHE) != 0) {
    const int error = stopCaching(fd);
    if (error != 0 && !silent) {
      QDLOG(OSAL, WRN, "Cannot desactivate cache (" << error << ") for file " << QDLogPath(path));
    }
  }
  if ((options & OSAL_OPEN_LOCK) == 0) return 0;
  const int result = lock(path, (options & OSAL_OPEN_WAIT) != 0, silent);
  // What this call alone has made does not stay behind when the call fails.
  if (result != 0 && mode == QD_OPENMODE_RWNOTEXISTING) ::unlink(osal_chars(path));
  return result;
}

/// Closes the file when it can't be locked.
int OSAL_File::lock(const unsigned char* path, bool wait, bool silent) {
  if (::flock(fd, wait ? LOCK_EX : LOCK_EX | LOCK_NB) == 0) {
    if (!silent) {
      QDLOG(OSAL, INF,
            "File locked (0x" << QDStreamLogger::Hex << fd << QDStreamLogger::Dec << ")");
    }
    return 0;
  }
  const int error = errno;
  if (!silent && error == EWOULDBLOCK) {
    QDLOG(OSAL, ERR, "Non-blocking, but would block for file " << QDLogPath(path));
  } else if (!silent) {
    QDLOG(OSAL, ERR, "Cannot get exclusive lock (" << error << ") for file " << QDLogPath(path));
  }
  const int unlocked = std::exchange(fd, -1);
  if (::close(unlocked) != 0) {
    const int closing = errno;
    if (!silent) QDLOG(OSAL, EL2, "Cannot close (" << closing << ") file (" << unlocked << ")");
  }
  return -1;
}

int OSAL_File::writeBuffered(const void* data, unsigned int len) {
  if (len == 0) return 0;  // which stdio would report as nothing written
  if (std::fwrite(data, len, 1, stream) == 1) {
    unflushed_ = true;
    return 0;
  }
  const int error = errno;
  QDLOG(OSAL, ERR, "Cannot write (" << error << ") to file (" << stream << ")");
  return -1;
}

/// Hands what stdio holds back to the descriptor, which every operation but writing works on.
int OSAL_File::flush() {
  if (!unflushed_) return 0;
  if (std::fflush(stream) != 0) return -1;
  unflushed_ = false;
  return 0;
}
