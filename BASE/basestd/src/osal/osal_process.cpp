#include "osal/osal_process.h"

#include <pthread.h>
#include <unistd.h>

#include <cstring>

#if !defined(__APPLE__)
#include <sys/syscall.h>
#endif

int osal_getPid(unsigned int* pid) {
  if (pid != nullptr) *pid = static_cast<unsigned int>(::getpid());
  return 0;
}

int osal_getThreadID(unsigned long long* id) {
  if (id == nullptr) return 0;
#if defined(__APPLE__)
  if (pthread_threadid_np(nullptr, id) == 0) return 0;
  *id = reinterpret_cast<unsigned long long>(pthread_self());
#else
  *id = static_cast<unsigned long long>(::syscall(SYS_gettid));
#endif
  return 0;
}

void osal_setThreadName(const char* name) {
  if (name == nullptr || *name == '\0') return;
#if defined(__APPLE__)
  pthread_setname_np(name);
#else
  char shortName[16] = {};  // the kernel refuses longer names instead of cutting them
  std::strncpy(shortName, name, sizeof shortName - 1);
  pthread_setname_np(pthread_self(), shortName);
#endif
}

int osal_getThreadName(char* buf, std::size_t len) {
  return pthread_getname_np(pthread_self(), buf, len);
}
