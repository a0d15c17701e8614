#pragma once

#include <mutex>
#include <string>
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
