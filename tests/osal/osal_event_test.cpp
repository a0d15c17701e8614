#include "osal/osal_event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "MaskAddresses.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr unsigned int kLong = 20'000;  // ms, far beyond what any test waits

TEST(OSAL_Event, IsUsableBetweenInitAndDestroy) {
  LogCapture log(QDLOG_OSAL, 5);
  OSAL_Event event;
  EXPECT_EQ(event.notify(), -1);
  EXPECT_EQ(event.waitForNotification(kLong), -1);
  EXPECT_EQ(event.destroyEvent(), 0);
  EXPECT_EQ(event.initEvent(), 0);
  EXPECT_EQ(event.initEvent(), -1);
  EXPECT_EQ(event.destroyEvent(), 0);
  EXPECT_EQ(event.notify(), -1);
  EXPECT_THAT(
      maskAddresses(log.lines()),
      ElementsAre("OSAL:EL2 OSAL_Event::notify - Invalid handle",
                  "OSAL:EL2 OSAL_Event::waitForNotification - Invalid handle",
                  "OSAL:DBG OSAL_Event::initEvent - Event initialized (@)",
                  "OSAL:EL2 OSAL_Event::initEvent - Cannot initialize event (already initialized)",
                  "OSAL:DBG OSAL_Event::destroyEvent - Event destroyed (@)",
                  "OSAL:EL2 OSAL_Event::notify - Invalid handle"));
}

class OSAL_EventTest : public testing::Test {
 protected:
  OSAL_EventTest() { event.initEvent(); }
  ~OSAL_EventTest() override { event.destroyEvent(); }
  OSAL_Event event;
};

TEST_F(OSAL_EventTest, LatchesOneNotificationForOneWait) {
  LogCapture log(QDLOG_OSAL, 5);
  EXPECT_EQ(event.notify(), 0);
  EXPECT_EQ(event.notify(), 0);
  EXPECT_EQ(event.waitForNotification(kLong), 0);
  EXPECT_EQ(event.waitForNotification(0), 0);
  EXPECT_THAT(
      maskAddresses(log.lines()),
      ElementsAre("OSAL:DBG OSAL_Event::notify - Notify (@)",
                  "OSAL:DBG OSAL_Event::notify - Already notified (@)",
                  "OSAL:DBG OSAL_Event::waitForNotification - already notified (@)",
                  MatchesRegex(
                      "OSAL:DBG OSAL_Event::waitForNotification \\(ts.tv_sec = [0-9]+ ; ts.tv_nsec "
                      "= [0-9]+\\) - Wait for notification \\(@\\)"),
                  "OSAL:WRN OSAL_Event::waitForNotification - Timed out (@)"));
}

TEST_F(OSAL_EventTest, AnInitialisedEventForgetsAnOldNotification) {
  EXPECT_EQ(event.notify(), 0);
  EXPECT_EQ(event.destroyEvent(), 0);
  EXPECT_EQ(event.initEvent(), 0);
  LogCapture log(QDLOG_OSAL, 3);
  EXPECT_EQ(event.waitForNotification(0), 0);
  EXPECT_THAT(maskAddresses(log.lines()),
              ElementsAre("OSAL:WRN OSAL_Event::waitForNotification - Timed out (@)"));
}

TEST_F(OSAL_EventTest, WakesEveryWaiter) {
  LogCapture log(QDLOG_OSAL, 3);
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
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
