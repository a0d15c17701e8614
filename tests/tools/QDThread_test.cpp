// Threads, and the mutexes that never report.

#include "tools/QDThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "PosixFaults.h"
#include "ToolsTest.h"
#include "osal/osal_process.h"
#include "osal/osal_semaphore.h"
#include "sysdef/qdTunablesBaseValues.h"
#include "tools/QDMutexSilent.h"

namespace {

using ::testing::IsEmpty;

void* nothing(void*, void*) { return nullptr; }

void launch(QDThread::Function fn, unsigned int stackSize = 0, void* data = nullptr,
            unsigned int size = 0, void* ctx = nullptr) {
  QDThread::launchThread(fn, stackSize, data, size, "t", QDThread::QD_QOS_DEFAULT, ctx);
}

/// What a launched thread saw, and the signs when it may look and that it is done with it.
struct Seen {
  Seen() {
    start.init(0);
    done.init(0);
  }
  OSAL_Semaphore start;
  OSAL_Semaphore done;
  void* data = nullptr;
  int value = 0;
};

TEST(QDThread, GetsACopyOfTheBlockOrTheBlockItself) {
  for (const bool copied : {false, true}) {
    Seen seen;
    int block = 1;
    const auto look = [](void* data, void* ctx) -> void* {
      Seen& s = *static_cast<Seen*>(ctx);
      s.start.wait();
      s.data = data;
      s.value = *static_cast<int*>(data);
      s.done.post();
      return nullptr;
    };
    launch(look, 0, &block, copied ? sizeof block : 0, &seen);
    block = 2;
    seen.start.post();
    seen.done.wait();
    EXPECT_EQ(seen.data != &block, copied);
    EXPECT_EQ(seen.value, copied ? 1 : 2);
  }
}

TEST(QDThread, AbsorbsWhatTheThreadThrows) {
  const LogCapture log(QDLOG_THRD, 9);
  int block = 1;
  launch([](void*, void*) -> void* { throw std::runtime_error("out"); }, 0, &block, sizeof block);
  launch([](void*, void*) -> void* { throw QDException(1); });
  launch([](void*, void*) -> void* { throw 7; });
  for (int i = 0; i < 10'000 && log.lines().size() < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(log.lines(),
            std::vector<std::string>(3, "THRD:ERR Exception occured during thread execution"));
}

/// A sink that fails, and tells that it was asked.
class ThrowingSink : public QDLogCb {
 public:
  ThrowingSink() { asked.init(0); }
  void log(unsigned int, unsigned long long, const char*, const char*, const char*, int,
           const char*, const char*) override {
    asked.post();
    throw std::runtime_error("no log today");
  }
  OSAL_Semaphore asked;
};

TEST(QDThread, SurvivesALogThatFailsToo) {
  const LogCapture restoresTheSink("");
  ThrowingSink sink;
  QDLog::getLogger()->setLogCb(&sink);
  launch([](void*, void*) -> void* { throw 7; });
  EXPECT_EQ(sink.asked.timedwait(10'000), 1);
}

TEST(QDThread, LetsACancelledThreadUnwind) {
  struct TellsUnwinding {
    OSAL_Semaphore& done;
    ~TellsUnwinding() { done.post(); }
  };
  const LogCapture log(QDLOG_THRD, 9);
  for (const bool cancelled : {false, true}) {
    Seen seen;
    seen.value = cancelled ? 1 : 0;
    launch(
        [](void*, void* ctx) -> void* {
          Seen& s = *static_cast<Seen*>(ctx);
          const TellsUnwinding tells{s.done};
          if (s.value == 0) pthread_exit(nullptr);
          pthread_cancel(pthread_self());
          pthread_testcancel();
          return nullptr;
        },
        0, nullptr, 0, &seen);
    EXPECT_EQ(seen.done.timedwait(10'000), 1);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(QDThread, TakesTheStackSizeOrTheTunableOne) {
  const std::uint32_t former = BASE_DEFAULT_THREAD_STACK;
  BASE_DEFAULT_THREAD_STACK = 3U << 20;
  for (const unsigned int stackSize : {0U, 2U << 20}) {
    launch(nothing, stackSize);
    EXPECT_EQ(takeAskedStackSize(), stackSize == 0 ? 3U << 20 : stackSize);
  }
  BASE_DEFAULT_THREAD_STACK = former;
}

TEST(QDThread, TellsWhyThereIsNone) {
  constexpr struct {
    const char* function;
    const char* text;
  } kCases[] = {{"operator new", "launchThread: Memory allocation error"},
                {"operator new[]", "launchThread: Memory allocation error"},
                {"pthread_create", "launchThread: Cannot launch thread"},
                {"pthread_attr_setstacksize", "launchThread: Cannot launch thread"}};
  for (const auto& [function, text] : kCases) {
    int block = 1;
    EXPECT_EQ(refusal([&, name = function] {
                const PosixFault fault(name, EAGAIN);
                launch(nothing, 0, &block, sizeof block);
              }),
              refused(text))
        << function;
  }
  unsigned long long id = 0;
  osal_getThreadID(&id);
  EXPECT_EQ(QDGetCurrentThreadId(), id);
}

TEST(QDMutexSilent, ExcludesAndWithoutItsMutexLocksNothing) {
  QDMutexSilent mutex;
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < 10'000; ++i) {
      const std::lock_guard guard(mutex);
      ++counter;
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(counter, 20'000);

  testing::internal::CaptureStderr();
  {
    const PosixFault fault("pthread_mutex_init", EAGAIN);
    QDMutexSilent unusable;
    unusable.lock();
    unusable.lock();
    unusable.unlock();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "OSAL_Mutex::initMutex - Cannot initialize mutex (11)\n");
}

TEST(QDMutexSilentUq, MakesSingletonsPossibleWhileItExists) {
  QDLog* const logger = QDLog::getLogger();
  { const QDMutexSilentUq ended; }
  EXPECT_EQ(QDLog::getLogger(), logger) << "an existing logger stays";
  QDLog::destroyLogger();
  EXPECT_EQ(QDLog::getLogger(), nullptr);
  QDLOG(ROOT, NFY, "nobody takes this");
  QDSingletonMutex::ready = true;  // the process's own still exists
  EXPECT_NE(QDLog::getLogger(), nullptr);
}

}  // namespace
