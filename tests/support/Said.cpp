#include "Said.h"

#include <boost/algorithm/string/replace.hpp>

namespace {

std::string withoutAddresses(std::string line) {
  for (std::size_t at = 0; (at = line.find("@0x", at)) != std::string::npos; ++at) {
    const std::size_t end = line.find_first_not_of("0123456789abcdef", at + 3);
    line.erase(at + 1, end == std::string::npos ? end : end - at - 1);
  }
  return line;
}

}  // namespace

Said::Said(const std::string& levels)
    : log_(levels.c_str()), module_(levels.substr(0, levels.find(':') + 1)) {}

void Said::rename(std::string text, std::string name) {
  names_.emplace_back(std::move(text), std::move(name));
}

std::string Said::operator()() {
  std::string all;
  for (std::string line : log_.lines()) {
    if (line.starts_with(module_)) line.erase(0, module_.size());
    for (const auto& [text, name] : names_) boost::replace_all(line, text, name);
    all += (all.empty() ? "" : " | ") + withoutAddresses(line);
  }
  log_.clear();
  return all;
}

std::string Said::operator()(int result) {
  const std::string records = (*this)();
  return std::to_string(result) + (records.empty() ? "" : " ") + records;
}
