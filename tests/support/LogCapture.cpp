#include "LogCapture.h"

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
