#include "ground/osal_mutex.h"

#include <cstdio>

namespace {

int report(const char* text) {
  std::fprintf(stderr, "OSAL_Mutex::%s\n", text);
  return -1;
}

int report(const char* text, int code) {
  std::fprintf(stderr, "OSAL_Mutex::%s (%d)\n", text, code);
  return -1;
}

}  // namespace

int OSAL_Mutex::initMutex(const char* /*name*/) {
  if (initialised_) return report("initMutex - Cannot initialize mutex (already initialized)");
  if (const int code = pthread_mutex_init(&mutex_, nullptr); code != 0) {
    return report("initMutex - Cannot initialize mutex", code);
  }
  initialised_ = true;
  return 0;
}

int OSAL_Mutex::lockMutex() {
  if (!initialised_) return report("lockMutex - Invalid handle");
  const int code = pthread_mutex_lock(&mutex_);
  return code == 0 ? 0 : report("lockMutex - Cannot lock mutex", code);
}

int OSAL_Mutex::unlockMutex() {
  if (!initialised_) return report("unlockMutex - Invalid handle");
  const int code = pthread_mutex_unlock(&mutex_);
  return code == 0 ? 0 : report("unlockMutex - Cannot unlock mutex", code);
}

int OSAL_Mutex::destroyMutex() {
  if (!initialised_) return 0;
  initialised_ = false;
  const int code = pthread_mutex_destroy(&mutex_);
  return code == 0 ? 0 : report("destroyMutex - Cannot cleanup mutex", code);
}
