#include "ground/osal_shell.h"

std::string osal_shellQuote(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += R"('\'')";
    } else {
      quoted += c;
    }
  }
  return quoted += '\'';
}
