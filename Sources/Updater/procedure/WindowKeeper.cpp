#include "Updater/procedure/WindowKeeper.h"

#include <cstring>
#include <optional>

#include "Updater/process/agentPlaces.h"
#include "Updater/process/recoveryTimer.h"
#include "logging/QDLog.h"

namespace {

std::optional<WindowStep> stepOf(Phase phase) {
  switch (phase) {
    case Phase::Stop:
      return WindowStep::Stop;
    case Phase::Install:
      return WindowStep::Install;
    case Phase::Start:
      return WindowStep::Start;
    case Phase::Health:
      return WindowStep::Settle;
    case Phase::Rollback:
      return WindowStep::Rollback;
    default:
      return std::nullopt;
  }
}

}  // namespace

void WindowKeeper::open(const AgentWindow& window) {
  if (!folder_.isOpen()) return;
  adopt(window);
  // The timer comes first: without a file it ends itself.
  const std::string refusal = startRecoveryTimer(agentInstance());
  if (!refusal.empty()) {
    QDLOG(ROOT, WRN, "No timer sees to it should this run die : " << refusal);
  }
  write();
}

void WindowKeeper::adopt(const AgentWindow& window) {
  window_ = window;
  open_ = true;
}

void WindowKeeper::enter(Phase phase, const std::string& ailment) noexcept try {
  const auto step = stepOf(phase);
  if (!open_ || !step || *step == window_.step) return;
  window_.step = *step;
  window_.ailment = ailment;
  write();
} catch (...) {
  // The agent is worth more.
}

void WindowKeeper::close() {
  if (!open_) return;
  open_ = false;
  if (const int error = folder_.remove(kWindow); error != 0) {
    QDLOG(ROOT, WRN, "Cannot remove " << kWindow << " : " << std::strerror(error));
  }
  stopRecoveryTimer(agentInstance());
}

void WindowKeeper::write() noexcept try {
  const int error = folder_.replace(kWindow, agentWindowText(window_), true);
  if (error == 0 || warned_) return;
  warned_ = true;
  QDLOG(ROOT, WRN, "Cannot write " << kWindow << " : " << std::strerror(error));
} catch (...) {
  // The agent is worth more.
}
