#pragma once

#include <sys/types.h>
#include <time.h>

#include <string>

#include "ground/osal_scoped.h"

/// The downloaded package, held from its creation to the end of the installation, so that what gets
/// installed is what was verified: the file is this process's alone, locked against a second run,
/// and its path can be asked whether it still names it.
class PackageFile {
 public:
  /// Creates the file at `path`, or takes over one that an earlier run of this user left, and locks
  /// it. Returns false when it can't be opened or another run holds it. What an earlier run handed
  /// over, and somebody still holds, is unlinked and replaced by a new file.
  bool acquire(const std::string& path);

  /// Gives up the lock, but not the file, so that the system can lock it: it attaches no image that
  /// somebody else has locked.
  void handOver();

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
  struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec modified{};
    timespec changed{};
  };
  static Identity identityOf(const struct stat& info);
  static Identity identityAt(const std::string& path);  // all zero when nothing is there
  static bool sameFile(const Identity& a, const Identity& b);
  bool openLocked(ScopedFd& fd) const;

  std::string path_;
  ScopedFd fd_;
  Identity remembered_;
};
