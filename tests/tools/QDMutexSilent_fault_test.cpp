#include <gtest/gtest.h>

#include <cerrno>

#include "PosixFaults.h"
#include "tools/QDMutexSilent.h"

namespace {

TEST(QDMutexSilentFaults, WithoutItsMutexItLocksNothingAndSaysNothingMore) {
  testing::internal::CaptureStderr();
  {
    const PosixFault fault("pthread_mutex_init", EAGAIN);
    QDMutexSilent mutex;
    mutex.lock();
    mutex.lock();
    mutex.unlock();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "OSAL_Mutex::initMutex - Cannot initialize mutex (11)\n");
}

}  // namespace
