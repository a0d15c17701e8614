#pragma once

#include <sstream>
#include <string>

/// Its arguments, streamed one after the other.
template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/// A path and a system error code as messages show them.
inline std::string quoted(const std::string& path) { return '"' + path + '"'; }
inline std::string code(int error) { return '(' + std::to_string(error) + ')'; }
