#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"

/// Checks what a call returned, and that exactly these records were made since the last check.
///
///   expectCall(log, file.sync(), -1, {"OSAL:ERR Invalid handle (sync)"});
inline void expectCall(LogCapture& log, int result, int expected,
                       const std::vector<std::string>& lines = {},
                       const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  const testing::ScopedTrace trace(file, line, "called here");
  EXPECT_EQ(result, expected);
  EXPECT_EQ(log.lines(), lines);
  log.clear();
}
