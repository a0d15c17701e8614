// Failures of the system that a thread, an event or a semaphore can meet. The code is 11 (EAGAIN).

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "PosixFaults.h"
#include "Said.h"
#include "osal/osal_threads.h"

namespace {

/// Launches a thread and waits for its end when there is one.
int launch(unsigned int stackSize, OSAL_QOS qos) {
  const auto post = [](void* done) -> void* {
    static_cast<OSAL_Semaphore*>(done)->post();
    return nullptr;
  };
  OSAL_Semaphore done;
  done.init(0);
  const int result = osal_launchThread(post, stackSize, &done, "scan", qos);
  if (result == 0) done.wait();
  return result;
}

TEST(OsalThread, AsksForWholePagesOfStackAndTellsItsClass) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  constexpr unsigned int kMiB = 1U << 20;
  const struct {
    unsigned int stackSize;
    std::size_t asked;
    unsigned int qos;
    std::string name;
  } kCases[] = {{0, 0, 0, "unspecified"},
                {kMiB, kMiB, 1, "efficiency"},
                {kMiB - 1, kMiB, 2, "performance"},
                {kMiB + 1, kMiB + page, 3, "default"},
                {kMiB, kMiB, 7, ""}};
  for (const auto& c : kCases) {
    Said said("OSAL:5;");
    takeAskedStackSize();
    EXPECT_TRUE(said(launch(c.stackSize, static_cast<OSAL_QOS>(c.qos)))
                    .starts_with("0 DBG Set QoS to " + c.name + " for thread \"scan\""));
    EXPECT_EQ(takeAskedStackSize(), c.asked) << c.stackSize;
  }
}

TEST(OsalThread, ReportsWhatTheSystemRefuses) {
  constexpr std::pair<const char*, const char*> kCases[] = {
      {"attr_init", "-1 EL2 Cannot initialize thread attributes (11)"},
      {"attr_getstacksize", "0 WRN Cannot get stack size attribute (11)"},
      {"attr_setstacksize", "-1 EL2 Cannot set stack size thread attribute (11)"},
      {"create", "-1 EL2 Cannot launch thread (11)"},
      {"attr_destroy", "0 EL2 Cannot destroy thread attributes (11)"},
      {"detach", "0 EL2 Cannot detach thread (11)"}};
  for (const auto& [function, expected] : kCases) {
    Said said("OSAL:3;");
    const std::string name = std::string("pthread_") + function;
    const PosixFault fault(name, EAGAIN);
    EXPECT_EQ(said(launch(1U << 20, OSAL_QOS_DEFAULT)), expected);
  }
}

TEST(OsalSynchronisation, AFailureLeavesTheMutexUnlockedAndTheLatchOpen) {
  OSAL_Event event;
  ASSERT_EQ(event.initEvent(), 0);
  OSAL_Semaphore semaphore;
  ASSERT_EQ(semaphore.init(1), 0);
  Said said("OSAL:3;");
  {
    const PosixFault fault("pthread_cond_broadcast", EAGAIN);
    EXPECT_EQ(said(event.notify()), "-1 EL2 OSAL_Event::notify - Cannot notify (11)");
  }
  {
    const FakeClock clock(-5, 7);
    const std::string incoherent = "-1 EL2 Incoherent values (tv_sec = -5, tv_usec = 7)";
    EXPECT_EQ(said(event.waitForNotification(1)), incoherent);
    EXPECT_EQ(said(semaphore.timedwait(1)),
              incoherent + " | EL2 OSAL_Semaphore::timedwait - MillisecsToAbsoluteTimespec failed");
  }
  const PosixFault fault("pthread_cond_timedwait", EAGAIN);
  EXPECT_EQ(said(event.waitForNotification(0)),
            "-1 EL2 OSAL_Event::waitForNotification - Cannot wait for notification (11)");
  EXPECT_EQ(event.notify(), 0);
  EXPECT_EQ(semaphore.trywait(), 1);
  EXPECT_EQ(event.destroyEvent(), 0);
}

}  // namespace
