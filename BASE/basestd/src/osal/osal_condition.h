#pragma once

#include <pthread.h>
#include <sched.h>

#include <ctime>

#include "ground/QDMarkers.h"

/// A mutex and a condition variable with one life: what OSAL_Event and OSAL_Semaphore share.
///
/// Failures that the operations log have the form "<class>::<operation> - Cannot lock <mutex>
/// (<POSIX code>)". The mutex checks its owner: unlocking it from elsewhere is an error and does no
/// harm. The destructor does nothing: the owner calls `destroy`.
class OSAL_Condition : private qd_no_duplic {
 public:
  /// Holds the mutex from a successful construction to `release`, `unlock` or its end.
  class Lock : private qd_no_duplic {
   public:
    Lock(OSAL_Condition& condition, const char* operation);
    ~Lock();
    /// False when the mutex could not be locked; the failure is logged.
    [[nodiscard]] explicit operator bool() const { return held_; }
    /// Unlocks. Returns 0 or -1 after logging the failure.
    int release();
    /// Unlocks. Returns 0 or the POSIX code, and logs nothing.
    int unlock();

   private:
    OSAL_Condition& condition_;
    const char* operation_;
    bool held_;
  };

  /// `className` and `mutexWord` are what messages call the object and its mutex.
  OSAL_Condition(const char* className, const char* mutexWord)
      : className_(className), mutexWord_(mutexWord) {}

  /// Makes the object usable. Returns 0, or -1 after logging what the system refused; then nothing
  /// of it is left behind.
  int init(const char* operation);
  [[nodiscard]] bool initialised() const { return initialised_; }

  /// Makes the object unusable, also when the system reports failures, each of which is
  /// logged. Returns the condition variable's result: 0 or the POSIX code.
  int destroy(const char* operation);

  /// Both return 0, or -1 after logging the failure (EINVAL when it is not initialised).
  int lock(const char* operation);
  int unlock(const char* operation);

  /// Lets other threads run. To be called without the mutex, before locking it in order to wait:
  /// the thread that will signal often needs no more time than this, and a wait that is over before
  /// it begins costs neither thread a sleep and a wake-up.
  static void giveWay() { ::sched_yield(); }

  /// Both wait once, with the mutex held, and may wake up for no reason. They return the POSIX code
  /// (0, or ETIMEDOUT after the wall-clock `deadline`).
  int wait() { return pthread_cond_wait(&condition_, &mutex_); }
  int waitUntil(const timespec& deadline) {
    return pthread_cond_timedwait(&condition_, &mutex_, &deadline);
  }

  /// Wake one waiter, or all. They return the POSIX code.
  int signal() { return pthread_cond_signal(&condition_); }
  int broadcast() { return pthread_cond_broadcast(&condition_); }

  /// The mutex's address, by which messages name the object.
  [[nodiscard]] const void* address() const { return &mutex_; }

 private:
  int lockCode();
  int unlockCode();
  int failed(const char* operation, const char* what, const char* object, int code) const;

  const char* className_;
  const char* mutexWord_;
  pthread_mutex_t mutex_{};
  pthread_condattr_t attributes_{};
  pthread_cond_t condition_{};
  bool initialised_ = false;
};
