#include "osal/osal_threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "LogCapture.h"

namespace {

constexpr int kThreads = 8;
constexpr int kUnits = 250;

/// Workers that all log, take turns through one semaphore and tell their end through another, while
/// one event is notified and waited for from all sides.
struct Crowd {
  OSAL_Event event;
  OSAL_Semaphore turn;
  OSAL_Semaphore done;
  int counter = 0;  // guarded by the one unit of `turn`

  void work() {
    for (int i = 0; i < kUnits; ++i) {
      turn.wait();
      ++counter;
      turn.post();
      QDLOG(THRD, INF, "unit");
      if (i % 2 == 0) {
        event.notify();
      } else {
        event.waitForNotification(1);
      }
    }
  }

  static void* entry(void* arg) {
    Crowd& crowd = *static_cast<Crowd*>(arg);
    crowd.work();
    crowd.done.post();
    return nullptr;
  }
};

TEST(OsalThreads, ACrowdLosesNoUnitAndNoRecord) {
  LogCapture log("OSAL:5;THRD:4;");
  Crowd crowd;
  ASSERT_EQ(crowd.event.initEvent(), 0);
  ASSERT_EQ(crowd.turn.init(1), 0);
  ASSERT_EQ(crowd.done.init(0), 0);
  for (int i = 0; i < kThreads; ++i) {
    ASSERT_EQ(osal_launchThread(Crowd::entry, 1U << 20, &crowd, "crowd", OSAL_QOS_DEFAULT), 0);
  }
  for (int i = 0; i < kThreads; ++i) ASSERT_EQ(crowd.done.wait(), 0);
  EXPECT_EQ(crowd.counter, kThreads * kUnits);
  const auto lines = log.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "THRD:INF unit"), kThreads * kUnits);
  EXPECT_EQ(crowd.event.destroyEvent(), 0);
}

}  // namespace
