#pragma once

#include <signal.h>

#include <array>

/// As long as it lives, none of the signals that others send to end a process, or that a limit of
/// the process sends, ends it; the first that came takes its effect at the end. Handlers, not
/// ignoring: the commands that are run meanwhile must not inherit ignored signals. A signal that
/// was ignored before stays ignored, and a SIGINT or SIGQUIT that comes while system() runs a
/// command is that command's alone. One at a time.
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
