#include "tools/TimeoutTerminator.h"

#include <gtest/gtest.h>

#include "tools/QDSys.h"

namespace {

unsigned long long now = 0;

}  // namespace

// The linker sends the calls of QDSys::timeMs here (see --wrap in CMakeLists.txt).
extern "C" unsigned long long __wrap__ZN5QDSys6timeMsEv() { return now; }

namespace {

constexpr unsigned long long kStart = 1'700'000'000'000;

TEST(TimeoutTerminator, IsTrueFromTheEndOfTheTimeOn) {
  now = kStart;
  EXPECT_TRUE(TimeoutTerminator(0).chkTerminate());
  TimeoutTerminator terminator(1000);
  constexpr struct {
    unsigned long long passed;
    bool over;
  } kCases[] = {{0, false}, {999, false}, {1000, true}, {1001, true}, {1ULL << 40, true}};
  for (const auto& [passed, over] : kCases) {
    now = kStart + passed;
    EXPECT_EQ(terminator.chkTerminate(), over) << passed;
  }
}

TEST(TimeoutTerminator, CountsFromTheReset) {
  now = kStart;
  TimeoutTerminator terminator(1000);
  now = kStart + 2000;
  terminator.reset(500);
  EXPECT_FALSE(terminator.chkTerminate());
  now = kStart + 2499;
  EXPECT_FALSE(terminator.chkTerminate());
  now = kStart + 2500;
  EXPECT_TRUE(terminator.chkTerminate());
}

TEST(TimeoutTerminator, TheLongestTimeNeverEnds) {
  now = kStart;
  TimeoutTerminator terminator(~0ULL);
  now = ~0ULL;
  EXPECT_FALSE(terminator.chkTerminate());
}

}  // namespace
