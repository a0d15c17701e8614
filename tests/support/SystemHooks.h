#pragma once

#include <sys/time.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ground/QDMarkers.h"

/// Looks over the shoulder of this thread's system calls, for the object's life. Pauses end at
/// once, and are remembered. For the program that is linked with these calls wrapped.
struct SystemHooks : private qd_no_duplic {
  SystemHooks();
  ~SystemHooks();

  /// Called before "openat", "unlinkat", "readdir" and "flock", the first two with a name. Returns
  /// an errno value for the call to fail with, or 0 to let it happen.
  std::function<int(const std::string& call, const std::string& name)> before;

  std::vector<long> pauses;    ///< in milliseconds
  std::optional<timeval> now;  ///< what gettimeofday says
};
