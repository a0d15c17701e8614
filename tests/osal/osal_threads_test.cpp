#include "osal/osal_threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "Said.h"
#include "SystemHooks.h"
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

TEST(OsalThread, StartsWithAnyStackAndTellsItsClass) {
  const auto post = [](void* done) -> void* {
    static_cast<OSAL_Semaphore*>(done)->post();
    return nullptr;
  };
  int qos = 0;
  for (const std::string name : {"unspecified", "efficiency", "performance", "default", ""}) {
    OSAL_Semaphore done;
    done.init(0);
    Said said("OSAL:5;");
    const unsigned int size = qos == 0 ? 0 : (1U << 20) + 1;
#if defined(__linux__)
    SystemHooks hooks;
#endif
    EXPECT_EQ(said(osal_launchThread(post, size, &done, "scan", static_cast<OSAL_QOS>(qos++))),
              "0 DBG Set QoS to " + name + " for thread \"scan\"");
    done.wait();
#if defined(__linux__)
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    EXPECT_EQ(hooks.stackSize, size == 0 ? 0 : (1U << 20) + page) << "whole pages";
#endif
  }
}

TEST(OSAL_Event, LatchesOneNotificationForOneWaitBetweenInitAndDestroy) {
  Said said("OSAL:5;");
  OSAL_Event event;
  EXPECT_EQ(said(event.notify()), "-1 EL2 OSAL_Event::notify - Invalid handle");
  EXPECT_EQ(event.waitForNotification(kLong), -1);
  EXPECT_EQ(event.initEvent(), 0);
  EXPECT_EQ(event.initEvent(), -1);
  said.clear();
  EXPECT_EQ(said(event.notify()), "0 DBG OSAL_Event::notify - Notify (@)");
  EXPECT_EQ(said(event.notify()), "0 DBG OSAL_Event::notify - Already notified (@)");
  EXPECT_EQ(said(event.waitForNotification(kLong)),
            "0 DBG OSAL_Event::waitForNotification - already notified (@)");
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(said(event.waitForNotification(0))
                    .ends_with(" | WRN OSAL_Event::waitForNotification - Timed out (@)"));
    EXPECT_EQ(event.notify(), 0);  // is forgotten with the event
    EXPECT_EQ(event.destroyEvent(), 0);
    EXPECT_EQ(event.destroyEvent(), 0);
    EXPECT_EQ(event.initEvent(), 0);
  }
  EXPECT_EQ(event.destroyEvent(), 0);
}

TEST(OSAL_Event, WakesEveryWaiterAndIsCleared) {
  LogCapture log("OSAL:5;");
  OSAL_Event event;
  ASSERT_EQ(event.initEvent(), 0);
  log.clear();
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] { EXPECT_EQ(event.waitForNotification(kLong), 0); });
  }
  // Each says so before it waits, with the lock held that the notification takes.
  while (log.lines().size() < 3) std::this_thread::yield();
  EXPECT_EQ(event.notify(), 0);
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_THAT(log.lines(), testing::Not(testing::Contains(testing::HasSubstr("Timed out"))));
  EXPECT_EQ(event.waitForNotification(0), 0);
  EXPECT_THAT(log.lines().back(), testing::HasSubstr("Timed out"));
  EXPECT_EQ(event.destroyEvent(), 0);
}

TEST(OSAL_Semaphore, CountsUpToItsLimitBetweenInitAndDestroy) {
  Said said("OSAL:3;");
  OSAL_Semaphore semaphore;
  EXPECT_EQ(said(semaphore.timedwait(kLong)),
            "-1 EL2 OSAL_Semaphore::timedwait - Cannot lock mx (22) | "
            "EL2 OSAL_Semaphore::timedwait - Cannot unlock mx (22)");
  EXPECT_EQ(semaphore.init(32'768), -1);
  EXPECT_EQ(semaphore.init(32'766), 0);
  EXPECT_EQ(semaphore.init(0), -1);
  EXPECT_EQ(semaphore.post(), 0);
  EXPECT_EQ(semaphore.post(), -1);
  EXPECT_EQ(said(),
            "EL2 OSAL_Semaphore::init - Cannot initialize semaphore (count too high) | "
            "EL2 OSAL_Semaphore::init - Cannot initialize semaphore (already initialized) | "
            "EL2 OSAL_Semaphore::post - Cannot increment count");
  EXPECT_EQ(semaphore.wait(), 0);
  EXPECT_EQ(semaphore.timedwait(0), 1);
  int taken = 2;
  while (semaphore.trywait() == 1) ++taken;
  EXPECT_EQ(taken, 32'767);
  EXPECT_EQ(semaphore.timedwait(1), 0);
  EXPECT_EQ(semaphore.destroySemaphore(), 0);
  EXPECT_EQ(semaphore.init(1), 0);  // and is destroyed with the object
}

TEST(OSAL_Semaphore, EveryPostWakesAWaiterOfItsOwn) {
  struct Round {
    OSAL_Semaphore units;
    OSAL_Semaphore done;
  };
  for (int i = 0; i < 200; ++i) {
    const auto round = std::make_shared<Round>();
    ASSERT_EQ(round->units.init(0) + round->done.init(0), 0);
    const auto wait = [round] {
      round->units.wait();
      round->done.post();
    };
    std::thread waiters[] = {std::thread(wait), std::thread(wait)};
    if (i % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
    EXPECT_EQ(round->units.post() + round->units.post(), 0);
    const bool awake = round->done.timedwait(kLong) == 1 && round->done.timedwait(kLong) == 1;
    // One that sleeps on is left behind, with the round that it waits in.
    for (std::thread& waiter : waiters) awake ? waiter.join() : waiter.detach();
    ASSERT_TRUE(awake);
    ASSERT_EQ(round->units.trywait(), 0);
  }
}

}  // namespace
