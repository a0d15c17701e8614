#include "osal/osal_threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "Said.h"
#include "osal/osal_deadline.h"

namespace {

constexpr unsigned int kLong = 20'000;  // ms, far beyond what any test waits

TEST(OsalDeadline, AddsAndCarries) {
  const auto within = osal_deadlineAfter({10, 998'999}, 1);
  EXPECT_EQ(within->tv_sec, 10);
  EXPECT_EQ(within->tv_nsec, 999'999'000);
  const auto carried = osal_deadlineAfter({10, 999'000}, 4'294'967'001);
  EXPECT_EQ(carried->tv_sec, 4'294'978);
  EXPECT_EQ(carried->tv_nsec, 0);
  EXPECT_FALSE(osal_deadlineAfter({-1, 0}, 1000));
}

TEST(OSAL_Mutex, IsUsableBetweenInitAndDestroy) {
  OSAL_Mutex mutex;
  const auto refused = [&mutex](auto operation, const std::string& error) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(operation(mutex), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "OSAL_Mutex::" + error + "\n");
  };
  refused([](OSAL_Mutex& m) { return m.lockMutex(); }, "lockMutex - Invalid handle");
  refused([](OSAL_Mutex& m) { return m.unlockMutex(); }, "unlockMutex - Invalid handle");
  EXPECT_EQ(mutex.destroyMutex(), 0);
  EXPECT_EQ(mutex.initMutex("name"), 0);
  refused([](OSAL_Mutex& m) { return m.initMutex("name"); },
          "initMutex - Cannot initialize mutex (already initialized)");
  EXPECT_EQ(mutex.destroyMutex(), 0);
  EXPECT_EQ(mutex.initMutex(nullptr), 0);
  EXPECT_EQ(mutex.destroyMutex(), 0);
}

TEST(OSAL_Event, LatchesOneNotificationForOneWaitBetweenInitAndDestroy) {
  Said said("OSAL:5;");
  OSAL_Event event;
  EXPECT_EQ(said(event.notify()), "-1 EL2 OSAL_Event::notify - Invalid handle");
  EXPECT_EQ(said(event.waitForNotification(kLong)),
            "-1 EL2 OSAL_Event::waitForNotification - Invalid handle");
  EXPECT_EQ(said(event.destroyEvent()), "0");
  EXPECT_EQ(said(event.initEvent()), "0 DBG OSAL_Event::initEvent - Event initialized (@)");
  EXPECT_EQ(said(event.initEvent()),
            "-1 EL2 OSAL_Event::initEvent - Cannot initialize event (already initialized)");
  EXPECT_EQ(said(event.notify()), "0 DBG OSAL_Event::notify - Notify (@)");
  EXPECT_EQ(said(event.notify()), "0 DBG OSAL_Event::notify - Already notified (@)");
  EXPECT_EQ(said(event.waitForNotification(kLong)),
            "0 DBG OSAL_Event::waitForNotification - already notified (@)");
  EXPECT_THAT(said(event.waitForNotification(0)),
              testing::MatchesRegex("0 DBG .* - Wait for notification .@. [|] WRN "
                                    "OSAL_Event::waitForNotification - Timed out .@."));
  EXPECT_EQ(event.notify(), 0);  // is forgotten with the event
  said.clear();
  EXPECT_EQ(said(event.destroyEvent()), "0 DBG OSAL_Event::destroyEvent - Event destroyed (@)");
  EXPECT_EQ(event.initEvent(), 0);
  EXPECT_EQ(event.waitForNotification(0), 0);
  EXPECT_TRUE(said().ends_with("Timed out (@)"));
  EXPECT_EQ(event.destroyEvent(), 0);
}

TEST(OSAL_Event, AWaitThatWaitedClearsTheLatch) {
  LogCapture log("OSAL:5;");
  OSAL_Event event;
  ASSERT_EQ(event.initEvent(), 0);
  log.clear();
  std::thread notifier([&] {
    while (log.lines().empty()) std::this_thread::yield();  // the wait has not begun
    EXPECT_EQ(event.notify(), 0);
  });
  EXPECT_EQ(event.waitForNotification(kLong), 0);
  notifier.join();
  EXPECT_THAT(log.lines(), testing::Not(testing::Contains(testing::HasSubstr("Timed out"))));
  EXPECT_EQ(event.waitForNotification(0), 0);
  EXPECT_THAT(log.lines().back(), testing::HasSubstr("Timed out"));
  EXPECT_EQ(event.destroyEvent(), 0);
}

TEST(OSAL_Event, WakesEveryWaiter) {
  Said said("OSAL:3;");
  OSAL_Event event;
  ASSERT_EQ(event.initEvent(), 0);
  std::atomic<int> awake = 0;
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] {
      EXPECT_EQ(event.waitForNotification(kLong), 0);
      ++awake;
    });
  }
  // A waiter that comes after the latch was consumed needs a notification of its own.
  while (awake < 3) {
    event.notify();
    std::this_thread::yield();
  }
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(said(), "");
  EXPECT_EQ(event.destroyEvent(), 0);
}

TEST(OSAL_Semaphore, CountsUpToItsLimitBetweenInitAndDestroy) {
  Said said("OSAL:5;");
  OSAL_Semaphore semaphore;
  const std::string deadline =
      "OSAL_Semaphore::timedwait .ts.tv_sec = [0-9]+ ; ts.tv_nsec = [0-9]+.";
  EXPECT_EQ(said(semaphore.destroySemaphore()), "0");
  EXPECT_EQ(said(semaphore.wait()), "-1 EL2 OSAL_Semaphore::wait - Cannot lock mx (22)");
  EXPECT_THAT(said(semaphore.timedwait(kLong)),
              testing::MatchesRegex("-1 DBG " + deadline +
                                    " [|] EL2 OSAL_Semaphore::timedwait - Cannot lock mx .22. [|] "
                                    "EL2 OSAL_Semaphore::timedwait - Cannot unlock mx .22."));
  EXPECT_EQ(said(semaphore.init(32'768)),
            "-1 EL2 OSAL_Semaphore::init - Cannot initialize semaphore (count too high)");
  EXPECT_EQ(said(semaphore.init(32'766)), "0");
  EXPECT_EQ(said(semaphore.init(0)),
            "-1 EL2 OSAL_Semaphore::init - Cannot initialize semaphore (already initialized)");
  EXPECT_EQ(said(semaphore.post()), "0");
  EXPECT_EQ(said(semaphore.post()), "-1 EL2 OSAL_Semaphore::post - Cannot increment count");
  EXPECT_EQ(said(semaphore.wait()), "0");
  EXPECT_THAT(said(semaphore.timedwait(0)), testing::MatchesRegex("1 DBG " + deadline));
  int taken = 2;
  while (semaphore.trywait() == 1) ++taken;
  EXPECT_EQ(taken, 32'767);
  EXPECT_THAT(said(semaphore.timedwait(1)), testing::MatchesRegex("0 DBG " + deadline));
  EXPECT_EQ(said(semaphore.destroySemaphore()),
            "0 DBG OSAL_Semaphore::destroySemaphore - Semaphore destroyed (@)");
  EXPECT_EQ(semaphore.init(1), 0);  // and is destroyed with the object
}

TEST(OSAL_Semaphore, EveryPostWakesAWaiterOfItsOwn) {
  struct Round {
    OSAL_Semaphore units;
    OSAL_Semaphore done;
  };
  for (int i = 0; i < 200; ++i) {
    const auto round = std::make_shared<Round>();
    ASSERT_EQ(round->units.init(0), 0);
    ASSERT_EQ(round->done.init(0), 0);
    const auto wait = [round] {
      round->units.wait();
      round->done.post();
    };
    std::thread waiters[] = {std::thread(wait), std::thread(wait)};
    if (i % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
    EXPECT_EQ(round->units.post(), 0);
    EXPECT_EQ(round->units.post(), 0);
    const bool awake = round->done.timedwait(kLong) == 1 && round->done.timedwait(kLong) == 1;
    // One that sleeps on is left behind, with the round that it waits in.
    for (std::thread& waiter : waiters) awake ? waiter.join() : waiter.detach();
    ASSERT_TRUE(awake);
    ASSERT_EQ(round->units.trywait(), 0);
  }
}

}  // namespace
