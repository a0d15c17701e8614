#include "SystemHooks.h"

#include <dirent.h>
#include <fcntl.h>
#include <time.h>

#include <cerrno>
#include <cstdarg>

namespace {

thread_local SystemHooks* current = nullptr;

/// Whether the call has to fail; errno says with what.
bool fails(const char* call, const char* name = "") {
  if (current == nullptr || !current->before) return false;
  const auto before = current->before;  // a copy, since a hook may take itself away
  const int error = before(call, name);
  if (error != 0) errno = error;
  return error != 0;
}

}  // namespace

SystemHooks::SystemHooks() { current = this; }

SystemHooks::~SystemHooks() { current = nullptr; }

// The linker sends the calls of NAME to __wrap_NAME (see --wrap in CMakeLists.txt).
extern "C" {

int __real_openat64(int folder, const char* name, int flags, ...);
int __wrap_openat64(int folder, const char* name, int flags, ...) {
  if (fails("openat", name)) return -1;
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_openat64(folder, name, flags, mode);
}

int __real_unlinkat(int folder, const char* name, int flags);
int __wrap_unlinkat(int folder, const char* name, int flags) {
  return fails("unlinkat", name) ? -1 : __real_unlinkat(folder, name, flags);
}

dirent64* __real_readdir64(DIR* dir);
dirent64* __wrap_readdir64(DIR* dir) { return fails("readdir") ? nullptr : __real_readdir64(dir); }

int __real_flock(int fd, int operation);
int __wrap_flock(int fd, int operation) {
  return fails("flock") ? -1 : __real_flock(fd, operation);
}

int __real_nanosleep(const timespec* time, timespec* left);
int __wrap_nanosleep(const timespec* time, timespec* left) {
  if (current == nullptr) return __real_nanosleep(time, left);
  current->pauses.push_back(time->tv_sec * 1000 + time->tv_nsec / 1'000'000);
  return 0;
}

int __real_gettimeofday(timeval* time, void* zone);
int __wrap_gettimeofday(timeval* time, void* zone) {
  if (current == nullptr || !current->now) return __real_gettimeofday(time, zone);
  *time = *current->now;
  return 0;
}

}  // extern "C"
