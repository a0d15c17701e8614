#pragma once

#include <string>

#include "ground/QDMarkers.h"
#include "osal/osal_file.h"

/// Option of `QDFile::open`, beside those of `OSAL_File::open`: creates missing parent directories
/// in the modes that may create the file.
inline constexpr unsigned short QDFILE_OPEN_PARENTS = 0x100;

/// One open file, and operations on files by their paths. Failures are logged and thrown as a
/// QDException of code 1. Used by one thread; the static operations by any.
class QDFile : private qd_no_duplic {
 public:
  static constexpr unsigned int kMaxPath = 4096;  ///< characters of a path, terminator not counted

  QDFile() = default;
  virtual ~QDFile();

  /// Opens the file at `path` as `OSAL_File::open` does. A file that is open already is closed, and
  /// that is logged.
  void open(const unsigned char* path, QDOpenMode mode, unsigned short options);

  /// Closes the file. A failure is logged, not thrown.
  void close();

  /// Reads until `len` bytes are there or the file ends. Returns how many there are.
  unsigned int read(void* buf, unsigned int len);

  /// Reads `len` bytes; fewer are a failure.
  void readFix(void* buf, unsigned int len);

  void writeFix(const void* data, unsigned int len);

  /// Cuts the file, or extends it with zeros. The position stays.
  void truncate(unsigned long long size);

  /// Moves the position to the start, or to `pos` bytes from it.
  void reset();
  void seekSet(unsigned long long pos);

  /// Waits until the file is on its device.
  void sync();

  /// The file's length in bytes.
  unsigned long long getSize();

  /// Whether something is at `path`, with links followed.
  static bool exists(const unsigned char* path);

  /// Removes a file, with retries (see QDPathOps). Returns whether there was one.
  static bool remove(const unsigned char* path);

  /// Creates an empty file and missing parents. Returns false when something is there already.
  static bool createEmpty(const unsigned char* path);

  /// The type of what is at `path`, with links followed.
  static QDFileType getType(const unsigned char* path);

  /// Gives everybody every right. `silent` suppresses the messages of the OS layer.
  static void setAllRights(const unsigned char* path, bool silent);

  /// Sets the times of the last access and the last change, in nanoseconds since 1970.
  static void setTimes(const unsigned char* path, unsigned long long aTime,
                       unsigned long long mTime);

  /// Renames with retries (see QDPathOps). What is at `to` is replaced.
  static void rename(const unsigned char* from, const unsigned char* to);

  /// Copies the content and the permission bits of a regular file.
  ///
  /// Something at `dst` is refused, or, with `keepBackup`, kept as `dst` and ".bak", replacing an
  /// older backup; it is put back when the copy fails, and what was copied so far is removed.
  /// Both files are locked meanwhile; a lock that somebody else holds is a failure at once, and
  /// `dst` is not touched before `src` is locked. A file is copied neither onto itself nor over its
  /// own backup name.
  static void copy(const unsigned char* src, const unsigned char* dst, bool keepBackup);

  /// Writes the absolute path `in` to `out`, which has room for `kMaxPath` characters and a NUL,
  /// without repeated and trailing slashes. "." and ".." stay. Returns `out`; null for null, and an
  /// empty string, which is not `out`, for an empty one.
  static const unsigned char* cleanupPath(const unsigned char* in, unsigned char* out);

 private:
  void requireOpen(const char* operation) const;
  void takePermissions(unsigned int bits, const unsigned char* path);
  void takeContent(QDFile& source);
  void takeBack(const unsigned char* path, const std::string& backup);

  OSAL_File file;
  bool opened = false;
};
