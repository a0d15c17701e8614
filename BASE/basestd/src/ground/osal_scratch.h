#pragma once

#include <string>

/// A folder of its own among the system's temporary ones, for this user only; gone, with what is in
/// it, with this object.
class ScratchFolder {
 public:
  /// `name`: what its name begins with. Throws std::system_error, with the path, where it cannot be
  /// made.
  explicit ScratchFolder(const std::string& name);
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder();

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};
