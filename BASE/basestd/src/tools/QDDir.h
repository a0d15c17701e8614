#pragma once

#include "ground/QDMarkers.h"
#include "osal/osal_dir.h"
#include "tools/QDDirCallbacks.h"  // IWYU pragma: export
#include "tools/QDDirRemoveCb.h"   // IWYU pragma: export

/// One open directory, and operations on directories by their paths. Failures are logged and
/// thrown as a QDException of code 1. Used by one thread; the static operations by any.
///
/// Callbacks stay the caller's.
class QDDir : private qd_no_duplic {
 public:
  static constexpr unsigned int kMaxPath = 4096;  ///< characters of a path, terminator not counted

  /// `tolerant`: failures are reported as warnings and thrown with code 2.
  explicit QDDir(bool tolerant = false);
  virtual ~QDDir();

  /// Opens the directory at `path`. One that is open already is closed, and that is logged.
  void _open(const unsigned char* path);

  /// Closes the directory. A failure is logged, not thrown.
  void _close();

  /// The next entry's name, which lives until the next call, or null at the end. "." and ".." are
  /// entries, too. `*type`, unless null, is what the entry leads to, with links followed.
  const unsigned char* read(QDFileType* type);

  /// Whether a directory is at `path`, with links followed.
  static bool exists(const unsigned char* path);

  /// Removes an empty directory, with retries (see QDPathOps).
  static void remove(const unsigned char* path);

  /// Removes a directory if it is empty; `*removed` is whether it was. A missing one is not.
  static void removeIfEmpty(const unsigned char* path, bool* removed);

  /// Hands the entries of a directory to `cb`, in the order in which the system lists them.
  ///
  /// `recursive`: those of the directories below it as well, each directory before its entries or,
  /// with `childrenFirst`, after them; a directory that a link or mount puts inside itself is
  /// handed over and not entered again. `includeRoot`: `path` itself, too, always with its full
  /// path. `relativePaths`: the paths start below `path`. `warnOnly`: failures are reported as
  /// warnings and thrown with code 2.
  ///
  /// A directory that cannot be read to its end is logged, and the walk goes on with what it has.
  /// Returns false when `cb` ended the walk.
  static bool browse(const unsigned char* path, bool recursive, bool includeRoot,
                     bool childrenFirst, QSDir_cbArgBrowse& cb, bool relativePaths, bool warnOnly);

  /// Removes a directory with everything in it; links are removed, not followed. Nothing outside
  /// of it is touched, also while somebody swaps names in it. Returns false when nothing was there.
  /// The first thing that cannot be removed ends it with an exception.
  static bool removeRec(const unsigned char* path);

  /// Creates a directory, and with `createParents` missing parents. `cb`, unless it is null, gets
  /// each that was created. Returns whether the directory was there already.
  static bool create(const unsigned char* path, bool createParents, QSDir_cbArgCreateDirs* cb);

  /// The same for each of the paths in `list`, which ";" separates; empty ones are passed over.
  /// Returns the result of the last one.
  static bool creates(const unsigned char* list, bool createParents, QSDir_cbArgCreateDirs* cb);

  /// Creates the missing directories above `path` (see QDPathOps).
  static void createParentsOfPath(const unsigned char* path, QSDir_cbArgCreateDirs* cb);

 private:
  OSAL_Dir dir;
  unsigned char entry[kMaxPath + 1] = {};
  bool opened = false;
  bool warnOnly;
};
