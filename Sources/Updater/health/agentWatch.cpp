#include "Updater/health/agentWatch.h"

#include <unistd.h>

#include <string_view>
#include <thread>

#include "Updater/command/childRun.h"
#include "Updater/health/Settling.h"

namespace {

constexpr auto kPollEvery = std::chrono::milliseconds(500);

UnitState askUnit(const std::string& unit) {
  std::vector<std::string> lines;
  const utils::ChildEnd end =
      utils::runChild({.program = "systemctl",
                       .arguments = {"show",
                                     std::string("--property=Type,ActiveState,SubState,MainPID,") +
                                         "NRestarts,ActiveEnterTimestampMonotonic",
                                     unit},
                       .environment = {},
                       .limit = std::chrono::seconds(10),
                       .onLine = [&lines](const std::string& line) { lines.push_back(line); },
                       .cancelled = {}});
  return end.isGood() ? readUnitState(lines) : UnitState();
}

/// As sd_booted(3).
bool systemdRuns() { return ::access("/run/systemd/system", F_OK) == 0; }

}  // namespace

std::string unitStartedBy(const std::string& startCommand) {
  constexpr std::string_view kStart = "systemctl start ";
  return startCommand.starts_with(kStart) ? startCommand.substr(kStart.size()) : std::string();
}

std::string watchUnit(const std::string& unit, std::chrono::steady_clock::time_point begun,
                      std::chrono::seconds settle, std::chrono::seconds timeout) {
  using Clock = std::chrono::steady_clock;
  // systemd's monotonic time is the steady clock's.
  Settling settling(std::chrono::duration_cast<std::chrono::microseconds>(begun.time_since_epoch()),
                    settle, timeout);
  for (;;) {
    const UnitState state = askUnit(unit);
    // In a change root, for one, systemctl "starts" and shows nothing, and both well.
    if (state.active.empty() && !systemdRuns()) return {};
    const auto at = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
    if (auto verdict = settling.observe(at, state)) return *verdict;
    std::this_thread::sleep_for(settling.pauseAfter(at, kPollEvery));
  }
}
