// What the procedure decides by numbers, and its lock.

#include <gtest/gtest.h>

#include <string>

#include "Updater/procedure/lockFile.h"
#include "Updater/procedure/updateRules.h"

namespace {

TEST(UpdateRules, DecideByNumbers) {
  constexpr unsigned long long kMiB = 1ULL << 20;
  EXPECT_EQ(downloadLimit(100 * kMiB), 200 * kMiB);
  EXPECT_EQ(downloadLimit(10 * kMiB), 74 * kMiB);
  EXPECT_EQ(downloadLimit(~0ULL / 2 + 1), ~0ULL);
  constexpr long long kNow = 1'700'000'000'000;
  EXPECT_TRUE(lockHolds(kNow - 3600000, kNow));
  EXPECT_FALSE(lockHolds(kNow - 3600001, kNow));
}

TEST(LockFile, HoldsBesideASurerOneUnlessNobodyCanHoldIt) {
  constexpr long long kNow = 1'700'000'000'000;
  const std::string dead = std::to_string(kNow - 1);
  EXPECT_TRUE(lockHoldsBeside(kNow - 3600000, "", kNow));
  EXPECT_TRUE(lockHoldsBeside(kNow, dead, kNow));
  EXPECT_FALSE(lockHoldsBeside(kNow - 1, dead, kNow)) << "of a run that died";
  EXPECT_FALSE(lockHoldsBeside(kNow + 1, "", kNow)) << "in the future";
  EXPECT_FALSE(lockHoldsBeside(kNow - 3600001, "", kNow));
  EXPECT_FALSE(lockHoldsBeside(std::nullopt, "", kNow));
}

}  // namespace
