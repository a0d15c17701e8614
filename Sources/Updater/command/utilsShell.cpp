#include "Updater/command/utilsShell.h"

#include <boost/algorithm/string/replace.hpp>
#include <string_view>

namespace utils {

std::string shellWord(const std::string& text) {
  static constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+:=@%,-";
  if (text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string quoted = "'";
  quoted += boost::replace_all_copy(text, "'", "'\\''");
  quoted += '\'';
  return quoted;
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
