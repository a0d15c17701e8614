// With [health] the agent is looked after: its checks before it is stopped, all of it afterwards.

#include "Updater/health/agentWatch.h"
#include "Updater/health/checks.h"
#include "Updater/outcome/hooks.h"
#include "Updater/package/installedAgent.h"
#include "Updater/procedure/Updater.h"
#include "Updater/process/Interrupts.h"
#include "logging/QDLog.h"

/// Its digest tells a bad version, so where there are any it is fetched before its turn.
Updater::Stop Updater::checkKnownBad(UpdateRun& run) {
  if (run.bad.empty()) return std::nullopt;
  if (const Stop stop = fetchDigest(run)) return stop;
  const std::string sha256 = run.release != nullptr ? run.release->sha256() : std::string();
  const BadVersion* const bad = findBad(run.bad, sha256, run.expectedMd5);
  if (bad == nullptr) return std::nullopt;
  run.message = bad->version + " is known as bad here since " + bad->since + ": " + bad->cause +
                "; qd-update forgive " + bad->version + " ends that";
  QDLOG(ROOT, ERR, "Refused : " << run.message);
  return UpdateResult::KnownBad;
}

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
  run.ailment = findAilment(run);
  if (run.ailment.empty()) {
    QDLOG(ROOT, NFY, "The agent is healthy");
    return UpdateResult::Done;
  }
  const auto agent = utils::queryInstalledAgent(distrib);
  run.message = "the agent is unhealthy: " + run.ailment +
                "; the former version was not put back, since health.rollback is false";
  if (agent) run.message += "; there is now: " + agent->text();
  QDLOG(ROOT, ERR, "Unhealthy : " << run.ailment);
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
