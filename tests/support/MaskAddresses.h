#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The lines with "@" alone for each address ("@0x7ff0...").
inline std::vector<std::string> maskAddresses(std::vector<std::string> lines) {
  for (std::string& line : lines) {
    for (std::size_t at = 0; (at = line.find("@0x", at)) != std::string::npos; ++at) {
      line.erase(at + 1, line.find_first_not_of("0123456789abcdef", at + 3) - (at + 1));
    }
  }
  return lines;
}
