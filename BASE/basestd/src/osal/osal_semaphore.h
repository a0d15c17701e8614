#pragma once

#include <atomic>

#include "osal/osal_condition.h"

/// A counting semaphore with at most 32,767 units.
///
/// `init` and `destroySemaphore` are for the owner alone; the other operations may be called from
/// any thread in between. Failures are logged; on a semaphore that is not initialised every
/// operation but `destroySemaphore` fails.
class OSAL_Semaphore {
 public:
  OSAL_Semaphore() = default;
  OSAL_Semaphore(const OSAL_Semaphore&) = delete;
  OSAL_Semaphore& operator=(const OSAL_Semaphore&) = delete;
  /// Calls `destroySemaphore`.
  ~OSAL_Semaphore();

  /// Makes the semaphore usable, with `count` units. Returns 0, or -1 when it is usable already,
  /// the count is above the limit or the system refuses.
  int init(unsigned int count);

  /// Takes one unit, waiting for it without limit. Returns 0 or -1.
  int wait();

  /// Takes one unit, waiting for it at most `ms` milliseconds of wall-clock time. Returns 1 when it
  /// took one, 0 when the time ran out, or -1.
  int timedwait(unsigned int ms);

  /// Takes one unit without waiting. Returns 1 when it took one, 0 when there was none, or -1.
  int trywait();

  /// Adds one unit. Returns 0, or -1 when the count is at its limit or on failure.
  int post();

  /// Makes the semaphore unusable, also when it fails. Returns the POSIX code of destroying the
  /// condition variable, and 0 on a semaphore that was not initialised.
  int destroySemaphore();

 private:
  std::atomic<int> count_{0};  // written under the mutex
  OSAL_Condition condition_{"OSAL_Semaphore", "mx"};
};
