#pragma once

#include <cstddef>
#include <string_view>

/// Makes one call of a POSIX function on this thread fail with `code`: the next one, or the one
/// after `skip` more. Afterwards, and after the object's end, all calls succeed again.
///
/// Functions that end something (unlock, destroy, detach) do their work all the same and
/// only report the failure; "operator new" and "operator new[]" throw. For programs linked with
/// `qd_posix_faults`, which lists the functions.
class PosixFault {
 public:
  PosixFault(std::string_view function, int code, int skip = 0);
  PosixFault(const PosixFault&) = delete;
  PosixFault& operator=(const PosixFault&) = delete;
  ~PosixFault();

  /// Whether the call has come.
  [[nodiscard]] static bool hit();
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
