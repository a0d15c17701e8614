#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

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

/// A signal every millisecond, for the object's life, which interrupts what waits.
class Alarms {
 public:
  Alarms() {
    struct sigaction ignore {};
    ignore.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &ignore, &former_);
    ::ualarm(1000, 1000);
  }
  Alarms(const Alarms&) = delete;
  Alarms& operator=(const Alarms&) = delete;
  ~Alarms() {
    ::ualarm(0, 0);
    ::sigaction(SIGALRM, &former_, nullptr);
  }

 private:
  struct sigaction former_ {};
};
