#include "tools/QDMutexSilent.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "logging/QDLog.h"

namespace {

TEST(QDMutexSilent, Excludes) {
  constexpr int kRounds = 10'000;
  QDMutexSilent mutex;
  int counter = 0;
  const auto count = [&] {
    for (int i = 0; i < kRounds; ++i) {
      const std::lock_guard guard(mutex);
      ++counter;
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(counter, 2 * kRounds);
}

TEST(QDMutexSilentUq, MakesSingletonsPossibleWhileItExists) {
  EXPECT_TRUE(QDSingletonMutex::ready);
  QDLog* const logger = QDLog::getLogger();
  { const QDMutexSilentUq ended; }
  EXPECT_FALSE(QDSingletonMutex::ready);
  EXPECT_EQ(QDLog::getLogger(), logger) << "an existing logger stays";
  QDLog::destroyLogger();
  EXPECT_EQ(QDLog::getLogger(), nullptr);
  QDLOG(ROOT, NFY, "nobody takes this");

  {
    const QDMutexSilentUq begun;
    EXPECT_TRUE(QDSingletonMutex::ready);
    EXPECT_NE(QDLog::getLogger(), nullptr);
  }
  QDSingletonMutex::ready = true;  // the process's own still exists
}

}  // namespace
