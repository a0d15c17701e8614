#include "fetch/retry.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(PauseAfter, GrowsToAMinuteAndNeverPassesTheDeadline) {
  const std::optional<milliseconds> none;
  const struct {
    unsigned int failures;
    std::optional<seconds> wanted;
    double random;
    milliseconds left;
    std::optional<milliseconds> expected;
  } kCases[] = {
      {1, {}, 0, hours(1), milliseconds(500)},
      {1, {}, 1, hours(1), milliseconds(1000)},
      {2, {}, 0, hours(1), milliseconds(1000)},
      {7, {}, 1, hours(1), milliseconds(64000)},
      {4000000000, {}, 1, hours(1), milliseconds(64000)},
      {1, seconds(10), 0, hours(1), milliseconds(10000)},
      {1, seconds(10), 1, hours(1), milliseconds(11000)},
      {7, seconds(10), 1, hours(1), milliseconds(64000)},  // never sooner than without it
      {1, {}, 0, milliseconds(501), milliseconds(500)},
      {1, {}, 0, milliseconds(500), none},
      {1, seconds(10), 0, seconds(10), none},
      {1, {}, 0, milliseconds(-1), none},
  };
  for (const auto& [failures, wanted, random, left, expected] : kCases) {
    SCOPED_TRACE(failures);
    EXPECT_EQ(fetch::pauseAfter(failures, wanted, random, left), expected);
  }
}

TEST(MayGoOn, HasHalfOfTheTimeAndMoreWhereItIsFastEnough) {
  const auto mayGoOn = [](int taken, int left, std::uint64_t come, std::uint64_t missing) {
    return fetch::mayGoOn(seconds(taken), seconds(left), come, missing);
  };
  EXPECT_TRUE(mayGoOn(60, 60, 0, 100));
  EXPECT_FALSE(mayGoOn(61, 60, 0, 100));
  EXPECT_TRUE(mayGoOn(90, 30, 75, 25));
  EXPECT_FALSE(mayGoOn(90, 30, 74, 26));
  EXPECT_FALSE(mayGoOn(90, -1, 99, 1));
}

TEST(IsTransient, TellsWhatMayPassFromWhatStays) {
  for (const long status : {408L, 429L, 500L, 503L, 599L}) {
    EXPECT_TRUE(fetch::isTransient({.status = status})) << status;
  }
  for (const long status : {200L, 206L, 301L, 401L, 404L, 416L}) {
    EXPECT_FALSE(fetch::isTransient({.status = status})) << status;
  }
  EXPECT_TRUE(fetch::isTransient({.status = 200, .error = CURLE_PARTIAL_FILE}));
  EXPECT_FALSE(fetch::isTransient({.error = CURLE_PEER_FAILED_VERIFICATION}));
  EXPECT_FALSE(fetch::isTransient({.error = CURLE_ABORTED_BY_CALLBACK}));
}

}  // namespace
