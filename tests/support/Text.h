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
