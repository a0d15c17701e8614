#include "EntryHooks.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>

namespace {

thread_local EntryHooks* hooks = nullptr;

/// Whether the call has to fail; errno tells with what.
template <typename... Arguments>
bool fails(std::function<int(Arguments...)> EntryHooks::*hook, const Arguments&... arguments) {
  if (hooks == nullptr || !(hooks->*hook)) return false;
  const auto called = hooks->*hook;  // a copy, since a hook may take itself away
  const int error = called(arguments...);
  if (error != 0) errno = error;
  return error != 0;
}

bool failsFor(std::function<int(const std::string&)> EntryHooks::*hook, const char* name) {
  return fails<const std::string&>(hook, name);
}

}  // namespace

EntryHooks::EntryHooks() { hooks = this; }

EntryHooks::~EntryHooks() { hooks = nullptr; }

// The linker sends the calls of NAME to __wrap_NAME (see --wrap in CMakeLists.txt).
extern "C" {

int __real_openat64(int folder, const char* name, int flags, ...);
int __wrap_openat64(int folder, const char* name, int flags, ...) {
  if (failsFor(&EntryHooks::opening, name)) return -1;
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_openat64(folder, name, flags, mode);
}

int __real_unlinkat(int folder, const char* name, int flags);
int __wrap_unlinkat(int folder, const char* name, int flags) {
  return failsFor(&EntryHooks::removing, name) ? -1 : __real_unlinkat(folder, name, flags);
}

dirent64* __real_readdir64(DIR* dir);
dirent64* __wrap_readdir64(DIR* dir) {
  return fails(&EntryHooks::reading) ? nullptr : __real_readdir64(dir);
}

int __real_flock(int fd, int operation);
int __wrap_flock(int fd, int operation) {
  return fails(&EntryHooks::locking) ? -1 : __real_flock(fd, operation);
}

}  // extern "C"
