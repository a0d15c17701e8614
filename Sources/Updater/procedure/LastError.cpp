#include "Updater/procedure/LastError.h"

#include <string_view>

LastError::LastError() : logger_(QDLog::getLogger()), next_(nullptr) {
  if (logger_ == nullptr) return;
  next_ = logger_->logCb();
  logger_->setLogCb(this);
}

LastError::~LastError() {
  if (logger_ != nullptr) logger_->setLogCb(next_);
}

void LastError::log(unsigned int pid, unsigned long long threadId, const char* module,
                    const char* level, const char* file, int line, const char* func,
                    const char* message) {
  try {
    if (std::string_view(level) == "ERR") text_ = message;
  } catch (...) {
    // The record itself is worth more.
  }
  if (next_ != nullptr) next_->log(pid, threadId, module, level, file, line, func, message);
}
