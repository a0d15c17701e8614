#pragma once

#include <string>

#include "logging/QDLog.h"

/// Stands before the logger's sink as long as it lives and remembers the text of the latest ERR
/// record: it says why a run failed, whichever step it was.
class LastError : public QDLogCb {
 public:
  LastError();
  LastError(const LastError&) = delete;
  LastError& operator=(const LastError&) = delete;
  ~LastError() override;

  void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
           const char* file, int line, const char* func, const char* message) override;

  /// Empty when there was none.
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  QDLog* logger_;
  QDLogCb* next_;
  std::string text_;
};
