#pragma once

#include <string>

#include "ground/osal_scoped.h"

/// Takes what commands print, and passes it on to the log. It is kept in memory, or in a file
/// without a name: no command waits for a reader, and none is waited for that outlives its caller.
class CommandOutput {
 public:
  CommandOutput();

  /// Where commands write; standard output where there is no better place.
  [[nodiscard]] int fd() const noexcept;

  /// Logs what has come since the last time, one NFY record a line.
  void log() noexcept;

  /// What was logged last.
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  ScopedFd fd_;
  std::string text_;
};
