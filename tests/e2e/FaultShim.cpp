// Preloaded into the program, it lets one thing go wrong, counted from the start of main:
//   QD_FAULT=memory:N:COUNT        COUNT allocations fail, from the N-th on
//   QD_FAULT=kernel:VERSION        the system's version, as uname has it, is VERSION
//   QD_FAULT=clock:SECONDS         the system's clock is so much ahead, or behind with a minus
//   QD_FAULT=stop:TEXT             it stops, as by SIGSTOP, behind the first write with the text
//   QD_FAULT=count                 standard error says at the end how many allocations there were
// It takes itself out of the environment of the program's own commands.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

namespace {

bool armed = false;
long allocations = 0, memoryFailsAt = 0, memoryFailures = 0;
char kernelVersion[65] = {}, stopsBehind[65] = {};
std::time_t clockAhead = 0;

void arm() {
  const char* const fault = std::getenv("QD_FAULT");
  if (fault == nullptr) return;
  std::sscanf(fault, "memory:%ld:%ld", &memoryFailsAt, &memoryFailures);
  std::sscanf(fault, "clock:%ld", &clockAhead);
  std::sscanf(fault, "kernel:%64s", kernelVersion);
  std::sscanf(fault, "stop:%64[^\n]", stopsBehind);
  if (std::strcmp(fault, "count") == 0) {
    std::atexit([] { std::fprintf(stderr, "%ld\n", allocations); });
  }
  ::unsetenv("LD_PRELOAD");
  ::unsetenv("QD_FAULT");
  armed = true;
}

}  // namespace

extern "C" {

int setpgrp() {  // what main does first
  arm();
  return ::setpgid(0, 0);
}

int uname(utsname* system) {
  const int result = reinterpret_cast<int (*)(utsname*)>(::dlsym(RTLD_NEXT, "uname"))(system);
  if (*kernelVersion != '\0') std::strcpy(system->version, kernelVersion);
  return result;
}

ssize_t write(int fd, const void* bytes, std::size_t size) {
  const ssize_t written = ::syscall(SYS_write, fd, bytes, size);
  if (*stopsBehind != '\0' &&
      ::memmem(bytes, size, stopsBehind, std::strlen(stopsBehind)) != nullptr) {
    *stopsBehind = '\0';
    std::raise(SIGSTOP);
  }
  return written;
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const int result = static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
  if (result == 0 && clock == CLOCK_REALTIME) now->tv_sec += clockAhead;
  return result;
}

std::time_t time(std::time_t* where) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (where != nullptr) *where = now.tv_sec;
  return now.tv_sec;
}

}  // extern "C"

#if !defined(__SANITIZE_ADDRESS__)  // which has an allocator of its own
static bool memoryFails() {
  if (!armed || ++allocations < memoryFailsAt || allocations >= memoryFailsAt + memoryFailures) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

extern "C" {
void* malloc(std::size_t size) { return memoryFails() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) {
  return memoryFails() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  return memoryFails() ? nullptr : __libc_realloc(block, size);
}
}  // extern "C"
#endif
