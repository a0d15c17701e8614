#pragma once

#include <cstdio>

#include "ground/QDEnums.h"
#include "ground/QDMarkers.h"

// Options of `OSAL_File::open`, to be combined. Other bits are ignored.

/// Asks the system not to keep the file's data in its cache: for what is read once.
inline constexpr unsigned short OSAL_OPEN_NOCACHE = 0x01;
/// Locks the file exclusively (`flock`). A lock that somebody else holds is a failure at once.
inline constexpr unsigned short OSAL_OPEN_LOCK = 0x10;
/// With OSAL_OPEN_LOCK: waits for the lock.
inline constexpr unsigned short OSAL_OPEN_WAIT = 0x20;
/// Opens through stdio, which buffers what is written. The other options have no effect.
inline constexpr unsigned short OSAL_OPEN_BUFFERED = 0x40;

/// One open file. Used by one thread. Closed, without a message, by its destructor.
///
/// Every operation returns 0, or -1 after logging the system error code; `silent` suppresses every
/// message of the call and changes no result. Reading and writing are single system calls without
/// retries. The members show the state; only the operations change them.
class OSAL_File : private qd_no_duplic {
 public:
  OSAL_File() = default;
  virtual ~OSAL_File();

  /// Opens the file at `path`; its descriptor is close-on-exec. A new file gets the permission bits
  /// 0777 before the umask. `options` are OSAL_OPEN_ bits.
  ///
  /// Nothing is emptied, except by OSAL_OPEN_BUFFERED in the modes that create: there, stdio's "w"
  /// empties an existing file, also with QD_OPENMODE_RWNOTEXISTING, and new files get 0666. An
  /// object that is open already stays as it is. A new file whose lock is refused is removed again
  /// with QD_OPENMODE_RWNOTEXISTING.
  int open(const unsigned char* path, QDOpenMode mode, unsigned short options, bool silent);

  /// Opens the file at `path` to write it anew, for a fixed name in a folder that other users may
  /// write to: by the rules of `osal_openOwnFile`, and the folder itself may not be a link either.
  /// What the file held is gone, a new one gets 0777 before the umask.
  int openOwn(const unsigned char* path, bool silent);

  /// Reads at most `*len` bytes; `*len` becomes the number of bytes delivered, which may be smaller
  /// and is 0 at the end of the file. After a failure it is unchanged.
  int read(void* buf, unsigned int* len, bool silent);

  /// Writes `len` bytes. When fewer could be written, those stay in the file and the call fails.
  int writeFix(const void* data, unsigned int len);

  /// Cuts the file, or extends it with zeros, to `size` bytes. The position stays.
  int truncate(unsigned long long size);

  /// Moves the position to `pos` bytes from the start.
  int seekSet(unsigned long long pos);

  /// Waits until the file is on its device.
  int sync();

  /// The file's length and the space it takes on its device, in bytes. Both pointers may be null,
  /// and neither is written after a failure.
  int getSize(unsigned long long* size, unsigned long long* allocated, bool silent);

  /// Closes the file, for good also when the system reports a failure. On a closed object it fails
  /// only with `mustBeOpen`.
  int close(bool silent, bool mustBeOpen);

  int fd = -1;                  ///< -1 when closed
  std::FILE* stream = nullptr;  ///< of a buffered file; null otherwise
  bool buffered = false;        ///< whether the last `open` asked for a buffered file

 private:
  [[nodiscard]] bool mayOpen(const unsigned char* path, bool silent) const;
  [[nodiscard]] bool isOpen(const char* operation, bool silent) const;
  int openBuffered(const unsigned char* path, QDOpenMode mode, bool silent);
  int openUnbuffered(const unsigned char* path, QDOpenMode mode, unsigned short options,
                     bool silent);
  int lock(const unsigned char* path, bool wait, bool silent);
  int writeBuffered(const void* data, unsigned int len);
  int flush();

  bool unflushed_ = false;  ///< the stream may hold bytes that the descriptor has not seen
};
