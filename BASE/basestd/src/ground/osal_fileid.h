#pragma once

#include <sys/types.h>
#include <time.h>

struct stat;

/// Which file it is, whatever its path. All zero: none.
struct OSAL_FileId {
  dev_t device = 0;
  ino_t inode = 0;

  explicit operator bool() const { return inode != 0; }
  bool operator==(const OSAL_FileId&) const = default;
};

/// The file, and what becomes different when somebody writes to it.
struct OSAL_FileState {
  OSAL_FileId id;
  off_t size = -1;
  timespec modified{};
  timespec changed{};

  bool operator==(const OSAL_FileState& other) const;
};

OSAL_FileId osal_fileIdOf(const struct stat& info);

/// The open file, and the one that `path` leads to; none when the system does not answer.
OSAL_FileId osal_fileId(int fd);
OSAL_FileId osal_fileId(const char* path);

/// The open file, and what stands at `path` itself, which may be a link; none when the system does
/// not answer.
OSAL_FileState osal_fileState(int fd);
OSAL_FileState osal_fileStateAt(const char* path);
