#pragma once

#include <sys/time.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Looks over the shoulder of this thread's system calls, for the object's life. A hook is called
/// before the call and returns an errno value for the call to fail with, or 0 to let it happen.
/// Pauses end at once, and are remembered. For programs linked with `qd_system_hooks`.
class SystemHooks {
 public:
  SystemHooks();
  SystemHooks(const SystemHooks&) = delete;
  SystemHooks& operator=(const SystemHooks&) = delete;
  ~SystemHooks();

  std::function<int(const std::string& name)> opening;   // openat
  std::function<int(const std::string& name)> removing;  // unlinkat
  std::function<int()> reading;                          // readdir
  std::function<int()> locking;                          // flock

  std::vector<long> pauses;    ///< in milliseconds
  std::optional<timeval> now;  ///< what gettimeofday says
};

/// Fails with `error` at the `n`th call, counted from 1.
inline std::function<int()> failAt(int n, int error) {
  return [n, error, calls = std::make_shared<int>(0)] { return ++*calls == n ? error : 0; };
}
