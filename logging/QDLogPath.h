#pragma once

#include "ground/osal_bytes.h"
#include "logging/QDStreamLogger.h"

/// A path as messages show it: between double quotes, "(root)" for an empty one, "(null)" for none.
/// The path stays the caller's.
class QDLogPath {
 public:
  explicit QDLogPath(const char* path) : path_(path) {}
  explicit QDLogPath(const unsigned char* path) : path_(osal_chars(path)) {}

  /// The text between the quotes; also for the messages that show a path without them.
  [[nodiscard]] const char* text() const {
    return path_ != nullptr && *path_ == '\0' ? "(root)" : path_;
  }

 private:
  const char* path_;
};

QDStreamLogger& operator<<(QDStreamLogger& out, const QDLogPath& path);
