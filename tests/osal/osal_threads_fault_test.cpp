#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "PosixFaults.h"
#include "osal/osal_threads.h"

// What every single failure of the system is reported as. The code is always 11 (EAGAIN).

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

struct FaultCase {
  const char* function;
  int (*operation)();
  int result;
  std::vector<std::string> lines;
  int skip = 0;
};

void expectFaults(const std::vector<FaultCase>& cases) {
  for (const auto& [function, operation, result, lines, skip] : cases) {
    SCOPED_TRACE(testing::Message() << function << ", " << lines.front());
    LogCapture log(QDLOG_OSAL, 3);
    const PosixFault fault(function, EAGAIN, skip);
    EXPECT_EQ(operation(), result);
    EXPECT_TRUE(PosixFault::hit());
    EXPECT_THAT(log.lines(), ElementsAreArray(lines));
  }
}

/// An event that lives for one statement, usable already.
struct Event : OSAL_Event {
  Event() { initEvent(); }
  ~Event() override { destroyEvent(); }
};

TEST(OSAL_EventFaults, AreReportedWithTheirCode) {
  const auto init = [] { return OSAL_Event().initEvent(); };
  const auto destroy = [] { return Event().destroyEvent(); };
  const auto notify = [] { return Event().notify(); };
  const auto wait = [] { return Event().waitForNotification(0); };
  const auto waitNotified = [] {
    Event event;
    event.notify();
    return event.waitForNotification(0);
  };
  expectFaults({
      {"pthread_mutex_init",
       init,
       -1,
       {"OSAL:EL2 OSAL_Event::initEvent - Cannot initialize mutex (11)"}},
      {"pthread_condattr_init",
       init,
       -1,
       {"OSAL:EL2 OSAL_Event::initEvent - Cannot initialize condition attribute (11)"}},
      {"pthread_cond_init",
       init,
       -1,
       {"OSAL:EL2 OSAL_Event::initEvent - Cannot initialize condition (11)"}},
      {"pthread_cond_destroy",
       destroy,
       EAGAIN,
       {"OSAL:EL2 OSAL_Event::destroyEvent - Cannot destroy condition (11)"}},
      {"pthread_condattr_destroy",
       destroy,
       0,
       {"OSAL:EL2 OSAL_Event::destroyEvent - Cannot destroy condition attribute (11)"}},
      {"pthread_mutex_destroy",
       destroy,
       0,
       {"OSAL:EL2 OSAL_Event::destroyEvent - Cannot destroy mutex (11)"}},
      {"pthread_mutex_lock", notify, -1, {"OSAL:EL2 OSAL_Event::notify - Cannot lock mutex (11)"}},
      {"pthread_cond_broadcast", notify, -1, {"OSAL:EL2 OSAL_Event::notify - Cannot notify (11)"}},
      {"pthread_mutex_unlock",
       notify,
       -1,
       {"OSAL:EL2 OSAL_Event::notify - Cannot unlock mutex (11)"}},
      {"pthread_mutex_lock",
       wait,
       -1,
       {"OSAL:EL2 OSAL_Event::waitForNotification - Cannot lock mutex (11)"}},
      {"pthread_cond_timedwait",
       wait,
       -1,
       {"OSAL:EL2 OSAL_Event::waitForNotification - Cannot wait for notification (11)"}},
      {"pthread_mutex_unlock",
       wait,
       -1,
       {"OSAL:EL2 OSAL_Event::waitForNotification - Cannot unlock mutex (11)"}},
      {"pthread_mutex_unlock",
       waitNotified,
       -1,
       {"OSAL:EL2 OSAL_Event::waitForNotification - Cannot unlock mutex (11)"},
       1},
  });
}

TEST(OSAL_EventFaults, AFailedBroadcastLeavesTheLatchOpen) {
  Event event;
  LogCapture log(QDLOG_OSAL, 5);
  {
    const PosixFault fault("pthread_cond_broadcast", EAGAIN);
    EXPECT_EQ(event.notify(), -1);
  }
  log.clear();
  EXPECT_EQ(event.notify(), 0);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(log.lines()[0], testing::HasSubstr("OSAL_Event::notify - Notify ("));
}

TEST(OSAL_EventFaults, AnIncoherentClockEndsTheWait) {
  Event event;
  LogCapture log(QDLOG_OSAL, 3);
  const FakeClock clock(-5, 7);
  EXPECT_EQ(event.waitForNotification(1), -1);
  {
    // Two others are released before the event's own: those of the logger and of its sink.
    const PosixFault fault("pthread_mutex_unlock", EAGAIN, 2);
    EXPECT_EQ(event.waitForNotification(1), -1);
    EXPECT_TRUE(PosixFault::hit());
  }
  EXPECT_EQ(event.notify(), 0) << "the mutex was left locked";
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:EL2 Incoherent values (tv_sec = -5, tv_usec = 7)",
                          "OSAL:EL2 Incoherent values (tv_sec = -5, tv_usec = 7)",
                          "OSAL:EL2 OSAL_Event::waitForNotification - Cannot unlock mutex"));
}

struct Semaphore : OSAL_Semaphore {
  explicit Semaphore(unsigned int count) { init(count); }
};

TEST(OSAL_SemaphoreFaults, AreReportedWithTheirCode) {
  const auto init = [] { return OSAL_Semaphore().init(0); };
  const auto destroy = [] { return Semaphore(0).destroySemaphore(); };
  const auto wait = [] { return Semaphore(1).wait(); };
  const auto waitEmpty = [] { return Semaphore(0).wait(); };
  const auto timedwait = [] { return Semaphore(1).timedwait(0); };
  const auto timedwaitEmpty = [] { return Semaphore(0).timedwait(0); };
  const auto trywait = [] { return Semaphore(1).trywait(); };
  const auto post = [] { return Semaphore(0).post(); };
  const auto end = [] {
    Semaphore(0);
    return 0;
  };
  expectFaults({
      {"pthread_mutex_init",
       init,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::init - Cannot initialize mutex (11)"}},
      {"pthread_condattr_init",
       init,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::init - Cannot initialize condition attribute (11)"}},
      {"pthread_cond_init",
       init,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::init - Cannot initialize condition (11)"}},
      {"pthread_cond_destroy",
       destroy,
       EAGAIN,
       {"OSAL:EL2 OSAL_Semaphore::destroySemaphore - Cannot destroy condition (11)"}},
      {"pthread_condattr_destroy",
       destroy,
       0,
       {"OSAL:EL2 OSAL_Semaphore::destroySemaphore - Cannot destroy condition attribute (11)"}},
      {"pthread_mutex_destroy",
       destroy,
       0,
       {"OSAL:EL2 OSAL_Semaphore::destroySemaphore - Cannot destroy mutex (11)"}},
      {"pthread_cond_destroy",
       end,
       0,
       {"OSAL:EL2 OSAL_Semaphore::destroySemaphore - Cannot destroy condition (11)",
        "OSAL:EL2 OSAL_Semaphore::~OSAL_Semaphore - Cannot destroy semaphore (11)"}},
      {"pthread_mutex_lock", wait, -1, {"OSAL:EL2 OSAL_Semaphore::wait - Cannot lock mx (11)"}},
      {"pthread_cond_wait",
       waitEmpty,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::wait - pthread_cond_wait failed (11)"}},
      {"pthread_mutex_unlock", wait, -1, {"OSAL:EL2 OSAL_Semaphore::wait - Cannot unlock mx (11)"}},
      {"pthread_cond_timedwait",
       timedwaitEmpty,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::timedwait - pthread_cond_wait failed (11)"}},
      {"pthread_mutex_unlock",
       timedwait,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::timedwait - Cannot unlock mx (11)"}},
      {"pthread_mutex_lock",
       trywait,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::trywait - Cannot lock mx (11)"}},
      {"pthread_mutex_unlock",
       trywait,
       -1,
       {"OSAL:EL2 OSAL_Semaphore::trywait - Cannot unlock mx (11)"}},
      {"pthread_mutex_lock", post, -1, {"OSAL:EL2 OSAL_Semaphore::post - Cannot lock mx (11)"}},
      {"pthread_cond_signal", post, -1, {"OSAL:EL2 OSAL_Semaphore::post - Cannot post(11)"}},
      {"pthread_mutex_unlock", post, -1, {"OSAL:EL2 OSAL_Semaphore::post - Cannot unlock mx (11)"}},
  });
}

TEST(OSAL_SemaphoreFaults, AFailedTimedLockIsFollowedByAHarmlessUnlock) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer reports every unlock by a thread that holds nothing";
#endif
  expectFaults({{"pthread_mutex_lock",
                 [] { return Semaphore(1).timedwait(0); },
                 -1,
                 {"OSAL:EL2 OSAL_Semaphore::timedwait - Cannot lock mx (11)",
                  "OSAL:EL2 OSAL_Semaphore::timedwait - Cannot unlock mx (1)"}}});
}

TEST(OSAL_SemaphoreFaults, AnIncoherentClockEndsTheWait) {
  Semaphore semaphore(1);
  LogCapture log(QDLOG_OSAL, 3);
  const FakeClock clock(5, -7);
  EXPECT_EQ(semaphore.timedwait(1), -1);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("OSAL:EL2 Incoherent values (tv_sec = 5, tv_usec = -7)",
                  "OSAL:EL2 OSAL_Semaphore::timedwait - MillisecsToAbsoluteTimespec failed"));
  EXPECT_EQ(semaphore.trywait(), 1);
}

void* postDone(void* done) {
  static_cast<OSAL_Semaphore*>(done)->post();
  return nullptr;
}

/// Launches a thread and waits for its end when there is one.
int launch(unsigned int stackSize) {
  Semaphore done(0);
  const int result = osal_launchThread(postDone, stackSize, &done, "t", OSAL_QOS_DEFAULT);
  if (result == 0) done.wait();
  return result;
}

TEST(OsalThread, AsksForWholePagesOfStack) {
  const auto page = static_cast<unsigned int>(::sysconf(_SC_PAGESIZE));
  const struct {
    unsigned int stackSize;
    std::size_t asked;
  } kCases[] = {
      {0, 0},
      {1U << 20, 1U << 20},
      {(1U << 20) - 1, 1U << 20},
      {(1U << 20) + 1, (1U << 20) + page},
      {(1U << 20) + page, (1U << 20) + page},
  };
  for (const auto& [stackSize, asked] : kCases) {
    SCOPED_TRACE(stackSize);
    EXPECT_EQ(launch(stackSize), 0);
    EXPECT_EQ(takeAskedStackSize(), asked);
  }
}

TEST(OsalThreadFaults, AreReportedWithTheirCode) {
  const auto launched = [] { return launch(1U << 20); };
  expectFaults({
      {"pthread_attr_init", launched, -1, {"OSAL:EL2 Cannot initialize thread attributes (11)"}},
      {"pthread_attr_getstacksize", launched, 0, {"OSAL:WRN Cannot get stack size attribute (11)"}},
      {"pthread_attr_setstacksize",
       launched,
       -1,
       {"OSAL:EL2 Cannot set stack size thread attribute (11)"}},
      {"pthread_create", launched, -1, {"OSAL:EL2 Cannot launch thread (11)"}},
      {"pthread_attr_destroy", launched, 0, {"OSAL:EL2 Cannot destroy thread attributes (11)"}},
      {"pthread_detach", launched, 0, {"OSAL:EL2 Cannot detach thread (11)"}},
  });
}

TEST(OSAL_MutexFaults, AreReportedOnStandardError) {
  const struct {
    const char* function;
    int (*operation)(OSAL_Mutex&);
    const char* line;
  } kCases[] = {
      {"pthread_mutex_init",
       [](OSAL_Mutex& mutex) {
         mutex.destroyMutex();
         return mutex.initMutex("m");
       },
       "OSAL_Mutex::initMutex - Cannot initialize mutex (11)\n"},
      {"pthread_mutex_lock", [](OSAL_Mutex& mutex) { return mutex.lockMutex(); },
       "OSAL_Mutex::lockMutex - Cannot lock mutex (11)\n"},
      {"pthread_mutex_unlock",
       [](OSAL_Mutex& mutex) {
         mutex.lockMutex();
         return mutex.unlockMutex();
       },
       "OSAL_Mutex::unlockMutex - Cannot unlock mutex (11)\n"},
      {"pthread_mutex_destroy", [](OSAL_Mutex& mutex) { return mutex.destroyMutex(); },
       "OSAL_Mutex::destroyMutex - Cannot cleanup mutex (11)\n"},
  };
  for (const auto& [function, operation, line] : kCases) {
    SCOPED_TRACE(line);
    OSAL_Mutex mutex;
    mutex.initMutex("m");
    LogCapture log(QDLOG_OSAL, 5);
    testing::internal::CaptureStderr();
    {
      const PosixFault fault(function, EAGAIN);
      EXPECT_EQ(operation(mutex), -1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line);
    EXPECT_TRUE(log.lines().empty());
    mutex.destroyMutex();
    EXPECT_EQ(mutex.initMutex("m"), 0) << "it counts as initialised";
    mutex.destroyMutex();
  }
}

}  // namespace
