#pragma once

#include <cstddef>
#include <string_view>

/// Makes the next call of a POSIX function on this thread fail with `code`. Afterwards, and after
/// the object's end, all calls succeed again.
///
/// Functions that end something (destroy, detach) do their work all the same and only report the
/// failure. For the program linked with the functions wrapped.
class PosixFault {
 public:
  PosixFault(std::string_view function, int code);
  PosixFault(const PosixFault&) = delete;
  PosixFault& operator=(const PosixFault&) = delete;
  ~PosixFault();
};

/// Makes `gettimeofday` tell this time on this thread for the object's life.
class FakeClock {
 public:
  FakeClock(long seconds, long micros);
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;
  ~FakeClock();
};

/// The stack size, in bytes, that this thread asked for a new thread since the last call; 0 when it
/// asked for none. What a thread then has may be more: that of another one that has ended.
std::size_t takeAskedStackSize();
