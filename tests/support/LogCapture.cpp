#include "LogCapture.h"

#include <boost/algorithm/string/replace.hpp>
#include <regex>

LogCapture::LogCapture(const char* levels) : former_(QDLog::getLogger()->logCb()) {
  QDLog::getLogger()->setLevels(levels);
  QDLog::getLogger()->setLogCb(this);
}

LogCapture::~LogCapture() {
  QDLog::getLogger()->setLogCb(former_);
  QDLog::getLogger()->setLevels("");
}

std::vector<std::string> LogCapture::lines() const {
  const std::lock_guard guard(mutex_);
  return lines_;
}

void LogCapture::clear() {
  const std::lock_guard guard(mutex_);
  lines_.clear();
}

void LogCapture::log(unsigned int /*pid*/, unsigned long long /*threadId*/, const char* module,
                     const char* level, const char* /*file*/, int /*line*/, const char* /*func*/,
                     const char* message) {
  const std::lock_guard guard(mutex_);
  lines_.push_back(std::string(module) + ":" + level + " " + message);
}

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
