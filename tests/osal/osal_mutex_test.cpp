#include "osal/osal_mutex.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

std::string errorsOf(int expected, int (OSAL_Mutex::*operation)(), OSAL_Mutex& mutex) {
  testing::internal::CaptureStderr();
  EXPECT_EQ((mutex.*operation)(), expected);
  return testing::internal::GetCapturedStderr();
}

TEST(OSAL_Mutex, ReportsUseBeforeInitialisationOnStandardError) {
  OSAL_Mutex mutex;
  EXPECT_EQ(errorsOf(-1, &OSAL_Mutex::lockMutex, mutex),
            "OSAL_Mutex::lockMutex - Invalid handle\n");
  EXPECT_EQ(errorsOf(-1, &OSAL_Mutex::unlockMutex, mutex),
            "OSAL_Mutex::unlockMutex - Invalid handle\n");
  EXPECT_EQ(errorsOf(0, &OSAL_Mutex::destroyMutex, mutex), "");
}

TEST(OSAL_Mutex, InitialisesOnceUntilDestroyed) {
  OSAL_Mutex mutex;
  ASSERT_EQ(mutex.initMutex("name"), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(mutex.initMutex("name"), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "OSAL_Mutex::initMutex - Cannot initialize mutex (already initialized)\n");
  EXPECT_EQ(mutex.lockMutex(), 0);
  EXPECT_EQ(mutex.unlockMutex(), 0);
  EXPECT_EQ(mutex.destroyMutex(), 0);
  EXPECT_EQ(mutex.initMutex(nullptr), 0);
  EXPECT_EQ(mutex.destroyMutex(), 0);
}

TEST(OSAL_Mutex, Excludes) {
  constexpr int kRounds = 10'000;
  OSAL_Mutex mutex;
  ASSERT_EQ(mutex.initMutex("counter"), 0);
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < kRounds; ++i) {
      mutex.lockMutex();
      ++counter;
      mutex.unlockMutex();
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(counter, 2 * kRounds);
  EXPECT_EQ(mutex.destroyMutex(), 0);
}

}  // namespace
