#pragma once

#include <atomic>

#include "ground/QDMarkers.h"
#include "ground/osal_mutex.h"

/// An object that can be locked and unlocked; satisfies the standard's BasicLockable.
class QDLockIntf : public qd_interface_base_qualifier {
 public:
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

/// A mutex whose operations report nothing and cannot fail. When it could not be initialised, which
/// its OSAL_Mutex reports on standard error, it locks nothing.
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
