#pragma once

#include "ground/QDMarkers.h"

/// One file mapped into memory as a whole, shared with whoever else maps it. Used by one thread.
/// Unmapped by its destructor.
///
/// Both operations return 0, or -1 after logging. The members show the state; only the operations
/// change them. Touching pages that somebody has meanwhile cut off the file ends the process with
/// SIGBUS: map only files that nobody shortens.
class OSAL_Map : private qd_no_duplic {
 public:
  OSAL_Map() = default;
  ~OSAL_Map();

  /// Maps the file at `path`, for reading or, with `writable`, also for writing. `wanted` is the
  /// length in bytes, 0 for the file's own; a shorter file grows to it, which takes `writable`.
  /// Files of 4 GiB and more and empty mappings fail. `*start` and `*length`, unless null, receive
  /// the mapping, which lives until `unmap`.
  int map(const unsigned char* path, bool writable, unsigned int wanted, char** start,
          unsigned int* length);

  /// Ends the mapping and closes the file, for good also when the system reports a failure. On an
  /// unmapped object it fails only with `mustBeMapped`.
  int unmap(bool mustBeMapped);

  int fd = -1;            ///< open while mapped; -1 otherwise
  char* ptr = nullptr;    ///< null when not mapped
  unsigned int size = 0;  ///< bytes

 private:
  int mapOpened(const unsigned char* path, bool writable, unsigned int wanted);
};
