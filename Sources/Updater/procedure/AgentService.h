#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Updater/config/Settings.h"
#include "Updater/health/checks.h"
#include "Updater/outcome/RunRecord.h"
#include "Updater/procedure/CommandOutput.h"

/// How the agent is looked after.
struct AgentCare {
  HealthSettings health;
  std::vector<std::string> checks;        ///< the administrator's, paths
  std::vector<FailedCheck> failedBefore;  ///< those that do not count
};

/// The agent as the system's service manager has it. What is noexcept logs what it does, and is for
/// the window in which the agent is stopped.
class AgentService {
 public:
  /// `output`, which may be null, takes what the commands print.
  AgentService(std::string startCmd, std::string stopCmd, CommandOutput* output);

  /// For an agent that ails: it may not even stop.
  static constexpr std::chrono::minutes kStopLimit{2};

  /// Stops it. A unit of systemd's that does not stop within `limit` is killed; 0: there is none.
  void stop(std::chrono::seconds limit) const noexcept;

  /// Starts it. Returns whether it was. A unit of systemd's that is not ready within `limit` counts
  /// as started: whoever looks after it sees how it fares. 0: there is none.
  bool start(std::chrono::seconds limit) noexcept;

  /// Has systemd read the unit files again, and forget that the agent failed.
  void refresh() const noexcept;

  /// Watches the agent, which was just started, until it has settled, then runs the checks, with
  /// `record` as their environment. Returns what ails it, for people; empty when nothing does.
  [[nodiscard]] std::string findAilment(const AgentCare& care, const RunRecord& record) const;

  /// Its systemd unit; empty where it is another service manager's.
  [[nodiscard]] const std::string& unit() const { return unit_; }

 private:
  std::string startCmd_;
  std::string stopCmd_;
  std::string unit_;
  std::string resetCmd_;
  std::string killCmd_;
  CommandOutput* output_;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};
