#pragma once

#include <dirent.h>

#include <cstddef>

#include "ground/QDEnums.h"
#include "ground/QDMarkers.h"

/// One open directory, read entry by entry. Used by one thread. Closed, without a message, by its
/// destructor.
///
/// Every operation returns 0, or -1 after logging; `warnOnly` lowers a failure of the system from
/// ERR to WRN and changes no result. The members show the state; only the operations change them.
class OSAL_Dir : private qd_no_duplic {
 public:
  /// Most characters of a directory's path with its final slash.
  static constexpr std::size_t kMaxPath = 4096;

  OSAL_Dir() = default;
  virtual ~OSAL_Dir();

  /// Opens the directory at `folder`, with links followed. A path of more than 4,095 characters
  /// fails, and `closeDir` is still to be called: the system may have opened it.
  int openDir(const unsigned char* folder, bool warnOnly);

  /// Copies the next entry's name with a NUL into the `size` bytes of `name`; "." and ".." are
  /// entries, too. At the end the name is empty and the result 0.
  ///
  /// `*type`, unless null, is the type of what the entry leads to with links followed;
  /// QD_FILETYPE_UNKNOWN where that cannot be found out. After a failure `name` is empty; an entry
  /// whose name did not fit is passed over.
  int readDir(void* name, unsigned int size, QDFileType* type, bool warnOnly);

  /// Closes the directory, for good also when the system reports a failure. On a closed object it
  /// fails only with `mustBeOpen`.
  int closeDir(bool mustBeOpen, bool warnOnly);

  DIR* dir = nullptr;            ///< null when closed
  char path[kMaxPath + 1] = {};  ///< the directory's path with a slash, then the last entry's name
  std::size_t pathLength = 0;    ///< of the directory's path with its slash

 private:
  [[nodiscard]] QDFileType typeOf(const dirent& entry);

  bool searchable_ = false;  // an entry's status could be read: this directory does not forbid it
};
