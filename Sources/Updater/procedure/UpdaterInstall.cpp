// The window in which the agent is stopped. Nothing in it may keep the agent from being started
// again: no exception, no signal, no missing memory.

#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"
#include "Updater/package/installedAgent.h"
#include "Updater/prepare/packageOutput.h"
#include "Updater/procedure/Updater.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/procedure/windowCommands.h"
#include "Updater/process/SignalDelay.h"
#include "Updater/process/processStart.h"

Updater::Stop Updater::replaceAgent(UpdateRun& run) {
  if (usesDiskImage()) {
    run.setup.installCmd += '"' + utils::shellQuotedText(run.image.pkgPath) + '"';
  }
  // With settings they have come before.
  const bool withXCBDeps =
      run.settings == nullptr && needsXCBDeps(os, run.installed, run.available);
  AgentService service(run.setup.startCmd, run.setup.stopCmd, run.output);
  const SignalDelay delay;
  endStandardInput();  // a question would be waited for with the agent stopped
  const std::time_t stopped = std::time(nullptr);
  service.stop(std::chrono::seconds(0));
  if (!skipInstall) run.enter(Phase::Install);
  const bool installed = skipInstall || installAgent(run, withXCBDeps);
  run.packageManager.release();
  run.enter(Phase::Start);
  if (usesDiskImage()) execute(run.image.detachCmd.c_str(), run.output);
  const bool started =
      service.start(looksAfter(run) ? run.settings->health->timeout : std::chrono::seconds(0));
  QD_LOG_QUIETLY(NFY, "Agent Update done");
  if (run.settings == nullptr) return UpdateResult::Done;
  const UpdateResult result = judgeReplacement(run, installed, started);
  return looksAfter(run) ? judgeHealth(run, service, result, stopped) : result;
}

int Updater::runInstallation(UpdateRun& run) const noexcept {
  const int r = executeInstallation(run.setup.installCmd.c_str(), run.output);
  if (run.output == nullptr || (r == 0 && !scriptFailed(run.output))) return r;
  try {
    run.refusal = utils::reasonIn(utils::splitLines(run.output->text()));
  } catch (...) {
    // The restart is worth more.
  }
  return r;
}

bool Updater::installAgent(UpdateRun& run, bool withXCBDeps) const noexcept {
  QD_LOG_QUIETLY(NFY, "Upgrading agent ...'");
  if (withXCBDeps) installXCBDeps(run);
  if (const int r = runInstallation(run); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to install agent : [" << r << "]");
    return false;
  }
  QD_LOG_QUIETLY(NFY, "Agent Installed");
  if (run.setup.postInstallCmd.empty()) return !scriptFailed(run.output);
  if (const int r = execute(run.setup.postInstallCmd.c_str(), run.output); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to run post install command: [" << r << "]");
    return false;
  }
  return true;
}

void Updater::installXCBDeps(const UpdateRun& run) const noexcept {
  QD_LOG_QUIETLY(NFY, "installXCBDeps ...");
  const XCBCommands commands = xcbCommands(distrib, run.settings != nullptr);
  if (commands.query == nullptr || execute(commands.query, run.output) != 0) {
    QD_LOG_QUIETLY(NFY, "X11 not found");
    return;
  }
  QD_LOG_QUIETLY(NFY, "Found x11");
  const int r = execute(commands.install, run.output);
  QD_LOG_QUIETLY(NFY, "Install xcb dependencies" << r);
}

/// The exit status of a package manager is not believed alone: its database is asked.
UpdateResult Updater::judgeReplacement(UpdateRun& run, bool installed, bool started) const {
  const bool hasDatabase = distrib == utils::DistribDeb || distrib == utils::DistribRpm;
  std::optional<utils::InstalledAgent> agent;
  if (!skipInstall) {
    agent = hasDatabase ? utils::queryPersistently(distrib) : utils::queryInstalledAgent(distrib);
  }
  const bool isUnknown = hasDatabase && !skipInstall && !agent;
  const std::string there = agent ? "; there is now: " + agent->text() : std::string();
  if (agent && run.recorder != nullptr) run.recorder->record().installed = agent->version;
  if (agent) installed = installed && agent->isWhole && Version(agent->version) == run.available;
  installed = installed && !isUnknown;
  run.updated = installed && !skipInstall;
  if (!started) {
    run.ailment = std::string(installed ? "" : "the installation failed, and ") +
                  "the agent could not be started";
    run.message = run.ailment + there;
    return UpdateResult::StartFailed;
  }
  if (!installed) {
    std::string failure =
        "the installation failed" + (run.refusal.empty() ? "" : ": " + run.refusal);
    if (isUnknown && run.refusal.empty()) {
      failure = "whether it was installed is not known: the package database does not answer";
    }
    const bool isFormer = agent && agent->isWhole && Version(agent->version) == run.installed;
    if (agent && !isFormer) run.ailment = failure;
    run.message = failure + there;
    return UpdateResult::InstallFailed;
  }
  if (skipInstall) run.message = "the agent was only restarted";
  return UpdateResult::Done;
}
