#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ground/osal_scoped.h"

namespace tuf {

using Waiting = std::function<void(const std::string& folder)>;

/// A folder of small files that are replaced whole or not at all. While the object lives no other
/// Folder of any process has it: the constructor waits. All functions throw Error, Storage.
class Folder {
 public:
  /// Creates the folder where it is missing, and what is left of a file that a killed process was
  /// writing is removed. `waiting` is called, once, where another has the folder for a second.
  explicit Folder(const std::string& path, const Waiting& waiting = {});

  /// The file's content, or nothing where there is none, it is no regular file, or it has more than
  /// `maxBytes`.
  [[nodiscard]] std::optional<std::string> read(const std::string& name,
                                                std::uint64_t maxBytes) const;

  /// Why `read` returns nothing though something of that name is there: "is a link". Empty where
  /// nothing is there.
  [[nodiscard]] std::string obstacle(const std::string& name, std::uint64_t maxBytes) const;

  /// Hands the content to `sink` in pieces. Returns false where there is no such regular file.
  bool read(const std::string& name, const std::function<void(std::string_view)>& sink) const;

  /// Replaces the file by what `fill` writes, which gets a function that takes the content piece by
  /// piece. Where anything throws, the older file stays and nothing else does. The new one, mode
  /// 0644, is on the disk when this returns.
  void replace(const std::string& name,
               const std::function<void(const std::function<void(std::string_view)>&)>& fill);

  void write(const std::string& name, std::string_view content);

  /// A missing file is success.
  void remove(const std::string& name);

 private:
  std::string path_;
  ScopedFd folder_;
};

}  // namespace tuf
