#pragma once

#include <signal.h>

#include <array>

#include "Updater/process/SignalDelay.h"

/// As long as it lives, the signals that end a process are noted instead: whoever runs asks whether
/// one came and ends in order. The terminal's request to suspend has no effect, nor have its
/// answers to a process in the background: a run must not stop while the agent is stopped.
/// Handlers, where they can do, since commands inherit what is ignored; a signal that was ignored
/// before stays ignored. One at a time.
class Interrupts {
 public:
  Interrupts() noexcept;
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  /// Whether one came since the latest object was made.
  static bool came() noexcept;

 private:
  std::array<struct sigaction, SignalDelay::kSignals.size()> former_{};
  struct sigaction formerSuspend_ {};
  std::array<struct sigaction, 2> formerAccess_{};
};
