#include "osal/osal_deadline.h"

#include <gtest/gtest.h>

namespace {

TEST(OsalDeadline, AddsAndCarries) {
  constexpr struct {
    timeval now;
    unsigned int ms;
    timespec expected;
  } kCases[] = {
      {{0, 0}, 0, {0, 0}},
      {{43200, 600'000}, 1500, {43202, 100'000'000}},
      {{10, 999'000}, 0, {10, 999'000'000}},
      {{10, 998'999}, 1, {10, 999'999'000}},
      {{10, 999'000}, 1, {11, 0}},
      {{10, 999'001}, 1, {11, 1'000}},
      {{10, 999'999}, 999, {11, 998'999'000}},
      {{10, 0}, 1000, {11, 0}},
      {{10, 500'000}, 4'294'967'295, {4'294'977, 795'000'000}},
      {{253'402'300'799, 1}, 60'000, {253'402'300'859, 1'000}},
  };
  for (const auto& [now, ms, expected] : kCases) {
    SCOPED_TRACE(testing::Message() << now.tv_sec << "." << now.tv_usec << " + " << ms);
    const auto deadline = osal_deadlineAfter(now, ms);
    ASSERT_TRUE(deadline);
    EXPECT_EQ(deadline->tv_sec, expected.tv_sec);
    EXPECT_EQ(deadline->tv_nsec, expected.tv_nsec);
  }
}

TEST(OsalDeadline, RefusesAnIncoherentClock) {
  EXPECT_FALSE(osal_deadlineAfter({-1, 0}, 1000));
  EXPECT_FALSE(osal_deadlineAfter({0, -1}, 1000));
}

TEST(OsalDeadline, StartsFromTheWallClock) {
  timeval before{};
  timespec deadline{};
  gettimeofday(&before, nullptr);
  EXPECT_EQ(MillisecsToAbsoluteTimespec(3'600'000, &deadline), 0);
  EXPECT_GE(deadline.tv_sec, before.tv_sec + 3600);
  EXPECT_LT(deadline.tv_sec, before.tv_sec + 7200);
}

}  // namespace
