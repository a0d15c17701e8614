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
  /// The time now, "2026-03-01 14:05:09"; empty for one that has no local time. Lives until the
  /// next call. It is made anew when the second has changed, or TZ.
  const std::string& now();

 private:
  std::time_t _second = -1;
  std::optional<std::string> _zone;  // the value of TZ, which may be missing
  std::string _text;
};

/// Writes each record as one line to a file that rolls: the line that would make it larger than 5
/// MiB starts it afresh, and one previous generation stays beside it under the ".bak" name.
///
/// It reports nothing: lines that cannot be written are lost, and echoed all the same. A line that
/// memory has no room for is told, by its place alone, to standard error. Each line is one write at
/// the end of the file, so that several processes may share it.
class FileQDLogCb : public QDLogCb {
 public:
  /// Opens `path` for appending, created when missing; a failure leaves the sink without a file.
  /// `echo`: every line is also written to standard output. `shared`: others could exchange what
  /// stands at `path`, as in the temporary folder, so the file is this user's alone and no link is
  /// followed; so it is anyway where others may write to its folder.
  FileQDLogCb(const std::string& path, bool echo, bool shared = false);

  void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
           const char* file, int line, const char* func, const char* message) override;

  /// Closes the file, renames it to the backup name and opens an empty one.
  void rollLogFiles();

 private:
  [[nodiscard]] ScopedFd openFile() const;
  void writeToFile(std::string_view text);

  QDLogClock _clock;
  ScopedFd _file;
  std::string _path;
  bool _echo;
  bool _shared;
  bool _torn = false;             // the file ends in a part of a line
  unsigned long long _rollAbove;  // size in bytes above which the file rolls
};

/// The line for a record, without its newline. `stamp` is the local time as text.
std::string qdLogLine(const char* stamp, const char* module, const char* level, const char* file,
                      int line, const char* message);

/// The part of a source file's name that a line shows.
const char* qdLogShortFileName(const char* file);

/// The name under which the previous generation of the log at `path` is kept.
std::string qdLogBackupName(const std::string& path);
