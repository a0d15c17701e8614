#pragma once

#include "tools/QDDirCallbacks.h"

/// Operations that files and directories have in common: patient removal and renaming, checks, and
/// the creation of parents. Failures are logged and thrown.
///
/// A removal or renaming that fails is tried four times in all, with a second's pause after each
/// failure. What is not there is removed at the first attempt.
namespace QDPathOps {

/// Whether there was a file to remove. The second form removes the entry `name` of the open
/// directory `folder`, whose `path` is for the messages.
bool removeFile(const unsigned char* path);
bool removeFileAt(int folder, const char* name, const unsigned char* path);

/// Removes an empty directory.
void removeFolder(const unsigned char* path);

void rename(const unsigned char* from, const unsigned char* to);

/// Whether something is at `path`, and whether that is a directory. Failures have code 2 instead of
/// 1 when `warnOnly`.
bool folderPathExists(const unsigned char* path, bool warnOnly);
bool isFolder(const unsigned char* path, bool warnOnly);

/// Creates one directory and returns whether it was there already.
bool createFolder(const unsigned char* path);

/// Creates the missing directories above `path`, from the top down, and hands each to `cb`, unless
/// that is null. The part behind the last slash of `path` is not created.
void createParents(const unsigned char* path, QSDir_cbArgCreateDirs* cb);

/// Logs `text` and the quoted path, and throws code 1, or code 2 when `warnOnly`.
[[noreturn]] void fail(bool warnOnly, const char* text, const unsigned char* path);

}  // namespace QDPathOps
