#include "logging/QDMutexSilent.h"

QDMutexSilent::QDMutexSilent() : usable_(mutex_.initMutex("QDMutexSilent") == 0) {}

QDMutexSilent::~QDMutexSilent() {
  if (usable_) mutex_.destroyMutex();
}

void QDMutexSilent::lock() {
  if (usable_) mutex_.lockMutex();
}

void QDMutexSilent::unlock() {
  if (usable_) mutex_.unlockMutex();
}

QDMutexSilentUq::QDMutexSilentUq() { QDSingletonMutex::ready = true; }

QDMutexSilentUq::~QDMutexSilentUq() { QDSingletonMutex::ready = false; }

constinit std::atomic<bool> QDSingletonMutex::ready{false};
QDMutexSilentUq QDSingletonMutex::_mutex;
