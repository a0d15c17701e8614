#include "osal/osal_event.h"

#include <cerrno>

#include "logging/QDLog.h"
#include "osal/osal_deadline.h"

int OSAL_Event::initEvent() {
  if (condition_.initialised()) {
    QDLOG(OSAL, EL2, "OSAL_Event::initEvent - Cannot initialize event (already initialized)");
    return -1;
  }
  if (condition_.init("initEvent") != 0) return -1;
  notified_ = false;
  QDLOG(OSAL, DBG, "OSAL_Event::initEvent - Event initialized (" << condition_.address() << ")");
  return 0;
}

int OSAL_Event::notify() {
  if (!condition_.initialised()) {
    QDLOG(OSAL, EL2, "OSAL_Event::notify - Invalid handle");
    return -1;
  }
  OSAL_Condition::Lock lock(condition_, "notify");
  if (!lock) return -1;
  if (notified_) {
    QDLOG(OSAL, DBG, "OSAL_Event::notify - Already notified (" << condition_.address() << ")");
    return lock.release();
  }
  QDLOG(OSAL, DBG, "OSAL_Event::notify - Notify (" << condition_.address() << ")");
  if (const int code = condition_.broadcast(); code != 0) {
    QDLOG(OSAL, EL2, "OSAL_Event::notify - Cannot notify (" << code << ")");
    lock.release();
    return -1;
  }
  notified_ = true;
  return lock.release();
}

int OSAL_Event::waitForNotification(unsigned int ms) {
  if (!condition_.initialised()) {
    QDLOG(OSAL, EL2, "OSAL_Event::waitForNotification - Invalid handle");
    return -1;
  }
  if (ms > 0 && !notified_) OSAL_Condition::giveWay();
  OSAL_Condition::Lock lock(condition_, "waitForNotification");
  if (!lock) return -1;
  if (notified_) {
    notified_ = false;
    QDLOG(OSAL, DBG,
          "OSAL_Event::waitForNotification - already notified (" << condition_.address() << ")");
    return lock.release();
  }

  timespec deadline{};
  if (MillisecsToAbsoluteTimespec(ms, &deadline) != 0) {
    if (lock.unlock() != 0) {
      QDLOG(OSAL, EL2, "OSAL_Event::waitForNotification - Cannot unlock mutex");
    }
    return -1;
  }
  QDLOG(OSAL, DBG,
        "OSAL_Event::waitForNotification (ts.tv_sec = "
            << deadline.tv_sec << " ; ts.tv_nsec = " << deadline.tv_nsec
            << ") - Wait for notification (" << condition_.address() << ")");
  const int code = condition_.waitUntil(deadline);
  notified_ = false;
  if (lock.release() != 0) return -1;

  if (code == ETIMEDOUT) {
    QDLOG(OSAL, WRN,
          "OSAL_Event::waitForNotification - Timed out (" << condition_.address() << ")");
  } else if (code != 0) {
    QDLOG(OSAL, EL2,
          "OSAL_Event::waitForNotification - Cannot wait for notification (" << code << ")");
    return -1;
  }
  return 0;
}

int OSAL_Event::destroyEvent() {
  if (!condition_.initialised()) return 0;
  const int result = condition_.destroy("destroyEvent");
  QDLOG(OSAL, DBG, "OSAL_Event::destroyEvent - Event destroyed (" << condition_.address() << ")");
  return result;
}
