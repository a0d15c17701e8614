#include "Updater/process/SignalDelay.h"

namespace {

volatile sig_atomic_t firstSignal = 0;

void noteFirst(int signal) {
  if (firstSignal == 0) firstSignal = signal;
}

}  // namespace

SignalDelay::SignalDelay() noexcept {
  firstSignal = 0;
  struct sigaction action {};
  action.sa_handler = &noteFirst;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &former_[i]);
    if (former_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

SignalDelay::~SignalDelay() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &former_[i], nullptr);
  if (firstSignal != 0) raise(firstSignal);
}
