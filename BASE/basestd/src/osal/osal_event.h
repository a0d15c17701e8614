#pragma once

#include <atomic>

#include "osal/osal_condition.h"

/// A latched notification that one wait consumes.
///
/// `initEvent` and `destroyEvent` are for the owner alone; the other operations may be called from
/// any thread in between. The destructor does nothing: the owner calls `destroyEvent`. Every
/// operation returns 0, or -1 after logging the failure.
class OSAL_Event {
 public:
  OSAL_Event() = default;
  OSAL_Event(const OSAL_Event&) = delete;
  OSAL_Event& operator=(const OSAL_Event&) = delete;
  virtual ~OSAL_Event() = default;

  /// Makes the event usable, with no notification pending. Fails on a usable event.
  int initEvent();

  /// Sets the latch and wakes every waiter; does nothing when the latch is set already.
  int notify();

  /// Waits at most `ms` milliseconds of wall-clock time for a notification and clears the latch.
  ///
  /// Returns 0 for a notification, a time-out (which is logged) and a wake-up without a reason: a
  /// caller for which these differ checks a condition of its own.
  int waitForNotification(unsigned int ms);

  /// Makes the event unusable, also when it fails. Returns the POSIX code of destroying the
  /// condition variable, and 0 on an event that was not initialised.
  int destroyEvent();

 private:
  std::atomic<bool> notified_{false};  // written under the mutex
  OSAL_Condition condition_{"OSAL_Event", "mutex"};
};
