// Preloaded into the program, it lets one thing go wrong, counted from the start of main:
//   QD_FAULT=curl:N:CODE           the N-th call of libcurl does nothing but fail, with CODE
//   QD_FAULT=memory:N:COUNT        COUNT allocations fail, from the N-th on
//   QD_FAULT=clock:START:N:JUMP    the clock is START seconds off, from its N-th reading on JUMP
//   QD_FAULT=kernel:VERSION        the system's version, as uname has it, is VERSION
//   QD_FAULT=count                 standard error says at the end how many calls and allocations
//                                  there were
// It takes itself out of the environment of the program's own commands.
#include <curl/curl.h>
#include <dlfcn.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#undef curl_easy_getinfo
#undef curl_easy_setopt

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

namespace {

bool armed = false;
long curlCalls = 0, curlFailsAt = 0;
int curlCode = 0;
long allocations = 0, memoryFailsAt = 0, memoryFailures = 0;
char kernelVersion[65] = {};
long readings = 0, clockJumpsAt = 0, clockOffset = 0, clockJump = 0;

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

bool curlFails() { return armed && ++curlCalls == curlFailsAt; }

long offset() {
  if (armed && ++readings == clockJumpsAt) clockOffset += clockJump;
  return armed ? clockOffset : 0;
}

void arm() {
  const char* const fault = std::getenv("QD_FAULT");
  if (fault == nullptr) return;
  std::sscanf(fault, "curl:%ld:%d", &curlFailsAt, &curlCode);
  std::sscanf(fault, "memory:%ld:%ld", &memoryFailsAt, &memoryFailures);
  std::sscanf(fault, "clock:%ld:%ld:%ld", &clockOffset, &clockJumpsAt, &clockJump);
  std::sscanf(fault, "kernel:%64s", kernelVersion);
  if (std::strcmp(fault, "count") == 0) {
    std::atexit([] { std::fprintf(stderr, "%ld %ld\n", curlCalls, allocations); });
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

CURL* curl_easy_init() { return curlFails() ? nullptr : next<CURL*()>("curl_easy_init")(); }

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  std::va_list arguments;
  va_start(arguments, option);
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  if (curlFails()) return static_cast<CURLcode>(curlCode);
  return next<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt")(handle, option, value);
}

CURLcode curl_easy_perform(CURL* handle) {
  if (curlFails()) return static_cast<CURLcode>(curlCode);
  return next<CURLcode(CURL*)>("curl_easy_perform")(handle);
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
  std::va_list arguments;
  va_start(arguments, info);
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  if (curlFails()) return static_cast<CURLcode>(curlCode);
  return next<CURLcode(CURL*, CURLINFO, ...)>("curl_easy_getinfo")(handle, info, value);
}

int clock_gettime(clockid_t clock, timespec* time) {
  const int result = next<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  if (clock == CLOCK_REALTIME) time->tv_sec += offset();
  return result;
}

std::time_t time(std::time_t* result) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}

int uname(utsname* system) {
  const int result = next<int(utsname*)>("uname")(system);
  if (*kernelVersion != '\0') std::strcpy(system->version, kernelVersion);
  return result;
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
