#pragma once

#include <sys/types.h>

#include "ground/osal_scoped.h"

/// How `osal_openOwnFile` opens.
enum class OwnFileUse {
  Read,       ///< read only, whoever owns the file; a missing file is not created
  Append,     ///< read, and write at the end, created when missing
  Log,        ///< write at the end, created when missing; kept even if others could write to it
  Overwrite,  ///< read and write, emptied, created when missing
};

/// True when users other than root and this process's own may create or replace names in `folder`,
/// as in the temporary folder. A folder that cannot be examined counts as shared.
bool osal_folderIsShared(const char* folder);

/// Creates the folder `path` for this user alone, 0700, where it is missing. One that is there must
/// be this user's, and no link; others lose their permissions. Returns 0 or an errno value.
int osal_makeOwnFolder(const char* path);

/// Opens a file of a fixed name in a folder that other users may write to.
///
/// It never follows a link, never waits for a FIFO, and never writes to a file that another user
/// owns, that another user may write to or that has a second hard link: such a thing is unlinked
/// where the folder allows it, and counts as missing. Only a log that others may write to is kept,
/// and loses their permission. A new file is created exclusively with permission bits `mode`. The
/// descriptor is close-on-exec. Returns 0 with the file in `fd`, or an errno value.
int osal_openOwnFile(const char* path, OwnFileUse use, mode_t mode, ScopedFd& fd);

/// The same for the file `name` in the open directory `folder`. Whatever becomes of that
/// directory's own name meanwhile, the file is the one in it.
int osal_openOwnFileAt(int folder, const char* name, OwnFileUse use, mode_t mode, ScopedFd& fd);

/// As `osal_openOwnFile`, and for this user's eyes only, where `path` lies in a shared folder;
/// elsewhere an ordinary open, which follows links as the folder's owner laid them.
int osal_openFixedFile(const char* path, OwnFileUse use, mode_t mode, ScopedFd& fd);
