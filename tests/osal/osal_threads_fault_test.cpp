#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "PosixFaults.h"
#include "Said.h"
#include "osal/osal_threads.h"

// What every single failure of the system is reported as. The code is always 11 (EAGAIN).

namespace {

/// Objects that live for one statement, usable already.
struct Event : OSAL_Event {
  Event() { initEvent(); }
  ~Event() override { destroyEvent(); }
};
struct Semaphore : OSAL_Semaphore {
  explicit Semaphore(unsigned int count) { init(count); }
};

/// Launches a thread and waits for its end when there is one.
int launch(unsigned int stackSize) {
  const auto post = [](void* done) -> void* {
    static_cast<OSAL_Semaphore*>(done)->post();
    return nullptr;
  };
  Semaphore done(0);
  const int result = osal_launchThread(post, stackSize, &done, "t", OSAL_QOS_DEFAULT);
  if (result == 0) done.wait();
  return result;
}

TEST(OsalThreadsFaults, AreReportedWithTheirCode) {
  using Operation = int (*)();
  const Operation initEvent = [] { return OSAL_Event().initEvent(); };
  const Operation destroyEvent = [] { return Event().destroyEvent(); };
  const Operation notify = [] { return Event().notify(); };
  const Operation waitForIt = [] { return Event().waitForNotification(0); };
  const Operation waitNotified = [] {
    Event event;
    event.notify();
    return event.waitForNotification(0);
  };
  const Operation init = [] { return OSAL_Semaphore().init(0); };
  const Operation destroy = [] { return Semaphore(0).destroySemaphore(); };
  const Operation end = [] { return Semaphore(0), 0; };
  const Operation wait = [] { return Semaphore(1).wait(); };
  const Operation waitEmpty = [] { return Semaphore(0).wait(); };
  const Operation timedwait = [] { return Semaphore(1).timedwait(0); };
  const Operation timedwaitEmpty = [] { return Semaphore(0).timedwait(0); };
  const Operation trywait = [] { return Semaphore(1).trywait(); };
  const Operation post = [] { return Semaphore(0).post(); };
  const Operation launched = [] { return launch(1U << 20); };
  const std::string e = "EL2 OSAL_Event::";
  const std::string s = "EL2 OSAL_Semaphore::";
  const std::string destroyed = s + "destroySemaphore - Cannot destroy ";
  const struct {
    const char* function;
    Operation operation;
    std::string said;
    int skip = 0;
  } kCases[] = {
    {"mutex_init", initEvent, "-1 " + e + "initEvent - Cannot initialize mutex (11)"},
    {"condattr_init", initEvent,
     "-1 " + e + "initEvent - Cannot initialize condition attribute (11)"},
    {"cond_init", initEvent, "-1 " + e + "initEvent - Cannot initialize condition (11)"},
    {"cond_destroy", destroyEvent, "11 " + e + "destroyEvent - Cannot destroy condition (11)"},
    {"condattr_destroy", destroyEvent,
     "0 " + e + "destroyEvent - Cannot destroy condition attribute (11)"},
    {"mutex_destroy", destroyEvent, "0 " + e + "destroyEvent - Cannot destroy mutex (11)"},
    {"mutex_lock", notify, "-1 " + e + "notify - Cannot lock mutex (11)"},
    {"cond_broadcast", notify, "-1 " + e + "notify - Cannot notify (11)"},
    {"mutex_unlock", notify, "-1 " + e + "notify - Cannot unlock mutex (11)"},
    {"mutex_lock", waitForIt, "-1 " + e + "waitForNotification - Cannot lock mutex (11)"},
    {"cond_timedwait", waitForIt,
     "-1 " + e + "waitForNotification - Cannot wait for notification (11)"},
    {"mutex_unlock", waitForIt, "-1 " + e + "waitForNotification - Cannot unlock mutex (11)"},
    {"mutex_unlock", waitNotified, "-1 " + e + "waitForNotification - Cannot unlock mutex (11)", 1},
    {"mutex_init", init, "-1 " + s + "init - Cannot initialize mutex (11)"},
    {"condattr_init", init, "-1 " + s + "init - Cannot initialize condition attribute (11)"},
    {"cond_init", init, "-1 " + s + "init - Cannot initialize condition (11)"},
    {"cond_destroy", destroy, "11 " + destroyed + "condition (11)"},
    {"condattr_destroy", destroy, "0 " + destroyed + "condition attribute (11)"},
    {"mutex_destroy", destroy, "0 " + destroyed + "mutex (11)"},
    {"cond_destroy", end,
     "0 " + destroyed + "condition (11) | " + s +
         "~OSAL_Semaphore - Cannot destroy semaphore (11)"},
    {"mutex_lock", wait, "-1 " + s + "wait - Cannot lock mx (11)"},
    {"cond_wait", waitEmpty, "-1 " + s + "wait - pthread_cond_wait failed (11)"},
    {"mutex_unlock", wait, "-1 " + s + "wait - Cannot unlock mx (11)"},
#if !defined(__SANITIZE_THREAD__)  // which reports every unlock by a thread that holds nothing
    {"mutex_lock", timedwait,
     "-1 " + s + "timedwait - Cannot lock mx (11) | " + s + "timedwait - Cannot unlock mx (1)"},
#endif
    {"cond_timedwait", timedwaitEmpty, "-1 " + s + "timedwait - pthread_cond_wait failed (11)"},
    {"mutex_unlock", timedwait, "-1 " + s + "timedwait - Cannot unlock mx (11)"},
    {"mutex_lock", trywait, "-1 " + s + "trywait - Cannot lock mx (11)"},
    {"mutex_unlock", trywait, "-1 " + s + "trywait - Cannot unlock mx (11)"},
    {"mutex_lock", post, "-1 " + s + "post - Cannot lock mx (11)"},
    {"cond_signal", post, "-1 " + s + "post - Cannot post(11)"},
    {"mutex_unlock", post, "-1 " + s + "post - Cannot unlock mx (11)"},
    {"attr_init", launched, "-1 EL2 Cannot initialize thread attributes (11)"},
    {"attr_getstacksize", launched, "0 WRN Cannot get stack size attribute (11)"},
    {"attr_setstacksize", launched, "-1 EL2 Cannot set stack size thread attribute (11)"},
    {"create", launched, "-1 EL2 Cannot launch thread (11)"},
    {"attr_destroy", launched, "0 EL2 Cannot destroy thread attributes (11)"},
    {"detach", launched, "0 EL2 Cannot detach thread (11)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.function);
    Said said("OSAL:3;");
    const std::string function = std::string("pthread_") + c.function;
    const PosixFault fault(function, EAGAIN, c.skip);
    EXPECT_EQ(said(c.operation()), c.said);
    EXPECT_TRUE(PosixFault::hit());
  }
}

TEST(OsalThreadsFaults, AFailedBroadcastLeavesTheLatchOpen) {
  Event event;
  Said said("OSAL:5;");
  {
    const PosixFault fault("pthread_cond_broadcast", EAGAIN);
    EXPECT_EQ(event.notify(), -1);
  }
  said.clear();
  EXPECT_EQ(said(event.notify()), "0 DBG OSAL_Event::notify - Notify (@)");
}

TEST(OsalThreadsFaults, AnIncoherentClockEndsTheWait) {
  Event event;
  Semaphore semaphore(1);
  Said said("OSAL:3;");
  const FakeClock clock(-5, 7);
  const std::string incoherent = "-1 EL2 Incoherent values (tv_sec = -5, tv_usec = 7)";
  EXPECT_EQ(said(event.waitForNotification(1)), incoherent);
  EXPECT_EQ(said(semaphore.timedwait(1)),
            incoherent + " | EL2 OSAL_Semaphore::timedwait - MillisecsToAbsoluteTimespec failed");
  // Two others are released before the event's own: those of the logger and of its sink.
  const PosixFault fault("pthread_mutex_unlock", EAGAIN, 2);
  EXPECT_EQ(said(event.waitForNotification(1)),
            incoherent + " | EL2 OSAL_Event::waitForNotification - Cannot unlock mutex");
  EXPECT_TRUE(PosixFault::hit());
  EXPECT_EQ(event.notify(), 0) << "the mutex was left locked";
  EXPECT_EQ(semaphore.trywait(), 1);
}

TEST(OsalThreadsFaults, AThreadAsksForWholePagesOfStack) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  constexpr unsigned int kMiB = 1U << 20;
  const std::pair<unsigned int, std::size_t> kCases[] = {
      {0, 0}, {kMiB, kMiB}, {kMiB - 1, kMiB}, {kMiB + 1, kMiB + page}};
  for (const auto& [stackSize, asked] : kCases) {
    takeAskedStackSize();
    EXPECT_EQ(launch(stackSize), 0);
    EXPECT_EQ(takeAskedStackSize(), asked) << stackSize;
  }
}

TEST(OsalThreadsFaults, OfMutexesAreReportedOnStandardError) {
  const struct {
    const char* function;
    std::vector<int (OSAL_Mutex::*)()> operations;  // the last of which meets the fault
    const char* line;
  } kCases[] = {
      {"pthread_mutex_lock", {&OSAL_Mutex::lockMutex}, "lockMutex - Cannot lock mutex"},
      {"pthread_mutex_unlock",
       {&OSAL_Mutex::lockMutex, &OSAL_Mutex::unlockMutex},
       "unlockMutex - Cannot unlock mutex"},
      {"pthread_mutex_destroy", {&OSAL_Mutex::destroyMutex}, "destroyMutex - Cannot cleanup mutex"},
  };
  OSAL_Mutex mutex;
  const auto expectError = [](int result, const std::string& line) {
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "OSAL_Mutex::" + line + " (11)\n");
    EXPECT_EQ(result, -1);
  };
  for (const auto& [function, operations, line] : kCases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(mutex.initMutex("m"), 0) << "it counts as initialised";
    const PosixFault fault(function, EAGAIN);
    int result = 0;
    for (const auto operation : operations) result = (mutex.*operation)();
    expectError(result, line);
    mutex.destroyMutex();
  }
  testing::internal::CaptureStderr();
  const PosixFault fault("pthread_mutex_init", EAGAIN);
  expectError(mutex.initMutex("m"), "initMutex - Cannot initialize mutex");
}

}  // namespace
