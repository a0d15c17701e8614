#include "FakePauses.h"

#include <time.h>

#include <cerrno>

namespace {

thread_local FakePauses* fake = nullptr;

}  // namespace

FakePauses::FakePauses(int good) : good_(good) { fake = this; }

FakePauses::~FakePauses() { fake = nullptr; }

int FakePauses::pause(long ms) {
  if (good_-- <= 0) {
    errno = EINVAL;
    return -1;
  }
  ms_.push_back(ms);
  if (meanwhile) meanwhile();
  return 0;
}

// The linker sends the calls of nanosleep here (see --wrap in CMakeLists.txt).
extern "C" {

int __real_nanosleep(const timespec* time, timespec* left);
int __wrap_nanosleep(const timespec* time, timespec* left) {
  if (fake == nullptr) return __real_nanosleep(time, left);
  return fake->pause(time->tv_sec * 1000 + time->tv_nsec / 1'000'000);
}

}  // extern "C"
