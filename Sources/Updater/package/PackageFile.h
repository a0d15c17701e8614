#pragma once

#include <string>

#include "ground/osal_fileid.h"
#include "ground/osal_scoped.h"

/// The downloaded package, held from its creation to the end of the installation, so that what gets
/// installed is what was verified: the file is this process's alone, locked against a second run,
/// and its path can be asked whether it still names it.
class PackageFile {
 public:
  /// Creates the file at `path`, or takes over one that an earlier run of this user left, and locks
  /// it. Returns false when it can't be opened or another run holds it. A file that an earlier run
  /// handed over, and that is still locked, is unlinked and replaced by a new one.
  bool acquire(const std::string& path);

  /// Gives up the lock, but keeps the file open: the system attaches no image that somebody else
  /// has locked.
  void handOver();

  /// The open file, to be read, and written at its end; -1 when there is none. It stays this
  /// object's.
  [[nodiscard]] int fd() const { return fd_.get(); }

  /// Its size in bytes. When somebody has removed it, that of what is at its path; throws
  /// boost::filesystem::filesystem_error when that is no file.
  [[nodiscard]] unsigned long long size() const;

  /// Its MD5 digest, 32 lower-case hexadecimal characters.
  [[nodiscard]] std::string md5() const;

  /// Remembers the file as it is now, downloaded and about to be verified.
  void remember();

  /// Whether the path still names the remembered file, unchanged.
  [[nodiscard]] bool isUntouched() const;

  /// Whether the path still names the remembered file. For a disk image that is attached: the
  /// system itself writes to one that is not read-only.
  [[nodiscard]] bool isStillThere() const;

  /// Lets the file go and removes what is at its path.
  void remove();

  /// Lets the file go. It stays where it is.
  void release() { fd_.reset(); }

 private:
  bool openLocked(ScopedFd& fd) const;

  std::string path_;
  ScopedFd fd_;
  OSAL_FileState remembered_;
};
