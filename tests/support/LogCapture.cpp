#include "LogCapture.h"

#include <boost/algorithm/string/replace.hpp>

LogCapture::LogCapture(const std::string& levels)
    : former_(QDLog::getLogger()->logCb()), module_(levels.substr(0, levels.find(':') + 1)) {
  QDLog::getLogger()->setLevels(levels.c_str());
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

void LogCapture::log(unsigned int /*pid*/, unsigned long long /*threadId*/, const char* module,
                     const char* level, const char* /*file*/, int /*line*/, const char* /*func*/,
                     const char* message) {
  const std::lock_guard guard(mutex_);
  lines_.push_back(std::string(module) + ":" + level + " " + message);
}

std::string LogCapture::operator()() {
  const std::lock_guard guard(mutex_);
  std::string all;
  for (std::string line : std::exchange(lines_, {})) {
    if (line.starts_with(module_)) line.erase(0, module_.size());
    for (const auto& [text, name] : names_) boost::replace_all(line, text, name);
    all += (all.empty() ? "" : " | ") + line;
  }
  return all;
}

std::string LogCapture::operator()(int result) {
  const std::string records = (*this)();
  return std::to_string(result) + (records.empty() ? "" : " ") + records;
}
