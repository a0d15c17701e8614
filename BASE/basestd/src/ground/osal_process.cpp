#include "ground/osal_process.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#if !defined(__APPLE__)
#include <sys/syscall.h>
#endif

namespace {

struct Ids {
  unsigned int process;
  unsigned long long thread;  // 0 before the system was asked
};

Ids askSystem() {
  const auto process = static_cast<unsigned int>(::getpid());
#if defined(__APPLE__)
  std::uint64_t thread = 0;
  if (pthread_threadid_np(nullptr, &thread) == 0) return {process, thread};
  return {process, reinterpret_cast<unsigned long long>(pthread_self())};
#else
  return {process, static_cast<unsigned long long>(::syscall(SYS_gettid))};
#endif
}

/// The system's answer for this thread, kept: every log record takes both ids, and asking for them
/// costs as much as writing it.
thread_local Ids ids{};

/// The child of a fork has new ids. Where that cannot be noticed, the system is always asked.
const bool forksAreNoticed = pthread_atfork(nullptr, nullptr, [] { ids = {}; }) == 0;

Ids ownIds() {
  if (ids.thread == 0 || !forksAreNoticed) ids = askSystem();
  return ids;
}

}  // namespace

int osal_getPid(unsigned int* pid) {
  if (pid != nullptr) *pid = ownIds().process;
  return 0;
}

int osal_getThreadID(unsigned long long* id) {
  if (id != nullptr) *id = ownIds().thread;
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
