#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "logging/QDLog.h"

/// Takes the records of a test: swaps the logger's sink, raises levels, and puts the former sink
/// and the default levels back at its end. Called, it returns in short what a call returned and
/// logged: the result, then the records since the last time without the first module of `levels`.
///
///   LogCapture said("OSAL:9;");
///   EXPECT_EQ(said(file.sync()), "-1 ERR Invalid handle (sync)");
class LogCapture : private QDLogCb {
 public:
  /// Levels as `QDLog::setLevels` takes them, for instance "OSAL:9;EXCP:5;".
  explicit LogCapture(const std::string& levels);
  ~LogCapture() override;

  /// Every record since the last time, as "MODULE:LABEL text".
  [[nodiscard]] std::vector<std::string> lines() const;

  /// From now on a call shows `text` as `name`.
  void rename(std::string text, std::string name) {
    names_.emplace_back(std::move(text), std::move(name));
  }

  /// Records alone, with " | " between them.
  std::string operator()();
  std::string operator()(int result);

 private:
  void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
           const char* file, int line, const char* func, const char* message) override;

  QDLogCb* const former_;
  const std::string module_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  std::vector<std::pair<std::string, std::string>> names_;
};

/// A literal or string as the byte string that the base library takes.
inline const unsigned char* bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}
inline const unsigned char* bytes(const std::string& text) { return bytes(text.c_str()); }
