#include "tools/QDThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <thread>

#include "LogCapture.h"
#include "MaskAddresses.h"
#include "osal/osal_process.h"
#include "osal/osal_semaphore.h"
#include "tools/QDException.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What a launched thread saw, and the sign that it is done with it.
struct Seen {
  Seen() { done.init(0); }
  OSAL_Semaphore start;  // when a test initialises it, the thread waits for it
  OSAL_Semaphore done;
  void* data = nullptr;
  std::array<std::uint64_t, 2> block{};
};

void* look(void* data, void* ctx) {
  Seen& seen = *static_cast<Seen*>(ctx);
  seen.start.wait();
  seen.data = data;
  if (data != nullptr) seen.block = *static_cast<std::array<std::uint64_t, 2>*>(data);
  seen.done.post();
  return nullptr;
}

/// Waits, but not for ever, until the log has as many lines.
void awaitLines(const LogCapture& log, std::size_t count) {
  for (int i = 0; i < 10'000 && log.lines().size() < count; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(QDThread, GivesTheThreadACopyOfTheBlock) {
  Seen seen;
  ASSERT_EQ(seen.start.init(0), 0);
  std::array<std::uint64_t, 2> block{1, 2};
  QDThread::launchThread(look, 0, &block, sizeof block, "copy", QDThread::QD_QOS_DEFAULT, &seen);
  block = {3, 4};
  seen.start.post();
  seen.done.wait();
  EXPECT_NE(seen.data, &block);
  EXPECT_THAT(seen.block, ElementsAre(1, 2));
}

TEST(QDThread, PassesABlockWithoutSizeAsItIs) {
  Seen seen;
  ASSERT_EQ(seen.start.init(0), 0);
  std::array<std::uint64_t, 2> block{1, 2};
  QDThread::launchThread(look, 0, &block, 0, "share", QDThread::QD_QOS_EFFICIENCY, &seen);
  block = {3, 4};
  seen.start.post();
  seen.done.wait();
  EXPECT_EQ(seen.data, &block);
  EXPECT_THAT(seen.block, ElementsAre(3, 4));
}

TEST(QDThread, AbsorbsWhatTheThreadThrows) {
  LogCapture log(QDLOG_THRD, 9);
  const QDThread::Function throwing[] = {
      [](void*, void*) -> void* { throw std::runtime_error("out"); },
      [](void*, void*) -> void* { throw QDException(1); },
      [](void*, void*) -> void* { throw 7; },
  };
  int block = 1;
  for (const QDThread::Function fn : throwing) {
    QDThread::launchThread(fn, 0, &block, sizeof block, "t", QDThread::QD_QOS_DEFAULT, nullptr);
  }
  awaitLines(log, 3);
  constexpr auto kLine = "THRD:ERR Exception occured during thread execution";
  EXPECT_THAT(log.lines(), ElementsAre(kLine, kLine, kLine));
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
  LogCapture restoresTheSink("");
  ThrowingSink sink;
  QDLog::getLogger()->setLogCb(&sink);
  QDThread::launchThread([](void*, void*) -> void* { throw 7; }, 0, nullptr, 0, "t",
                         QDThread::QD_QOS_DEFAULT, nullptr);
  EXPECT_EQ(sink.asked.timedwait(10'000), 1);
}

/// Tells on the way out that the thread was unwound.
struct TellsUnwinding {
  OSAL_Semaphore& done;
  ~TellsUnwinding() { done.post(); }
};

TEST(QDThread, LetsACancelledThreadUnwind) {
  LogCapture log(QDLOG_THRD, 9);
  const QDThread::Function ending[] = {
      [](void*, void* ctx) -> void* {
        const TellsUnwinding tells{static_cast<Seen*>(ctx)->done};
        pthread_cancel(pthread_self());
        pthread_testcancel();
        return nullptr;
      },
      [](void*, void* ctx) -> void* {
        const TellsUnwinding tells{static_cast<Seen*>(ctx)->done};
        pthread_exit(nullptr);
      },
  };
  Seen seen;
  int block = 1;
  for (const QDThread::Function fn : ending) {
    QDThread::launchThread(fn, 0, &block, sizeof block, "c", QDThread::QD_QOS_DEFAULT, &seen);
    EXPECT_EQ(seen.done.timedwait(10'000), 1);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(QDThread, TellsWhyThereIsNoThread) {
  LogCapture log("OSAL:2;EXCP:5;");
  int block = 1;
  try {
    QDThread::launchThread(look, 1, &block, sizeof block, "t", QDThread::QD_QOS_DEFAULT, nullptr);
    FAIL() << "a stack of one page was enough";
  } catch (const QDException& e) {
    EXPECT_EQ(e.code(), 1);
  }
  EXPECT_THAT(maskAddresses(log.lines()),
              ElementsAre("OSAL:EL2 Cannot set stack size thread attribute (22)",
                          "EXCP:ERR NET: launchThread: Cannot launch thread", "EXCP:ERR ECT - @"));
}

TEST(QDThread, TellsTheCallingThread) {
  unsigned long long id = 0;
  osal_getThreadID(&id);
  EXPECT_EQ(QDGetCurrentThreadId(), id);
}

}  // namespace
