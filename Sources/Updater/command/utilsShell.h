#pragma once

#include <string>

namespace utils {

/// `text` as one word of a shell command: as it is when it holds only letters, digits and
/// "_./+:=@%,-", else in single quotes.
std::string shellWord(const std::string& text);

/// `text` for a place between double quotes: what the shell would interpret there is escaped.
std::string shellQuotedText(const std::string& text);

}  // namespace utils
