#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

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

/// How many descriptors this process has open. The one that counts is always among them.
inline std::ptrdiff_t openDescriptors() {
#if defined(__APPLE__)
  const char* const folder = "/dev/fd";
#else
  const char* const folder = "/proc/self/fd";
#endif
  return std::distance(std::filesystem::directory_iterator(folder),
                       std::filesystem::directory_iterator());
}
