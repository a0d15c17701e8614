#include "logging/QDLog.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "ground/osal_process.h"

constinit std::atomic<QDLog*> QDLog::_singleton{nullptr};

namespace {

thread_local bool threadIsInRecord = false;

constexpr std::size_t kEntryLength = 7;  // "ROOT:5;"

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Never reads past the string's end: the first character that does not fit stops it.
bool isEntry(const char* text) {
  for (int i = 0; i < 4; ++i) {
    if (text[i] < 'A' || text[i] > 'Z') return false;
  }
  return text[4] == ':' && isDigit(text[5]) && text[6] == ';';
}

bool endsLevels(char c) { return c == '\0' || c == '\n' || c == '\r' || c == ' '; }

}  // namespace

QDLog::Record::Turn::Turn(QDMutexSilent& lock) : lock_(lock) {
  lock_.lock();
  threadIsInRecord = true;
}

QDLog::Record::Turn::~Turn() {
  threadIsInRecord = false;
  lock_.unlock();
}

QDLog::Record::Record(QDLog& logger) : logger_(logger), turn_(logger._lock) { stream().clear(); }

QDLog::Record::~Record() {
  // A record that was left half built may have left its formats behind.
  if (!finished_) stream().resetFormats();
}

bool QDLog::Record::finish(QDLogMType module, int level, const char* file, int line) {
  stream() << '\0';
  const bool complete = !stream().fail();
  if (complete) logger_.prepareLog(module, level, file, line, "");
  stream().shrink();
  finished_ = true;
  return complete;
}

QDLog::QDLog() : _logCb(&_defCb) { _init(); }

void QDLog::_init() {
  for (auto& level : _levels) level.store(kDefaultLevel, std::memory_order_relaxed);
}

QDLog* QDLog::createLogger() {
  if (!QDSingletonMutex::ready) return nullptr;
  const std::lock_guard guard(QDSingletonMutex::_mutex);
  QDLog* logger = _singleton.load(std::memory_order_acquire);
  if (logger == nullptr) {
    logger = new (std::nothrow) QDLog;
    _singleton.store(logger, std::memory_order_release);
  }
  return logger;
}

void QDLog::destroyLogger() { delete _singleton.exchange(nullptr); }

void QDLog::setLogCb(QDLogCb* cb) {
  const std::lock_guard guard(_lock);
  _logCb.store(cb, std::memory_order_release);
}

bool QDLog::inRecord() { return threadIsInRecord; }

void QDLog::reportMissed(const char* func, int line) {
  std::fprintf(stderr, "Log error (missed): %s (line %d)\n", func, line);
}

void QDLog::setLevels(const char* config) {
  const std::lock_guard guard(_lock);
  try {
    applyLevels(config);
  } catch (...) {
    std::fputs("QDLog::readConfig -> Undefined error\n", stderr);
  }
}

void QDLog::applyLevels(const char* config) {
  _init();
  if (isDigit(config[0]) && config[1] == ';') config += 2;
  for (; !endsLevels(*config); config += kEntryLength) {
    if (!isEntry(config)) {
      std::fprintf(stderr, "QDLog::readConfig -> bad config ([...];%s)\n", config);
      return;
    }
    for (std::size_t module = 0; module < _levels.size(); ++module) {
      if (std::strncmp(config, QDLOG_MODULES[module], 4) == 0) {
        _levels[module].store(config[5] - '0', std::memory_order_relaxed);
      }
    }
  }
}

void QDLog::prepareLog(QDLogMType module, int level, const char* file, int line, const char* func) {
  QDLogCb* const sink = logCb();
  if (sink == nullptr) return;
  unsigned int pid = 0;
  unsigned long long threadId = 0;
  osal_getPid(&pid);
  osal_getThreadID(&threadId);
  sink->log(pid, threadId, QDLOG_MODULES[module], QDLOG_LEVELS[level], file, line, func,
            _stream.text());
}

void QDLog::QDLogDefCb::log(unsigned int pid, unsigned long long threadId, const char* module,
                            const char* level, const char* file, int line, const char* /*func*/,
                            const char* message) {
  std::printf("0x%x,0x%llx - %s:%s [ %s:%d ] - %s\n", pid, threadId, module, level, file, line,
              message);
  std::fflush(stdout);
}
