#include "osal/osal_threads.h"

#include <gtest/gtest.h>

#include <thread>

#include "LogCapture.h"

namespace {

constexpr unsigned int kLong = 20'000;  // ms, far beyond what any test waits

TEST(OSAL_Event, WakesEveryWaiterAndIsCleared) {
  LogCapture log("OSAL:5;");
  OSAL_Event event;
  ASSERT_EQ(event.initEvent(), 0);
  log();
  const auto wait = [&] { EXPECT_EQ(event.waitForNotification(kLong), 0); };
  std::thread waiters[] = {std::thread(wait), std::thread(wait)};
  // Each says so before it waits, with the lock held that the notification takes.
  while (log.lines().size() < 2) std::this_thread::yield();
  EXPECT_EQ(event.notify(), 0);
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(event.notify() + event.waitForNotification(0), 0);  // which takes it
  EXPECT_EQ(event.waitForNotification(0), 0);
  EXPECT_TRUE(log.lines().back().find("Timed out") != std::string::npos);
  EXPECT_EQ(event.destroyEvent(), 0);
}

TEST(OSAL_Semaphore, CountsUpToItsLimit) {
  OSAL_Semaphore semaphore;
  EXPECT_EQ(semaphore.init(32'768), -1);
  EXPECT_EQ(semaphore.init(32'766) + semaphore.post(), 0);
  EXPECT_EQ(semaphore.post(), -1);
  int taken = 0;
  while (semaphore.timedwait(0) == 1) ++taken;
  EXPECT_EQ(taken, 32'767);
}

TEST(OSAL_Semaphore, APostWakesWhoWaits) {
  OSAL_Semaphore there;
  OSAL_Semaphore back;
  ASSERT_EQ(there.init(0) + back.init(0), 0);
  std::thread other([&] {
    for (int i = 0; i < 50 && there.wait() == 0; ++i) back.post();
  });
  for (int i = 0; i < 50; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(200));  // mostly the other one waits then
    EXPECT_EQ(there.post(), 0);
    ASSERT_EQ(back.timedwait(kLong), 1);
  }
  other.join();
}

}  // namespace
