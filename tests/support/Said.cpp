#include "Said.h"

#include <boost/algorithm/string/replace.hpp>
#include <regex>

std::string Said::operator()() {
  static const std::regex address("@0x[0-9a-f]*");
  std::string all;
  for (std::string line : log_.lines()) {
    if (line.starts_with(module_)) line.erase(0, module_.size());
    for (const auto& [text, name] : names_) boost::replace_all(line, text, name);
    all += (all.empty() ? "" : " | ") + std::regex_replace(line, address, "@");
  }
  log_.clear();
  return all;
}

std::string Said::operator()(int result) {
  const std::string records = (*this)();
  return std::to_string(result) + (records.empty() ? "" : " ") + records;
}
