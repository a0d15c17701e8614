// With [health] the agent is looked after: its checks before it is stopped, all of it afterwards.

#include "Updater/health/agentWatch.h"
#include "Updater/health/checks.h"
#include "Updater/outcome/hooks.h"
#include "Updater/package/installedAgent.h"
#include "Updater/procedure/Updater.h"
#include "Updater/process/Interrupts.h"
#include "logging/QDLog.h"

Updater::Stop Updater::checkHealthBefore(UpdateRun& run) {
  if (!looksAfter(run) || run.checks.empty()) return std::nullopt;
  QDLOG(ROOT, NFY, "Looking after the agent that runs");
  run.failedBefore = runChecks(run.checks, hookEnvironment(run.recorder->record()),
                               run.settings->health->timeout, &Interrupts::came);
  return checkUntouched(run);
}

bool Updater::looksAfter(const UpdateRun& run) const {
  return run.settings != nullptr && run.settings->health && !skipInstall;
}

UpdateResult Updater::judgeHealth(UpdateRun& run) const {
  run.enter(Phase::Health);
  const std::string ailment = findAilment(run);
  if (ailment.empty()) {
    QDLOG(ROOT, NFY, "The agent is healthy");
    return UpdateResult::Done;
  }
  const auto agent = utils::queryInstalledAgent(distrib);
  run.message = "the agent is unhealthy: " + ailment +
                "; the former version was not put back, since health.rollback is false";
  if (agent) run.message += "; there is now: " + agent->text();
  QDLOG(ROOT, ERR, "Unhealthy : " << ailment);
  return UpdateResult::Unhealthy;
}

/// What ails the agent that was just started, for people; empty when nothing does.
std::string Updater::findAilment(UpdateRun& run) const {
  const HealthSettings& health = *run.settings->health;
  const std::string unit = unitStartedBy(run.setup.startCmd);
  QDLOG(ROOT, NFY, "Looking after the agent");
  if (!unit.empty()) {
    std::string ailment = watchUnit(unit, health.settle, health.timeout);
    if (!ailment.empty()) return ailment;
  }
  // Nothing interrupts it now: the run goes on to its end.
  return newFault(run.failedBefore, runChecks(run.checks, hookEnvironment(run.recorder->record()),
                                              health.timeout, {}));
}
