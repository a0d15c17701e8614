#include "osal/osal_semaphore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "MaskAddresses.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

constexpr unsigned int kLong = 20'000;  // ms, far beyond what any test waits

TEST(OSAL_Semaphore, IsUsableBetweenInitAndDestroy) {
  LogCapture log(QDLOG_OSAL, 5);
  {
    OSAL_Semaphore semaphore;
    EXPECT_EQ(semaphore.destroySemaphore(), 0);
    EXPECT_EQ(semaphore.init(1), 0);
    EXPECT_EQ(semaphore.init(2), -1);
    EXPECT_EQ(semaphore.wait(), 0);
    EXPECT_EQ(semaphore.trywait(), 0);
  }
  EXPECT_THAT(maskAddresses(log.lines()),
              ElementsAre("OSAL:EL2 OSAL_Semaphore::init - Cannot initialize semaphore (already "
                          "initialized)",
                          "OSAL:DBG OSAL_Semaphore::destroySemaphore - Semaphore destroyed (@)"));
}

TEST(OSAL_Semaphore, RefusesUseBeforeInitialisation) {
  LogCapture log(QDLOG_OSAL, 3);
  OSAL_Semaphore semaphore;
  EXPECT_EQ(semaphore.wait(), -1);
  EXPECT_EQ(semaphore.trywait(), -1);
  EXPECT_EQ(semaphore.timedwait(kLong), -1);
  EXPECT_EQ(semaphore.post(), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:EL2 OSAL_Semaphore::wait - Cannot lock mx (22)",
                                       "OSAL:EL2 OSAL_Semaphore::trywait - Cannot lock mx (22)",
                                       "OSAL:EL2 OSAL_Semaphore::timedwait - Cannot lock mx (22)",
                                       "OSAL:EL2 OSAL_Semaphore::timedwait - Cannot unlock mx (22)",
                                       "OSAL:EL2 OSAL_Semaphore::post - Cannot lock mx (22)"));
}

TEST(OSAL_Semaphore, CountsUpToItsLimit) {
  LogCapture log(QDLOG_OSAL, 3);
  OSAL_Semaphore semaphore;
  EXPECT_EQ(semaphore.init(32'768), -1);
  EXPECT_EQ(semaphore.init(0xFFFFFFFF), -1);
  ASSERT_EQ(semaphore.init(32'766), 0);
  EXPECT_EQ(semaphore.post(), 0);
  EXPECT_EQ(semaphore.post(), -1);
  int taken = 0;
  while (semaphore.trywait() == 1) ++taken;
  EXPECT_EQ(taken, 32'767);

  ASSERT_EQ(semaphore.destroySemaphore(), 0);
  ASSERT_EQ(semaphore.init(32'767), 0);
  EXPECT_EQ(semaphore.post(), -1);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("OSAL:EL2 OSAL_Semaphore::init - Cannot initialize semaphore (count too high)",
                  "OSAL:EL2 OSAL_Semaphore::init - Cannot initialize semaphore (count too high)",
                  "OSAL:EL2 OSAL_Semaphore::post - Cannot increment count",
                  "OSAL:EL2 OSAL_Semaphore::post - Cannot increment count"));
}

TEST(OSAL_Semaphore, TimedWaitTellsAUnitFromATimeOut) {
  LogCapture log(QDLOG_OSAL, 5);
  OSAL_Semaphore semaphore;
  ASSERT_EQ(semaphore.init(1), 0);
  EXPECT_EQ(semaphore.timedwait(0), 1);
  EXPECT_EQ(semaphore.timedwait(0), 0);
  EXPECT_EQ(semaphore.timedwait(1), 0);
  const auto deadline = MatchesRegex(
      "OSAL:DBG OSAL_Semaphore::timedwait \\(ts.tv_sec = [0-9]+ ; ts.tv_nsec = [0-9]+\\)");
  EXPECT_THAT(log.lines(), ElementsAre(deadline, deadline, deadline));
}

TEST(OSAL_Semaphore, EveryPostWakesAWaiterOfItsOwn) {
  struct Round {
    OSAL_Semaphore units;
    OSAL_Semaphore done;
  };
  for (int i = 0; i < 200; ++i) {
    const auto round = std::make_shared<Round>();  // outlives this test where a waiter sleeps on
    ASSERT_EQ(round->units.init(0), 0);
    ASSERT_EQ(round->done.init(0), 0);
    for (int waiter = 0; waiter < 2; ++waiter) {
      std::thread([round] {
        round->units.wait();
        round->done.post();
      }).detach();
    }
    if (i % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
    EXPECT_EQ(round->units.post(), 0);
    EXPECT_EQ(round->units.post(), 0);
    ASSERT_EQ(round->done.timedwait(kLong), 1);
    ASSERT_EQ(round->done.timedwait(kLong), 1);
    ASSERT_EQ(round->units.trywait(), 0);
  }
}

TEST(OSAL_Semaphore, WaitBlocksUntilThereIsAUnit) {
  OSAL_Semaphore semaphore;
  OSAL_Semaphore answer;
  ASSERT_EQ(semaphore.init(0), 0);
  ASSERT_EQ(answer.init(0), 0);
  std::thread waiter([&] {
    EXPECT_EQ(semaphore.wait(), 0);
    EXPECT_EQ(answer.post(), 0);
  });
  EXPECT_EQ(answer.trywait(), 0);
  EXPECT_EQ(semaphore.post(), 0);
  EXPECT_EQ(answer.wait(), 0);
  waiter.join();
}

}  // namespace
