#pragma once

#include <regex>
#include <string>
#include <vector>

/// The lines with "@" alone for each address ("@0x7ff0...").
inline std::vector<std::string> maskAddresses(std::vector<std::string> lines) {
  static const std::regex address("@0x[0-9a-f]+");
  for (std::string& line : lines) line = std::regex_replace(line, address, "@");
  return lines;
}
