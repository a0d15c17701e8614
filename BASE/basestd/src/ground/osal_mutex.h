#pragma once

#include <pthread.h>

/// A plain, non-recursive mutex. The logger locks with it, so its failures go to standard error,
/// one line each with the POSIX code in decimal, and never to the log.
///
/// `initMutex` and `destroyMutex` are for the owner alone; `lockMutex` and `unlockMutex` may be
/// called from any thread in between. The destructor does nothing: the owner calls `destroyMutex`.
class OSAL_Mutex {
 public:
  OSAL_Mutex() = default;
  OSAL_Mutex(const OSAL_Mutex&) = delete;
  OSAL_Mutex& operator=(const OSAL_Mutex&) = delete;
  virtual ~OSAL_Mutex() = default;

  /// Makes the mutex usable. `name` is not used. Returns 0, or -1 when it is usable already or the
  /// system refuses.
  int initMutex(const char* name);

  /// Both return 0, or -1 on a mutex that is not initialised or when the system refuses.
  int lockMutex();
  int unlockMutex();

  /// Makes the mutex unusable, also when the system reports a failure (-1). Returns 0 on a mutex
  /// that was not initialised.
  int destroyMutex();

 private:
  pthread_mutex_t mutex_{};
  bool initialised_ = false;
};
