#include "Updater/process/Interrupts.h"

namespace {

volatile sig_atomic_t noted = 0;

void noteInterrupt(int) { noted = 1; }

void passOver(int) {}

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
}

Interrupts::~Interrupts() {
  for (std::size_t i = 0; i < former_.size(); ++i) {
    sigaction(SignalDelay::kSignals[i], &former_[i], nullptr);
  }
  sigaction(SIGTSTP, &formerSuspend_, nullptr);
}

bool Interrupts::came() noexcept { return noted != 0; }
