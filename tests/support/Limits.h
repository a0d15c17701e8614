#pragma once

#include <signal.h>
#include <sys/resource.h>

/// Lowers a resource limit (RLIMIT_...), for the object's life. Beyond a file size calls fail
/// instead of ending the process.
class Limit {
 public:
  Limit(int resource, rlim_t most) : resource_(resource) {
    ::getrlimit(resource_, &former_);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{most, former_.rlim_max};
    ::setrlimit(resource_, &limit);
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() {
    ::setrlimit(resource_, &former_);
    ::signal(SIGXFSZ, SIG_DFL);
  }

 private:
  int resource_;
  rlimit former_{};
};
