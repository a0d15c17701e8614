#include "Updater/process/Interrupts.h"

namespace {

volatile sig_atomic_t noted = 0;

void noteInterrupt(int) { noted = 1; }

void passOver(int) {}

/// With a handler the call that they interrupt would begin again for ever.
constexpr std::array<int, 2> kTerminalAccess = {SIGTTIN, SIGTTOU};

void replaceHandler(int signal, void (*handler)(int), struct sigaction& former) noexcept {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal, nullptr, &former);
  if (former.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
}

}  // namespace

Interrupts::Interrupts() noexcept {
  noted = 0;
  for (std::size_t i = 0; i < former_.size(); ++i) {
    replaceHandler(SignalDelay::kSignals[i], &noteInterrupt, former_[i]);
  }
  replaceHandler(SIGTSTP, &passOver, formerSuspend_);
  for (std::size_t i = 0; i < formerAccess_.size(); ++i) {
    replaceHandler(kTerminalAccess[i], SIG_IGN, formerAccess_[i]);
  }
}

Interrupts::~Interrupts() {
  for (std::size_t i = 0; i < former_.size(); ++i) {
    sigaction(SignalDelay::kSignals[i], &former_[i], nullptr);
  }
  sigaction(SIGTSTP, &formerSuspend_, nullptr);
  for (std::size_t i = 0; i < formerAccess_.size(); ++i) {
    sigaction(kTerminalAccess[i], &formerAccess_[i], nullptr);
  }
}

bool Interrupts::came() noexcept { return noted != 0; }
