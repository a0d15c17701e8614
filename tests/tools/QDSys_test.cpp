#include "tools/QDSys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "FakePauses.h"
#include "LogCapture.h"
#include "PosixFaults.h"
#include "Refusal.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ExitedWithCode;

/// Lets so many slices pass.
class StopAfter : public QDTermIntf {
 public:
  explicit StopAfter(int slices) : left_(slices) {}
  bool chkTerminate() override { return left_-- <= 0; }

 private:
  int left_;
};

TEST(QDSysPauses, AreSlicedBySeconds) {
  const FakePauses pauses;
  QDSys::sleepMs(2500, nullptr, "why");
  QDSys::sleepMs(1000, nullptr, "why");
  QDSys::sleepMs(1001, nullptr, "why");
  QDSys::sleepMs(0, nullptr, "why");
  EXPECT_THAT(pauses.ms(), ElementsAre(1000, 1000, 500, 1000, 1000, 1));
}

TEST(QDSysPauses, SayWhatTheyWaitFor) {
  const LogCapture log("IDLE:9;");
  const FakePauses pauses;
  QDSys::sleep(2, nullptr, "why");
  EXPECT_THAT(log.lines(),
              ElementsAre("IDLE:INF sleep 2 s : \"why\"", "IDLE:INF sleep 1000 ms : \"why\"",
                          "IDLE:INF sleep 1000 ms : \"why\""));
  EXPECT_THAT(pauses.ms(), ElementsAre(1000, 1000));
}

TEST(QDSysPauses, EndWhenTerminationIsRequested) {
  const std::string interrupted =
      "IDLE:DBG Sleep interrupted due to requested termination : \"why\"";
  LogCapture log("IDLE:9;");
  {
    const FakePauses pauses;
    StopAfter never(0);
    QDSys::sleepMs(2500, &never, "why");
    EXPECT_THAT(pauses.ms(), ElementsAre());
    EXPECT_THAT(log.lines(), ElementsAre("IDLE:INF sleep 2500 ms : \"why\"", interrupted));
  }
  {
    const FakePauses pauses;
    StopAfter two(2);
    QDSys::sleepMs(2500, &two, "why");
    EXPECT_THAT(pauses.ms(), ElementsAre(1000, 1000));
  }
  log.clear();
  {
    const FakePauses pauses;
    StopAfter one(1);
    QDSys::sleep(3, &one, "why");
    EXPECT_THAT(pauses.ms(), ElementsAre(1000));
    EXPECT_THAT(log.lines(), ElementsAre("IDLE:INF sleep 3 s : \"why\"",
                                         "IDLE:INF sleep 1000 ms : \"why\"", interrupted));
  }
}

TEST(QDSysPauses, EndWhenTheSystemCannotPause) {
  const LogCapture log("IDLE:3;");
  const FakePauses pauses(1);
  QDSys::sleepMs(2500, nullptr, "why");
  EXPECT_THAT(pauses.ms(), ElementsAre(1000));
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:EL2 Cannot sleep ! (22)", "IDLE:EL2 Cannot sleep 2500 ms"));
}

TEST(QDSysTime, StartsFromTheClockAndNeverRunsBackwards) {
  const unsigned long long first = QDSys::timeMs();
  const auto clock = std::chrono::system_clock::now().time_since_epoch();
  const auto clockMs = std::chrono::duration_cast<std::chrono::milliseconds>(clock).count();
  EXPECT_NEAR(static_cast<double>(first), static_cast<double>(clockMs), 3'600'000);
  const FakeClock longAgo(5, 0);
  EXPECT_GE(QDSys::timeMs(), first);
}

TEST(QDSysTime, IsRefusedWithoutAClockAndAskedForAgain) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // nobody has asked for the time in there
  EXPECT_EXIT(
      {
        std::string message;
        {
          const FakeClock none(-1, 0);
          message = refusal([] { QDSys::timeMs(); });
        }
        const bool recovers = QDSys::timeMs() > 0;
        std::exit(message == refused("timeMs: Cannot get time in ms") && recovers ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

TEST(QDSysIdentity, CountsOnwards) {
  const unsigned long long first = QDSys::getWeakSeqID();
  EXPECT_EQ(QDSys::getWeakSeqID(), first + 1);
  EXPECT_EQ(QDSys::getWeakSeqID(), first + 2);
}

TEST(QDSysExit, EndsWithItsStatus) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(QDSys::exitNoErr(), ExitedWithCode(0), "");
  EXPECT_EXIT(QDSys::exitErr(5), ExitedWithCode(5), "");
  EXPECT_EXIT(QDSys::exitRLDB(), ExitedWithCode(97), "");
}

}  // namespace
