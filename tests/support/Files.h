#pragma once

#include <stdlib.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

#include "ground/QDMarkers.h"

/// The bytes of a file; empty when it cannot be read.
inline std::string content(const std::filesystem::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

/// Makes `path` a file of exactly these bytes.
inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

/// Makes `path` a program that the shell runs.
inline void writeProgram(const std::filesystem::path& path, const std::string& body) {
  writeFile(path, "#!/bin/sh\n" + body);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

/// How many descriptors this process has open. The one that counts is always among them.
inline std::ptrdiff_t openDescriptors() {
#if defined(__APPLE__)
  const char* const folder = "/dev/fd";
#else
  const char* const folder = "/proc/self/fd";
#endif
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

/// A fresh, empty folder (0700) that is removed with everything in it, in memory where there is a
/// file system for that: thousands of files cost little there.
class TempFolder : private qd_no_duplic {
 public:
  TempFolder() {
    std::filesystem::path base = "/dev/shm";
    if (!std::filesystem::exists(base)) base = std::filesystem::temp_directory_path();
    std::string pattern = (base / "qdtest.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
    path_ = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};
