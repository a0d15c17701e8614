#pragma once

#include <string>

#include "LogCapture.h"
#include "tools/QDException.h"

/// What the tools layer says when it refuses: the one line that `operation` logs in module EXCP
/// before it throws code 1. "nothing" when it does not throw.
template <typename Operation>
std::string refusal(Operation operation) {
  const LogCapture log(QDLOG_EXCP, 5);
  try {
    operation();
    return "nothing";
  } catch (const QDException& exception) {
    if (exception.code() != 1) return "another code";
  }
  std::string said;
  for (const std::string& line : log.lines()) {
    if (line.starts_with("EXCP:")) said += said.empty() ? line : " and " + line;
  }
  return said;
}

/// The line for `text` logged with the throw of code 1.
inline std::string refused(const std::string& text) { return "EXCP:ERR NET: " + text; }
