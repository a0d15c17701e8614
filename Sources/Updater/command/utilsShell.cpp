#include "Updater/command/utilsShell.h"

#include <string_view>

#include "ground/osal_shell.h"

namespace utils {

std::string shellWord(const std::string& text) {
  static constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+:=@%,-";
  if (text.find_first_not_of(kPlain) == std::string::npos) return text;
  return osal_shellQuote(text);
}

std::string shellQuotedText(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (std::string_view("\"$`\\").find(c) != std::string_view::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace utils
