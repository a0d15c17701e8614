#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "ground/QDMarkers.h"

/// Lowers a resource limit (RLIMIT_...), for the object's life. Beyond a file size calls fail
/// instead of ending the process.
class Limit : private qd_no_duplic {
 public:
  Limit(int resource, rlim_t most) : resource_(resource) {
    ::getrlimit(resource_, &former_);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{most, former_.rlim_max};
    ::setrlimit(resource_, &limit);
  }
  ~Limit() {
    ::setrlimit(resource_, &former_);
    ::signal(SIGXFSZ, SIG_DFL);
  }

 private:
  int resource_;
  rlimit former_{};
};

/// A signal every millisecond, for the object's life, which interrupts what waits.
class Alarms : private qd_no_duplic {
 public:
  Alarms() {
    struct sigaction ignore {};
    ignore.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &ignore, &former_);
    ::ualarm(1000, 1000);
  }
  ~Alarms() {
    ::ualarm(0, 0);
    ::sigaction(SIGALRM, &former_, nullptr);
  }

 private:
  struct sigaction former_ {};
};
