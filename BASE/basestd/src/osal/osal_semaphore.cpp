#include "osal/osal_semaphore.h"

#include <cerrno>

#include "logging/QDLog.h"
#include "osal/osal_deadline.h"

namespace {

constexpr int kMaxCount = 0x7FFF;

}  // namespace

OSAL_Semaphore::~OSAL_Semaphore() {
  if (const int result = destroySemaphore(); result != 0) {
    QDLOG(OSAL, EL2,
          "OSAL_Semaphore::~OSAL_Semaphore - Cannot destroy semaphore (" << result << ")");
  }
}

int OSAL_Semaphore::init(unsigned int count) {
  if (condition_.initialised()) {
    QDLOG(OSAL, EL2, "OSAL_Semaphore::init - Cannot initialize semaphore (already initialized)");
    return -1;
  }
  if (count > kMaxCount) {
    QDLOG(OSAL, EL2, "OSAL_Semaphore::init - Cannot initialize semaphore (count too high)");
    return -1;
  }
  if (condition_.init("init") != 0) return -1;
  count_ = static_cast<int>(count);
  return 0;
}

int OSAL_Semaphore::wait() {
  if (count_ == 0) OSAL_Condition::giveWay();
  OSAL_Condition::Lock lock(condition_, "wait");
  if (!lock) return -1;
  int result = 0;
  while (count_ == 0 && result == 0) {
    if (const int code = condition_.wait(); code != 0) {
      QDLOG(OSAL, EL2, "OSAL_Semaphore::wait - pthread_cond_wait failed (" << code << ")");
      result = -1;
    }
  }
  if (result == 0) --count_;
  return lock.release() == 0 ? result : -1;
}

int OSAL_Semaphore::timedwait(unsigned int ms) {
  timespec deadline{};
  if (MillisecsToAbsoluteTimespec(ms, &deadline) != 0) {
    QDLOG(OSAL, EL2, "OSAL_Semaphore::timedwait - MillisecsToAbsoluteTimespec failed");
    return -1;
  }
  QDLOG(OSAL, DBG,
        "OSAL_Semaphore::timedwait (ts.tv_sec = " << deadline.tv_sec
                                                  << " ; ts.tv_nsec = " << deadline.tv_nsec << ")");
  if (ms > 0 && count_ == 0) OSAL_Condition::giveWay();
  OSAL_Condition::Lock lock(condition_, "timedwait");
  if (!lock) {
    condition_.unlock("timedwait");
    return -1;
  }
  int code = 0;
  while (count_ == 0 && code == 0) code = condition_.waitUntil(deadline);

  int result = 0;
  if (code != 0 && code != ETIMEDOUT) {
    QDLOG(OSAL, EL2, "OSAL_Semaphore::timedwait - pthread_cond_wait failed (" << code << ")");
    result = -1;
  } else if (count_ > 0) {
    --count_;
    result = 1;
  }
  return lock.release() == 0 ? result : -1;
}

int OSAL_Semaphore::trywait() {
  OSAL_Condition::Lock lock(condition_, "trywait");
  if (!lock) return -1;
  const int result = count_ > 0 ? 1 : 0;
  count_ -= result;
  return lock.release() == 0 ? result : -1;
}

int OSAL_Semaphore::post() {
  OSAL_Condition::Lock lock(condition_, "post");
  if (!lock) return -1;
  int result = 0;
  // Every unit wakes a waiter of its own: the one woken for an earlier unit may not have run yet.
  if (const int code = condition_.signal(); code != 0) {
    QDLOG(OSAL, EL2, "OSAL_Semaphore::post - Cannot post(" << code << ")");
    result = -1;
  } else if (count_ == kMaxCount) {
    QDLOG(OSAL, EL2, "OSAL_Semaphore::post - Cannot increment count");
    result = -1;
  } else {
    ++count_;
  }
  return lock.release() == 0 ? result : -1;
}

int OSAL_Semaphore::destroySemaphore() {
  if (!condition_.initialised()) return 0;
  const int result = condition_.destroy("destroySemaphore");
  QDLOG(OSAL, DBG,
        "OSAL_Semaphore::destroySemaphore - Semaphore destroyed (" << condition_.address() << ")");
  return result;
}
