// With [health] the agent is looked after: its checks before it is stopped, all of it afterwards.

#include "Updater/health/checks.h"
#include "Updater/outcome/hooks.h"
#include "Updater/procedure/RollBack.h"
#include "Updater/procedure/Updater.h"
#include "Updater/process/Interrupts.h"
#include "logging/QDLog.h"

namespace {

AgentCare careOf(const UpdateRun& run) {
  return {.health = *run.settings->health, .checks = run.checks, .failedBefore = run.failedBefore};
}

}  // namespace

/// Its digest is how a bad version is known, so where there are any it is fetched before its turn.
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

/// From here on whoever finds the run dead knows what to do.
Updater::Stop Updater::openWindow(UpdateRun& run) {
  if (!looksAfter(run) || run.window == nullptr) return std::nullopt;
  run.mayReturn = run.release == nullptr || run.release->release.rollback;
  const RunRecord& record = run.recorder->record();
  AgentWindow window{.run = record.run,
                     .kind = utils::agentDistribToString(distrib),
                     .from = record.from,
                     .to = versionText(run.available),
                     .package = run.setup.setupPath,
                     .sha256 = run.sha256,
                     .md5 = run.expectedMd5,
                     .since = utcText(std::time(nullptr)),
                     .failedBefore = {},
                     .ailment = {},
                     .mayReturn = run.mayReturn,
                     .noWayBack = run.noWayBack};
  for (const FailedCheck& failed : run.failedBefore) window.failedBefore.push_back(failed.file);
  run.window->open(window);
  return std::nullopt;
}

/// `replaced`: what came of the replacement itself, which `run.message` describes.
UpdateResult Updater::judgeHealth(UpdateRun& run, const AgentService& service,
                                  UpdateResult replaced, std::time_t stopped) {
  if (replaced == UpdateResult::Done) {
    run.enter(Phase::Health);
    run.ailment = service.findAilment(careOf(run), run.recorder->record());
    if (run.ailment.empty()) {
      QDLOG(ROOT, NFY, "The agent is healthy");
      keepInstalled(run);
      return replaced;
    }
    QDLOG(ROOT, ERR, "Unhealthy : " << run.ailment);
    replaced = UpdateResult::Unhealthy;
  }
  return run.ailment.empty() ? replaced : goBack(run, replaced, stopped);
}

UpdateResult Updater::goBack(UpdateRun& run, UpdateResult replaced, std::time_t stopped) {
  const HealthSettings& health = *run.settings->health;
  const std::string why = health.rollback ? run.noWayBack : "health.rollback is false";
  if (!why.empty()) {
    const std::string toDo = health.rollback ? whatToDoText() : std::string();
    if (replaced == UpdateResult::Unhealthy) {
      run.message = notPutBackText(run.ailment, why, distrib) + toDo;
    } else if (health.rollback) {
      run.message += "; the former version was not put back, since " + why + toDo;
    }
    return replaced;
  }
  RollBack back({.folder = run.keep,
                 .package = run.kept,
                 .kind = distrib,
                 .failedVersion = versionText(run.available),
                 .ailment = run.ailment,
                 .failedSince = stopped,
                 .care = careOf(run),
                 .startCmd = run.setup.startCmd,
                 .stopCmd = run.setup.stopCmd,
                 .lockWait = run.settings->install.lockWait},
                *run.recorder, *run.output, run.packageManager);
  const RollBack::End end = back.perform();
  run.updated = false;
  run.message = end.message;
  if (end.isBack) run.recorder->record().rolledBackFrom = versionText(run.available);
  return end.result;
}
