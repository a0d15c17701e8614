#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "ground/osal_scoped.h"
#include "logging/QDLog.h"

/// The local time as the text of a log line. For one thread at a time.
class QDLogClock {
 public:
  /// The time now, "2026-03-01 14:05:09"; empty when it has no local time. The text lives until the
  /// next call, and is only formatted again when the second or TZ has changed.
  std::string_view now();

 private:
  std::time_t second_ = -1;
  std::optional<std::string> zone_;  // the value of TZ, which may be missing
  std::string text_;
};

/// A file's size without a question to the system before each line: the answer of the latest
/// question, and the bytes written since. For one thread at a time.
class QDLogSize {
 public:
  [[nodiscard]] unsigned long long bytes() const { return bytes_; }

  /// Whether the system is to be asked again: it has never been, or the answer is 100 ms or 64 KiB
  /// old.
  [[nodiscard]] bool isOld() const;

  /// Takes an answer of the system.
  void set(unsigned long long bytes);

  /// Counts bytes that this process has written.
  void add(unsigned long long bytes);

 private:
  unsigned long long bytes_ = 0;
  unsigned long long added_ = 0;  // bytes since `setAt_`
  long long setAt_ = -1000;       // in ms of a clock that never runs backwards
};

/// Writes each record as one line to a file that rolls: the line that would make it larger than 5
/// MiB starts it afresh, and one previous generation stays beside it under the ".bak" name.
///
/// The sink reports no failure: a line that cannot be written is lost, but echoed all the same.
/// When there is no memory for a line, standard error gets its source file and line number. Each
/// line is a single write at the end of the file, so several processes may share it.
/// The file rolls when it is too large, never on a guess; what another process wrote within the
/// last 100 ms may still be missed, so that it rolls a little later.
class FileQDLogCb : public QDLogCb {
 public:
  /// Opens `path` for appending, created when missing; a failure leaves the sink without a file.
  /// `echo`: every line is also written to standard output. `shared`: other users could exchange
  /// the file at `path`, as in the temporary folder; it is then opened by the rules of
  /// `osal_openOwnFile`. These hold anyway where other users may write to its folder.
  FileQDLogCb(const std::string& path, bool echo, bool shared = false);

  void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
           const char* file, int line, const char* func, const char* message) override;

  /// Closes the file, renames it to the backup name and opens an empty one.
  void rollLogFiles();

 private:
  [[nodiscard]] ScopedFd openFile() const;
  bool exceedsLimit(std::size_t length);
  void writeToFile(std::string_view text);

  QDLogClock _clock;
  QDLogSize _size;
  std::string _text;  // of the line being written, between two newlines
  ScopedFd _file;
  std::string _path;
  bool _echo;
  bool _shared;
  bool _torn = false;             // the last line in the file is incomplete
  unsigned long long _rollAbove;  // size in bytes above which the file rolls
};

/// The name under which the previous generation of the log at `path` is kept.
std::string qdLogBackupName(const std::string& path);
