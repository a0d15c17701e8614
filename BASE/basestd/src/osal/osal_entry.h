#pragma once

#include <string>
#include <vector>

#include "ground/QDEnums.h"
#include "ground/osal_scoped.h"

// Operations on the entry `name` of the open directory `folder`. Whatever becomes of the
// directory's own name meanwhile, the entry is the one in it, and it is what it is itself: links
// are not followed. `path` is for the messages. Each returns 0, or -1 after logging the system
// error code. Out pointers may be null; they are written on success only. Any thread may call them.

/// The type of the entry, of all kinds that the system knows; QD_FILETYPE_NOTEXISTS when there is
/// none.
int osal_getEntryType(int folder, const char* name, const unsigned char* path, QDFileType* type);

/// Opens the entry, a directory, to list it and to work on its entries. `fd` is close-on-exec.
int osal_openFolderAt(int folder, const char* name, const unsigned char* path, ScopedFd& fd);

/// Opens the entry, a directory, only to work on its entries; being allowed to list it is not
/// needed. Here links are followed, and `name` may also be a path; `folder` is then where a
/// relative one starts (AT_FDCWD: the current directory).
int osal_reachFolderAt(int folder, const char* name, const unsigned char* path, ScopedFd& fd);

/// An entry of a directory.
struct OSAL_Entry {
  std::string name;
  bool file;  ///< the listing calls it a regular file, which it may no longer be
};

/// Adds the entries of the open directory, "." and ".." left out. After a failure those that could
/// be read are there.
int osal_listFolder(int folder, std::vector<OSAL_Entry>& entries);

/// Removes an empty directory. A missing one is success, and `*missing` is true.
int osal_rmdirAt(int folder, const char* name, const unsigned char* path, bool* missing);

/// Unlinks what is no directory. A missing entry is success, and `*removed` is false. `silent`
/// suppresses the messages.
int osal_rmfileAt(int folder, const char* name, const unsigned char* path, bool* removed,
                  bool silent);

/// Unlinks what is no directory, and logs it as `osal_rmfileAt` does. Returns false, without a
/// message, when nothing was unlinked: the caller finds out what is in the way.
bool osal_tryRmfileAt(int folder, const char* name, const unsigned char* path);
