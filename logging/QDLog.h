#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <ios>
#include <iterator>

#include "ground/QDMarkers.h"
#include "logging/QDMutexSilent.h"
#include "logging/QDStreamLogger.h"

/// The module that a statement belongs to: QDLOG_ROOT, QDLOG_DBWR and so on.
enum QDLogMType : int {
#define QD_MODULE(code) QDLOG_##code,
#include "logging/QDLogModules.def"
};

/// The four-letter module codes, by module number.
inline constexpr const char* QDLOG_MODULES[] = {
#define QD_MODULE(code) #code,
#include "logging/QDLogModules.def"
};
static_assert(std::size(QDLOG_MODULES) == 53);

/// The level labels, by level. Smaller is more important; level 8 is spelled as it is.
inline constexpr const char* QDLOG_LEVELS[] = {"NFY", "EL2", "ERR", "WRN", "INF",
                                               "DBG", "DBG", "DBG", "DGB", "DBG"};

/// The levels that have a name of their own.
enum class QDLevel : int { NFY = 0, EL2 = 1, ERR = 2, WRN = 3, INF = 4, DBG = 5 };

/// Where records go. The logger calls `log` under its lock, so a sink needs none of its own; a sink
/// must not log. An exception that leaves it reaches the code that logged, perhaps a destructor, so
/// a sink catches its own exceptions.
class QDLogCb : public qd_interface_base_qualifier {
 public:
  /// Takes one record. All strings belong to the caller and live until the return.
  /// `file` is the source file as the compiler names it, `func` is always empty.
  virtual void log(unsigned int pid, unsigned long long threadId, const char* module,
                   const char* level, const char* file, int line, const char* func,
                   const char* message) = 0;
};

/// The one logger of the process. Statements are written with QDLOG below; it is created on first
/// use and lives to the end of the process. Any thread may log at any time.
class QDLog : private qd_no_duplic {
 public:
  /// The console sink: one line a record on standard output.
  class QDLogDefCb : public QDLogCb {
   public:
    void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
             const char* file, int line, const char* func, const char* message) override;
  };

  /// One record being built. Holds the logger's lock from its construction to its end.
  class Record : private qd_no_duplic {
   public:
    explicit Record(QDLog& logger);
    ~Record();
    QDStreamLogger& stream() { return logger_._stream; }
    /// Ends the text and passes the record to the sink. Returns false when the stream failed: then
    /// the sink gets nothing.
    [[nodiscard]] bool finish(QDLogMType module, int level, const char* file, int line);

   private:
    /// Holds the lock, and this thread's mark that a statement is under way.
    class Turn : private qd_no_duplic {
     public:
      explicit Turn(QDMutexSilent& lock);
      ~Turn();

     private:
      QDMutexSilent& lock_;
    };

    QDLog& logger_;
    Turn turn_;
    bool finished_ = false;
  };

  QDLog();
  virtual ~QDLog() = default;

  /// The logger, created on first use; null when there is none and none can be created: there is no
  /// memory for it, or the process is ending.
  static QDLog* getLogger() {
    QDLog* const logger = _singleton.load(std::memory_order_acquire);
    return logger != nullptr ? logger : createLogger();
  }

  /// Deletes the logger, but no sink. For the end of a process that checks for leaks.
  static void destroyLogger();

  /// Sets every module to level 2, then applies `config`: any number of entries "CODE:digit;",
  /// after an optional first "digit;" without a meaning. NUL, line feed, carriage return or a blank
  /// ends it. A malformed entry ends it with a line on standard error; the entries before it hold.
  void setLevels(const char* config);

  /// Sets the sink, which stays the caller's. Null: nothing is written. When it returns, the former
  /// sink is no longer in use.
  void setLogCb(QDLogCb* cb);
  [[nodiscard]] QDLogCb* logCb() const { return _logCb.load(std::memory_order_acquire); }

  /// Whether a record of this module (0 to 52) and level (0 to 9) would be written.
  [[nodiscard]] bool wants(QDLogMType module, int level) const {
    if (level != 0 &&
        _levels[static_cast<std::size_t>(module)].load(std::memory_order_relaxed) < level) {
      return false;
    }
    return logCb() != nullptr;
  }

  /// Completes the record in the stream and passes it to the sink. The caller holds the lock.
  void prepareLog(QDLogMType module, int level, const char* file, int line, const char* func);

  /// True while this thread is inside a statement, which must not be nested.
  [[nodiscard]] static bool inRecord();

  /// Reports on standard error that the statement at `line` of `func` was lost.
  static void reportMissed(const char* func, int line);

 private:
  static constexpr int kDefaultLevel = 2;

  static QDLog* createLogger();
  void _init();
  void applyLevels(const char* config);

  static std::atomic<QDLog*> _singleton;

  QDMutexSilent _lock;
  std::array<std::atomic<int>, std::size(QDLOG_MODULES)> _levels;
  QDStreamLogger _stream;
  QDLogDefCb _defCb;
  std::atomic<QDLogCb*> _logCb;
};

/// Writes one record: `QDLOG(OSAL, warnOnly ? WRN : ERR, "Cannot open " << QDLogPath(path));`
///
/// `module` is a module code; `level` is NFY, EL2, ERR, WRN, INF, DBG, a number from 0 to 9 or an
/// expression of these; the rest is what to stream, evaluated only when the record is written.
/// It is one statement. What it streams must not log: a nested statement is refused with a line on
/// standard error. A failure of the stream, lack of memory included, never reaches the caller, so
/// destructors may log; an exception of the streamed expression itself or of a sink does, after the
/// lock is released.
#define QDLOG(module, level, ...)                                                        \
  do {                                                                                   \
    const int qdlogLevel_ = [&] {                                                        \
      using enum QDLevel;                                                                \
      return static_cast<int>(level);                                                    \
    }();                                                                                 \
    QDLog* const qdlog_ = QDLog::getLogger();                                            \
    if (qdlog_ == nullptr || !qdlog_->wants(QDLOG_##module, qdlogLevel_)) break;         \
    if (QDLog::inRecord()) {                                                             \
      QDLog::reportMissed(__func__, __LINE__);                                           \
      break;                                                                             \
    }                                                                                    \
    bool qdlogDone_ = false;                                                             \
    try {                                                                                \
      QDLog::Record qdlogRecord_(*qdlog_);                                               \
      qdlogRecord_.stream() << __VA_ARGS__;                                              \
      qdlogDone_ = qdlogRecord_.finish(QDLOG_##module, qdlogLevel_, __FILE__, __LINE__); \
    } catch (const std::ios_base::failure&) {                                            \
      /* is reported as any other failure of the stream */                               \
    }                                                                                    \
    if (!qdlogDone_) QDLog::reportMissed(__func__, __LINE__);                            \
  } while (false)
