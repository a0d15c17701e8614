#pragma once

#include "Updater/health/AgentWindow.h"
#include "Updater/health/recovery.h"
#include "Updater/outcome/StateFolder.h"
#include "Updater/package/installedAgent.h"
#include "Updater/procedure/AgentService.h"
#include "Updater/procedure/Updater.h"

/// Brings to an end what a run left that died while the agent was being replaced: what the package
/// manager left half done is completed, the new version judged, or the former one put back, and
/// whatever else fails, an agent is started. May itself die and be done again.
class Recovery : private Updater {
 public:
  /// `run` has settings with [health], recorder, output and the folder of kept packages; what the
  /// window knows of the run is filled in. All must outlive this object.
  Recovery(const AgentWindow& window, UpdateRun& run);

  /// Removes the lock in the temporary folder if it is that of the run that died, the latest to
  /// note it in `folder`.
  static void removeDeadLock(const StateFolder& folder);

  /// Starts the agent of this system, for a recovery that can do nothing else. `limit` as in
  /// AgentService::start.
  static void startAgent(std::chrono::seconds limit);

  /// Does it; where the run has `told` its outcome, an agent is started and no more. Returns what
  /// the run came to. No std::exception leaves it.
  UpdateResult perform(std::optional<UpdateResult> told);

  /// Whether that was the end. It is not while what the run started is still at work, or when this
  /// process lacked something: an agent was started, and whoever comes next does the rest.
  [[nodiscard]] bool isEnd() const { return isEnd_; }

 private:
  UpdateResult attempt();
  bool waitForSurvivors();
  [[nodiscard]] RecoveryFacts look() const;
  bool lockPackages();
  void complete();
  void installAgain();
  UpdateResult judgeNew();
  UpdateResult putBack();
  UpdateResult startOnly(const RecoveryFacts& facts);
  void startMeanwhile();
  bool start();
  [[nodiscard]] std::string thereNow() const;

  const AgentWindow& window_;
  UpdateRun& run_;
  AgentService service_;
  std::time_t begun_ = std::time(nullptr);
  bool isEnd_ = true;
};
