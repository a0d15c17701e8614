#include "Updater/procedure/Recovery.h"

#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <exception>
#include <thread>

#include "Updater/prepare/rehearsal.h"
#include "Updater/prepare/survivors.h"
#include "Updater/procedure/RollBack.h"
#include "Updater/procedure/lockFile.h"
#include "Updater/process/SignalDelay.h"
#include "Updater/process/processStart.h"
#include "ground/osal_ownfile.h"
#include "logging/QDLog.h"

using There = RecoveryFacts::There;

namespace {

/// Whether the package is the one that was verified.
bool isIntact(const AgentWindow& window) {
  ScopedFd fd;
  if (osal_openOwnFile(window.package.c_str(), OwnFileUse::Read, 0600, fd) != 0) return false;
  const FileDigests digests = digestsOf(fd.get());
  if (!window.sha256.empty()) return digests.sha256 == window.sha256;
  return !window.md5.empty() && digests.md5 == window.md5;
}

There placeOf(const std::optional<utils::InstalledAgent>& agent, const UpdateRun& run) {
  if (!agent) return There::Unknown;
  if (agent->version.empty()) return There::Nothing;
  const Version version(agent->version);
  if (!version.isValid()) return There::Other;
  if (version == run.available) return There::New;
  return version == run.installed ? There::Former : There::Other;
}

utils::SetuParameter commandsFor(utils::AgentDistrib kind, const std::string& package) {
  utils::SetuParameter setup;
  setup.setupPath = package;
  if (utils::getOS() == utils::OsMacOSX) {
    utils::fillMacOSXCommands(setup, kind);
  } else {
    utils::fillLinuxCommands(setup, kind);
  }
  return setup;
}

/// Of what is installed here, where the window does not say, or names another system's.
utils::AgentDistrib kindOf(const AgentWindow& window) {
  const auto installed = utils::installedKind();
  const bool isImage = utils::stringToAgentDistrib(window.kind) == utils::DistribDmg;
  return isImage && installed == utils::DistribPkg ? utils::DistribDmg : installed;
}

}  // namespace

Recovery::Recovery(const AgentWindow& window, UpdateRun& run)
    : Updater(false), window_(window), run_(run), service_("", "", nullptr) {
  os = utils::getOS();
  distrib = kindOf(window);
  run.setup = commandsFor(distrib, window.package);
  service_ = AgentService(run.setup.startCmd, run.setup.stopCmd, run.output);
  run.installed = Version(window.from);
  run.available = Version(window.to);
  run.sha256 = window.sha256;
  run.expectedMd5 = window.md5;
  run.mayReturn = window.mayReturn;
  run.noWayBack = window.noWayBack;
  run.ailment = window.ailment;
  for (const std::string& file : window.failedBefore) run.failedBefore.push_back({file, ""});
  const auto packages = run.keep.isOpen() ? run.keep.list() : std::vector<KeptPackage>();
  if (const KeptPackage* const kept = findKept(packages, window.from)) run.kept = *kept;
  if (!run.noWayBack.empty()) return;
  run.noWayBack = run.kept.file.empty() ? "no package of " + window.from + " is kept"
                                        : faultOf(run.keep, run.kept);
}

void Recovery::startAgent(std::chrono::seconds limit) {
  const utils::SetuParameter setup = commandsFor(utils::installedKind(), "");
  AgentService(setup.startCmd, setup.stopCmd, nullptr).start(limit);
}

void Recovery::removeDeadLock(const StateFolder& folder) try {
  const std::string path = placeOfLock();
  const auto lock = findLock(path);
  if (lock && std::to_string(*lock) == folder.lockNote()) std::remove(path.c_str());
} catch (const std::exception& e) {
  QDLOG(ROOT, WRN, "Cannot look for the lock of the run that died : " << e.what());
}

UpdateResult Recovery::perform(std::optional<UpdateResult> told) try {
  const SignalDelay delay;
  endStandardInput();
  if (told) service_.start(run_.settings->health->timeout);
  const UpdateResult result = told ? *told : attempt();
  run_.packageManager.release();
  return result;
} catch (const std::exception& e) {
  QDLOG(ROOT, ERR, "Exception : " << e.what());
  startMeanwhile();
  run_.message = std::string("Exception : ") + e.what();
  return UpdateResult::Exception;
}

UpdateResult Recovery::attempt() {
  if (!waitForSurvivors()) return UpdateResult::PackageManagerBusy;
  RecoveryFacts facts = look();
  RecoveryAct act = planRecovery(facts);
  if (act == RecoveryAct::Complete) {
    if (!lockPackages()) return UpdateResult::PackageManagerBusy;
    complete();
    facts = look();
    facts.canComplete = false;
    act = planRecovery(facts);
  }
  if (act == RecoveryAct::InstallAgain) {
    if (!lockPackages()) return UpdateResult::PackageManagerBusy;
    installAgain();
    facts = look();
    const bool isNew = facts.isWhole && facts.there == There::New;
    act = isNew ? RecoveryAct::Judge : RecoveryAct::StartOnly;
  }
  if (act == RecoveryAct::Judge) return judgeNew();
  return act == RecoveryAct::PutBack ? putBack() : startOnly(facts);
}

/// A package manager that the run started outlives it.
bool Recovery::waitForSurvivors() {
  std::vector<std::string> paths = {window_.package};
  if (!run_.kept.file.empty()) paths.push_back(run_.keep.pathOf(run_.kept.file));
  const auto until = std::chrono::steady_clock::now() + run_.settings->install.lockWait;
  std::string told;
  for (;;) {
    const std::string survivor = utils::survivorWith(paths);
    if (survivor.empty()) return true;
    if (survivor != told) QDLOG(ROOT, NFY, "Waiting for what the run left behind : " << survivor);
    told = survivor;
    if (std::chrono::steady_clock::now() >= until) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  startMeanwhile();
  run_.message = told + ", which the run left behind, is still at work";
  return false;
}

bool Recovery::lockPackages() {
  const std::chrono::seconds limit = run_.settings->install.lockWait;
  if (run_.packageManager.acquire(distrib, limit, {}) == PackageManagerLock::Result::Free) {
    return true;
  }
  startMeanwhile();
  run_.message = run_.packageManager.holder();
  return false;
}

RecoveryFacts Recovery::look() const {
  auto agent = utils::queryPersistently(distrib);
  const There there = placeOf(agent, run_);
  const bool mayBeTorn = distrib == utils::DistribRpm && window_.step == WindowStep::Install;
  if (mayBeTorn && there == There::New && agent->isWhole && !utils::hasItsFiles()) {
    agent->isWhole = false;
    agent->state = "not with its files";
  }
  QDLOG(ROOT, NFY, "Installed is : " << (agent ? agent->text() : "not known"));
  return {.step = window_.step,
          .there = there,
          .isWhole = agent && agent->isWhole,
          .mayBeTorn = mayBeTorn,
          .canComplete = distrib == utils::DistribDeb,
          .canRollBack = run_.settings->health->rollback && run_.noWayBack.empty(),
          .canInstall = isIntact(window_)};
}

/// After a power cut the system itself may have started what is there in part.
void Recovery::complete() {
  service_.stop(AgentService::kStopLimit);
  QDLOG(ROOT, NFY, "Completing what dpkg has left half done");
  if (!utils::completeHalfDone()) {
    QDLOG(ROOT, WRN, "dpkg could not complete what it has left half done");
  }
  service_.refresh();
}

void Recovery::installAgain() {
  service_.stop(AgentService::kStopLimit);
  run_.enter(Phase::Install);
  installAgent(run_, false);
  service_.refresh();
}

/// The window stays as it is.
void Recovery::startMeanwhile() {
  isEnd_ = false;
  service_.start(run_.settings->health->timeout);
}

bool Recovery::start() {
  run_.enter(Phase::Start);
  return service_.start(run_.settings->health->timeout);
}

UpdateResult Recovery::judgeNew() {
  run_.packageManager.release();
  const bool started = start();
  const UpdateResult result = judgeReplacement(run_, true, started);
  return judgeHealth(run_, service_, result, begun_);
}

UpdateResult Recovery::putBack() {
  // That it was cut off is no fault of the version.
  run_.wasCut = run_.ailment.empty();
  if (run_.wasCut) run_.ailment = "its installation was cut off";
  const UpdateResult result = goBack(run_, UpdateResult::Unhealthy, begun_);
  if (result != UpdateResult::RolledBack) {
    service_.start(run_.settings->health->timeout);
  } else if (run_.wasCut) {
    run_.message = "the run died when it was installing " + window_.to + "; " + window_.from +
                   " was put back, and is healthy";
  }
  return result;
}

UpdateResult Recovery::startOnly(const RecoveryFacts& facts) {
  run_.packageManager.release();
  if (!start()) {
    run_.message = "the run died, and the agent could not be started" + thereNow();
    return UpdateResult::StartFailed;
  }
  if (facts.step == WindowStep::Rollback && facts.isWhole) {
    run_.message =
        run_.ailment + "; the run that was putting the former version back died" + thereNow();
    const bool isBack = facts.there == There::Former;
    return isBack ? UpdateResult::RolledBack : UpdateResult::Unhealthy;
  }
  if (facts.there != There::Unknown && !facts.isWhole) {
    run_.message =
        "the run died, and what it had begun to install could not be completed" + thereNow();
    return UpdateResult::InstallFailed;
  }
  run_.message =
      "the run died when it was replacing the agent, which was started again" + thereNow();
  return UpdateResult::Exception;
}

std::string Recovery::thereNow() const {
  const auto agent = utils::queryInstalledAgent(distrib);
  return agent ? "; there is now: " + agent->text() : "";
}
