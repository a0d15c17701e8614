// What a run with a settings file sees to before the agent is stopped, so that it is not stopped
// for a package that then can't be installed.

#include <algorithm>
#include <boost/filesystem/operations.hpp>

#include "Updater/package/hold.h"
#include "Updater/package/installedAgent.h"
#include "Updater/prepare/rehearsal.h"
#include "Updater/prepare/room.h"
#include "Updater/procedure/Updater.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/process/Interrupts.h"
#include "logging/QDLog.h"

bool Updater::prepares(const UpdateRun& run) const {
  return run.settings != nullptr && !skipInstall &&
         (distrib == utils::DistribDeb || distrib == utils::DistribRpm);
}

Updater::Stop Updater::checkHold(UpdateRun& run) {
  if (!prepares(run)) return std::nullopt;
  const std::string command = utils::endOfHold(distrib);
  if (command.empty()) return std::nullopt;
  run.message = "the package qdagent is on hold; " + command + " ends that";
  QDLOG(ROOT, NFY, "Deferred : " << run.message);
  return UpdateResult::HeldBack;
}

Updater::Stop Updater::checkDownloadRoom(UpdateRun& run) {
  return run.settings == nullptr ? std::nullopt : checkRoom(run, tempDir, run.expectedSize);
}

Updater::Stop Updater::checkInstallRoom(UpdateRun& run) {
  if (!prepares(run)) return std::nullopt;
  run.facts = utils::readPackageFacts(distrib, run.setup.setupPath);
  run.roomNeeded = roomFor(run.setup.setupPath, run.facts);
  if (const Stop stop = checkRoom(run, utils::placeOfAgent(distrib), run.roomNeeded)) return stop;
  // It may lie on a file system of its own.
  return checkRoom(run, utils::placeOfDatabase(distrib), 0);
}

/// A package that does not say how large it will be takes at least its own size.
unsigned long long Updater::roomFor(const std::string& package, const utils::PackageFacts& facts) {
  boost::system::error_code failed;
  const auto size = boost::filesystem::file_size(package, failed);
  return std::max<unsigned long long>(failed ? 0 : size, facts.installedSize);
}

Updater::Stop Updater::checkRoom(UpdateRun& run, const std::string& path,
                                 unsigned long long bytes) const {
  run.message = utils::missingRoom(path, bytes, run.settings->install.reserve);
  if (run.message.empty()) return std::nullopt;
  QDLOG(ROOT, ERR, "Refused : " << run.message);
  return UpdateResult::NoRoom;
}

Updater::Stop Updater::completePackageManager(UpdateRun& run) {
  if (!prepares(run) || !utils::isHalfDone(distrib)) return std::nullopt;
  if (const Stop stop = waitForPackageManager(run)) return stop;
  // Whoever held the lock may just have been at work.
  if (utils::isHalfDone(distrib)) {
    QDLOG(ROOT, NFY, "Completing what dpkg has left half done");
    if (!utils::completeHalfDone()) {
      QDLOG(ROOT, WRN, "dpkg could not complete what it has left half done");
    }
  }
  run.packageManager.release();
  return std::nullopt;
}

Updater::Stop Updater::installLibraries(UpdateRun& run) {
  if (!prepares(run) || !needsXCBDeps(os, run.installed, run.available)) return std::nullopt;
  if (const Stop stop = waitForPackageManager(run)) return stop;
  run.packageManager.release();  // the installer takes it itself
  installXCBDeps(run);
  return std::nullopt;
}

Updater::Stop Updater::rehearse(UpdateRun& run) {
  if (!prepares(run)) return std::nullopt;
  if (const std::string fault = utils::identityFault(run.facts, run.available); !fault.empty()) {
    return refuseInstallation(run, fault);
  }
  if (!run.settings->install.rehearse) return std::nullopt;
  QDLOG(ROOT, NFY, "Rehearsing the installation");
  const auto rehearsal = [&] {
    return utils::rehearse(distrib, run.setup.setupPath, run.facts, &Interrupts::came);
  };
  std::string refusal = rehearsal();
  if (!refusal.empty() && !run.isInterrupted()) {
    // Somebody else's installation may have been half way: what counts is what holds without it.
    if (const Stop stop = waitForPackageManager(run)) return stop;
    refusal = rehearsal();
    run.packageManager.release();
  }
  return refusal.empty() ? std::nullopt : refuseInstallation(run, refusal);
}

Updater::Stop Updater::refuseInstallation(UpdateRun& run, const std::string& refusal) const {
  const auto agent = utils::queryInstalledAgent(distrib);
  run.cause = "rehearsal";
  run.message = "the installation would fail, so nothing was stopped: " + refusal;
  if (agent) run.message += "; there is now: " + agent->text();
  QDLOG(ROOT, ERR, "Rehearsal failed : " << refusal);
  return UpdateResult::InstallFailed;
}

Updater::Stop Updater::lockPackageManager(UpdateRun& run) {
  if (!prepares(run)) return std::nullopt;
  if (const Stop stop = waitForPackageManager(run)) return stop;
  return checkUntouched(run);
}

Updater::Stop Updater::waitForPackageManager(UpdateRun& run) const {
  const std::chrono::seconds limit = run.settings->install.lockWait;
  switch (run.packageManager.acquire(distrib, limit, &Interrupts::came)) {
    case PackageManagerLock::Result::Free:
      return std::nullopt;
    case PackageManagerLock::Result::Cancelled:
      return UpdateResult::Interrupted;
    case PackageManagerLock::Result::Busy:
      break;
  }
  run.message =
      run.packageManager.holder() + ", still after " + std::to_string(limit.count()) + " s";
  QDLOG(ROOT, ERR, "The package manager is busy : " << run.message);
  return UpdateResult::PackageManagerBusy;
}

/// Preparations take their time, in which somebody could have exchanged the package.
Updater::Stop Updater::checkUntouched(UpdateRun& run) const {
  if (usesDiskImage() ? run.package.isStillThere() : run.package.isUntouched()) return std::nullopt;
  run.message = "the package was exchanged after its verification";
  return UpdateResult::WrongDigest;
}
