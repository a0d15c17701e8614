#pragma once

#include <atomic>

#include "ground/QDMarkers.h"
#include "ground/osal_mutex.h"

/// What can be locked and unlocked; satisfies the standard's BasicLockable.
class QDLockIntf : public qd_interface_base_qualifier {
 public:
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

/// A mutex that never reports and never fails to its caller. When it could not be initialised it
/// locks nothing; its OSAL_Mutex has told standard error.
class QDMutexSilent : public QDLockIntf, private qd_no_duplic {
 public:
  QDMutexSilent();
  ~QDMutexSilent() override;
  void lock() override;
  void unlock() override;

 private:
  OSAL_Mutex mutex_;
  bool usable_;
};

/// The variant behind the process-wide singleton mutex: `QDSingletonMutex::ready` is true exactly
/// as long as it exists.
class QDMutexSilentUq : public QDMutexSilent {
 public:
  QDMutexSilentUq();
  ~QDMutexSilentUq() override;
};

/// Guards the creation of process-wide singletons, from static initialisation to process exit.
struct QDSingletonMutex {
  static std::atomic<bool> ready;
  static QDMutexSilentUq _mutex;
};
