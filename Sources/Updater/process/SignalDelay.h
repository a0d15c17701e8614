#pragma once

#include <signal.h>

#include <array>

/// While it lives, the process is not ended by the signals that others send for that purpose, nor
/// by those of its own limits; the first that came takes its effect at the end. The signals are
/// caught, not ignored: the commands that run meanwhile must not inherit ignored signals. A signal
/// that was ignored before stays ignored, and a SIGINT or SIGQUIT that comes while system() runs a
/// command reaches that command alone. There may be one such object at a time.
class SignalDelay {
 public:
  SignalDelay() noexcept;
  ~SignalDelay();
  SignalDelay(const SignalDelay&) = delete;
  SignalDelay& operator=(const SignalDelay&) = delete;

  static constexpr std::array kSignals = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM, SIGALRM,
                                          SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ};

 private:
  std::array<struct sigaction, kSignals.size()> former_{};
};
