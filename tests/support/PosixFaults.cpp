#include "PosixFaults.h"

#include <pthread.h>
#include <sys/time.h>

#include <cstddef>
#include <optional>
#include <utility>

// The linker sends the calls of NAME to __wrap_NAME (see --wrap in CMakeLists.txt).

namespace {

struct Armed {
  std::string_view function;
  int code = 0;
};

thread_local Armed armed;
thread_local std::optional<timeval> fakeTime;
thread_local std::size_t stackSize = 0;

/// The code that this call of `function` has to report; 0: it is a call like any other.
int faultOf(std::string_view function) {
  if (armed.function != function) return 0;
  armed.function = {};
  return armed.code;
}

}  // namespace

PosixFault::PosixFault(std::string_view function, int code) { armed = {function, code}; }

PosixFault::~PosixFault() { armed = {}; }

std::size_t takeAskedStackSize() { return std::exchange(stackSize, 0); }

FakeClock::FakeClock(long seconds, long micros) { fakeTime = timeval{seconds, micros}; }

FakeClock::~FakeClock() { fakeTime.reset(); }

// A function that fails instead of doing its work, and one that fails after it.
#define FAILS_INSTEAD(name, parameters, arguments)               \
  int __real_##name parameters;                                  \
  int __wrap_##name parameters {                                 \
    if (const int code = faultOf(#name); code != 0) return code; \
    return __real_##name arguments;                              \
  }
#define FAILS_AFTERWARDS(name, parameters, arguments) \
  int __real_##name parameters;                       \
  int __wrap_##name parameters {                      \
    const int fault = faultOf(#name);                 \
    const int code = __real_##name arguments;         \
    return fault != 0 ? fault : code;                 \
  }

extern "C" {

FAILS_INSTEAD(pthread_cond_timedwait, (pthread_cond_t * c, pthread_mutex_t* m, const timespec* t),
              (c, m, t))
FAILS_INSTEAD(pthread_cond_broadcast, (pthread_cond_t * c), (c))
FAILS_INSTEAD(pthread_attr_init, (pthread_attr_t * a), (a))
FAILS_INSTEAD(pthread_attr_getstacksize, (const pthread_attr_t* a, size_t* s), (a, s))

int __real_pthread_attr_setstacksize(pthread_attr_t* a, std::size_t size);
int __wrap_pthread_attr_setstacksize(pthread_attr_t* a, std::size_t size) {
  if (const int code = faultOf("pthread_attr_setstacksize"); code != 0) return code;
  stackSize = size;
  return __real_pthread_attr_setstacksize(a, size);
}

FAILS_AFTERWARDS(pthread_attr_destroy, (pthread_attr_t * a), (a))
FAILS_INSTEAD(pthread_create,
              (pthread_t * t, const pthread_attr_t* a, void* (*fn)(void*), void* arg),
              (t, a, fn, arg))
FAILS_AFTERWARDS(pthread_detach, (pthread_t t), (t))

int __real_gettimeofday(timeval* now, void* zone);
int __wrap_gettimeofday(timeval* now, void* zone) {
  if (!fakeTime) return __real_gettimeofday(now, zone);
  *now = *fakeTime;
  return 0;
}

}  // extern "C"
