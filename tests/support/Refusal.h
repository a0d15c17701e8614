#pragma once

#include <string>

#include "LogCapture.h"
#include "tools/QDException.h"

/// What the tools layer says when it refuses: the one line in module EXCP that `operation` logs, as
/// an error or as a warning, before it throws the code that belongs to it. "nothing" when it does
/// not throw.
template <typename Operation>
std::string refusal(Operation operation) {
  const LogCapture log(QDLOG_EXCP, 5);
  int code = 0;
  try {
    operation();
    return "nothing";
  } catch (const QDException& exception) {
    code = exception.code();
  }
  std::string said;
  for (const std::string& line : log.lines()) {
    const bool isError = line.starts_with("EXCP:ERR NET: ");
    if (!isError && !line.starts_with("EXCP:WRN SET: ")) continue;
    said += said.empty() ? line : " and " + line;
    if (code != (isError ? 1 : 2)) said += " with another code";
  }
  return said;
}

/// The line for `text` logged with the throw of code 1, and with that of code 2.
inline std::string refused(const std::string& text) { return "EXCP:ERR NET: " + text; }
inline std::string tolerated(const std::string& text) { return "EXCP:WRN SET: " + text; }
