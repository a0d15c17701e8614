#pragma once

#include <sys/types.h>

#include "ground/QDEnums.h"

// Operations on one path. Each is a single system call and returns 0, or -1 after logging the
// system error code; `silent` suppresses every message of the call and changes no result. A null
// path is the system's EFAULT. Out pointers may be null; they are written on success only. Any
// thread may call them.

/// The type in the mode of a file status: QD_FILETYPE_REG, QD_FILETYPE_DIR, QD_FILETYPE_SYMLINK or,
/// for everything else, QD_FILETYPE_UNKNOWN.
[[nodiscard]] QDFileType osal_fileTypeOf(mode_t mode);

/// The type of what is at `path`, with links followed. A missing path is a failure.
int osal_getFileType(const unsigned char* path, QDFileType* type, bool silent);

/// Whether something is at `path`, with links followed: a dangling link does not exist, nor does
/// anything below a regular file. The real user's rights count.
int osal_exists(const unsigned char* path, bool* exists, bool silent);

/// Creates a directory, 0777 before the umask. Whatever kind of thing is there already, that is
/// success, and `*existed` is true.
int osal_mkdir(const unsigned char* path, bool* existed, bool silent);

/// Removes an empty directory. A missing one is success, and `*missing` is true.
int osal_rmdir(const unsigned char* path, bool* missing);

/// Removes a directory unless there is something in it, which is not a failure, and neither is a
/// missing one: `*removed` is false then.
int osal_rmdirIfEmpty(const unsigned char* path, bool* removed);

/// Unlinks a file. A missing one is success, and `*removed` is false.
int osal_rmfile(const unsigned char* path, bool* removed, bool silent);

/// Renames `from` to `to`, which is replaced when it exists.
int osal_rename(const unsigned char* from, const unsigned char* to, bool silent);

/// Gives everybody every right (0777).
int osal_setAllRights(const unsigned char* path, bool silent);

/// Sets the times of the last access and of the last change, in nanoseconds since 1970. They are
/// kept to the microsecond.
int osal_setTimes(const unsigned char* path, unsigned long long aTime, unsigned long long mTime);

/// Creates an empty file of a new name, 0600. The six X before the last `suffixLength` characters
/// of `pattern` are replaced by what makes the name unique. It never logs.
int osal_mktemp(unsigned char* pattern, int suffixLength, bool silent);

/// Bytes that the caller may still use on the file system of `path`.
int osal_getFSFreeSpace(const unsigned char* path, unsigned long long* freeBytes);

/// The absolute path without links, "." and "..". `realPath` has room for PATH_MAX bytes; after a
/// failure it holds what the system could not resolve, where it says so, or is empty.
int osal_getRealPath(const unsigned char* path, unsigned char* realPath);

/// Unmounts `path` with the system's command, unless that would not fit 1,024 bytes. Always
/// returns 0: whether it was mounted, and is not any more, is not known.
int osal_umount(const char* path);

/// Not available on these systems, and nothing is done: osal_getFSInfo returns -1 for a null path
/// and -2 otherwise, the others -1.
int osal_getFSInfo(const unsigned char* path, ...);
int osal_is_mounted(...);
int osal_mount_cifs(...);
int osal_mount_nfs(...);
