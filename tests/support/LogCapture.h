#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "logging/QDLog.h"

/// Takes the records of a test: swaps the logger's sink, raises levels, and puts the former sink
/// and the default levels back at its end.
///
///   LogCapture log("OSAL:5;");
///   EXPECT_EQ(file.open(bytes("/nowhere/x"), QD_OPENMODE_RDONLY, 0, false), -1);
///   EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Cannot open (2) file \"/nowhere/x\""));
class LogCapture : private QDLogCb {
 public:
  /// Levels as `QDLog::setLevels` takes them, for instance "OSAL:9;EXCP:5;".
  explicit LogCapture(const char* levels);
  ~LogCapture() override;
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Every record so far, as "MODULE:LABEL text".
  [[nodiscard]] std::vector<std::string> lines() const;

  /// Forgets the records so far.
  void clear();

 private:
  void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
           const char* file, int line, const char* func, const char* message) override;

  QDLogCb* former_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// A literal or string as the byte string that the base library takes.
inline const unsigned char* bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}
inline const unsigned char* bytes(const std::string& text) { return bytes(text.c_str()); }

/// What calls return and log, in short: the result, then the records since the last time, without
/// the first module of `levels`, addresses as "@", and other texts as told by `rename`.
///
///   Said said("OSAL:9;");
///   EXPECT_EQ(said(file.sync()), "-1 ERR Invalid handle (sync)");
class Said {
 public:
  explicit Said(const std::string& levels)
      : log_(levels.c_str()), module_(levels.substr(0, levels.find(':') + 1)) {}

  /// From now on `text` is told as `name`.
  void rename(std::string text, std::string name) {
    names_.emplace_back(std::move(text), std::move(name));
  }

  /// Forgets the records so far.
  void clear() { log_.clear(); }

  /// Records alone, with " | " between them.
  std::string operator()();
  std::string operator()(int result);

 private:
  LogCapture log_;
  std::string module_;
  std::vector<std::pair<std::string, std::string>> names_;
};
