#include "osal/osal_condition.h"

#include <cerrno>

#include "logging/QDLog.h"

namespace {

int initCheckedMutex(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  int code = pthread_mutexattr_init(&attributes);
  if (code != 0) return code;
  code = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  if (code == 0) code = pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return code;
}

}  // namespace

int OSAL_Condition::init(const char* operation) {
  if (const int code = initCheckedMutex(&mutex_); code != 0) {
    return failed(operation, "initialize", "mutex", code);
  }
  if (const int code = pthread_condattr_init(&attributes_); code != 0) {
    pthread_mutex_destroy(&mutex_);
    return failed(operation, "initialize", "condition attribute", code);
  }
  if (const int code = pthread_cond_init(&condition_, &attributes_); code != 0) {
    pthread_condattr_destroy(&attributes_);
    pthread_mutex_destroy(&mutex_);
    return failed(operation, "initialize", "condition", code);
  }
  initialised_ = true;
  return 0;
}

int OSAL_Condition::destroy(const char* operation) {
  initialised_ = false;
  const int result = pthread_cond_destroy(&condition_);
  if (result != 0) failed(operation, "destroy", "condition", result);
  if (const int code = pthread_condattr_destroy(&attributes_); code != 0) {
    failed(operation, "destroy", "condition attribute", code);
  }
  if (const int code = pthread_mutex_destroy(&mutex_); code != 0) {
    failed(operation, "destroy", "mutex", code);
  }
  return result;
}

int OSAL_Condition::lockCode() { return initialised_ ? pthread_mutex_lock(&mutex_) : EINVAL; }

int OSAL_Condition::unlockCode() { return initialised_ ? pthread_mutex_unlock(&mutex_) : EINVAL; }

int OSAL_Condition::lock(const char* operation) {
  const int code = lockCode();
  return code == 0 ? 0 : failed(operation, "lock", mutexWord_, code);
}

int OSAL_Condition::unlock(const char* operation) {
  const int code = unlockCode();
  return code == 0 ? 0 : failed(operation, "unlock", mutexWord_, code);
}

int OSAL_Condition::failed(const char* operation, const char* what, const char* object,
                           int code) const {
  QDLOG(OSAL, EL2,
        className_ << "::" << operation << " - Cannot " << what << ' ' << object << " (" << code
                   << ")");
  return -1;
}

OSAL_Condition::Lock::Lock(OSAL_Condition& condition, const char* operation)
    : condition_(condition), operation_(operation), held_(condition.lock(operation) == 0) {}

OSAL_Condition::Lock::~Lock() {
  if (held_) condition_.unlockCode();
}

int OSAL_Condition::Lock::release() {
  held_ = false;
  return condition_.unlock(operation_);
}

int OSAL_Condition::Lock::unlock() {
  held_ = false;
  return condition_.unlockCode();
}
