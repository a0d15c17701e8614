#pragma once

#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"

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
