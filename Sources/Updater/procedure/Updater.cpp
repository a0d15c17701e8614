#include "Updater/procedure/Updater.h"

#include <boost/filesystem/operations.hpp>
#include <cstdio>
#include <exception>

#include "Updater/outcome/hooks.h"
#include "Updater/package/utilsPackage.h"
#include "Updater/procedure/lockFile.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/process/Interrupts.h"
#include "Updater/process/agentUnit.h"
#include "base/osal/osalnet.h"
#include "logging/QDLog.h"

namespace fs = boost::filesystem;

namespace {

void detach(utils::AttachedImage& image) {
  utils::unmount(image.device);
  image = {};
}

}  // namespace

int Updater::checkAndUpdate(const std::string& url, const std::string& currentVersion) {
  announce(url, currentVersion);
  if (!checkLockFile()) return static_cast<int>(UpdateResult::Done);
  const int result = doCheckAndUpdate(url, currentVersion);
  if (skipInstall || result == static_cast<int>(UpdateResult::NotAdministrator) ||
      result == static_cast<int>(UpdateResult::TransferFailed)) {
    removeLockFile();
  }
  return result;
}

void Updater::announce(const std::string& url, const std::string& currentVersion) {
  QDLOG(ROOT, NFY, "Check Update");
  QDLOG(ROOT, NFY, "Current version : " << currentVersion);
  QDLOG(ROOT, NFY, "Udpate server : " << url);
}

bool Updater::checkLockFile() { return takeLock(lockTimeNow()); }

bool Updater::takeLock(long long now) try {
  lockFilePath = placeOfLock();
  const fs::file_type type = fs::symlink_status(lockFilePath).type();
  if (type != fs::regular_file) {
    if (type != fs::file_not_found) std::remove(lockFilePath.c_str());
    QDLOG(ROOT, NFY, "Lock file is [" << lockFilePath << "]");
    if (!writeLock(lockFilePath, now)) QDLOG(ROOT, ERR, "Failed to open lock file");
    return true;
  }

  QDLOG(ROOT, DBG, "Lock file is [" << lockFilePath << "]");
  const long long lockTime = readLock(lockFilePath);
  if (lockHolds(lockTime, now)) {
    QDLOG(ROOT, NFY,
          "Another instance of has been launched less than one hour ago "
              << lockTimeText(lockTime) << " : lock file location is " << lockFilePath);
    return false;
  }
  writeLock(lockFilePath, now);
  return true;
} catch (const std::exception& e) {
  QDLOG(ROOT, ERR, "checkLockFile error : " << e.what());
  return false;
}

bool Updater::checkLockFile(StateFolder& folder) {
  if (!folder.holdsLock()) return checkLockFile();
  const long long now = lockTimeNow();
  const std::string path = placeOfLock();
  if (!lockHoldsBeside(findLock(path), folder.lockNote(), now)) std::remove(path.c_str());
  // Noted first: a run that dies in between must not leave a lock that nobody knows.
  folder.setLockNote(std::to_string(now));
  return takeLock(now);
}

void Updater::removeLockFile() {
  QDLOG(ROOT, NFY, "Remove lock file");
  std::remove(lockFilePath.c_str());
}

int Updater::doCheckAndUpdate(const std::string& url, const std::string& currentVersion) {
  UpdateRun run;
  run.installedText = currentVersion;
  return static_cast<int>(perform(url, run));
}

UpdateResult Updater::perform(const std::string& url, UpdateRun& run) try {
  static constexpr Step kSteps[] = {
      {Phase::Check, &Updater::identifySystem},
      {Phase::Check, &Updater::checkAdministrator},
      {Phase::Check, &Updater::parseInstalledVersion},
      {Phase::Check, &Updater::findTempDir},
      {Phase::Check, &Updater::identifyArchitecture},
      {Phase::Check, &Updater::chooseRelease},
      {Phase::Check, &Updater::chooseParameters},
      {Phase::Check, &Updater::compareVersions},
      {Phase::Check, &Updater::checkKnownBad},
      {Phase::Check, &Updater::checkGates},
      {Phase::Check, &Updater::checkAgentUnit},
      {Phase::Check, &Updater::checkHold},
      {Phase::Fetch, &Updater::fetchDigest},
      {Phase::Fetch, &Updater::querySize},
      {Phase::Fetch, &Updater::checkDownloadRoom},
      {Phase::Fetch, &Updater::secureWayBack},
      {Phase::Fetch, &Updater::obtainPackage},
      {Phase::Prepare, &Updater::checkInstallRoom},
      {Phase::Prepare, &Updater::completePackageManager},
      {Phase::Prepare, &Updater::installLibraries},
      {Phase::Prepare, &Updater::rehearse},
      {Phase::Prepare, &Updater::runBeforeHooks},
      {Phase::Prepare, &Updater::checkHealthBefore},
      {Phase::Prepare, &Updater::prepareWayBack},
      {Phase::Prepare, &Updater::lockPackageManager},
      {Phase::Prepare, &Updater::checkHold},  // it may have been wanted since
      {Phase::Prepare, &Updater::checkGatesAgain},
      {Phase::Prepare, &Updater::openWindow},
      {Phase::Stop, &Updater::replaceAgent},
  };
  serverUrl = url;
  return take(kSteps, run);
} catch (const std::exception& e) {
  QDLOG(ROOT, ERR, "Exception : " << e.what());
  return UpdateResult::Exception;
}

UpdateResult Updater::checkOnly(const std::string& url, UpdateRun& run) try {
  static constexpr Step kSteps[] = {
      {Phase::Check, &Updater::identifySystem},  {Phase::Check, &Updater::parseInstalledVersion},
      {Phase::Check, &Updater::findTempDir},     {Phase::Check, &Updater::identifyArchitecture},
      {Phase::Check, &Updater::chooseRelease},   {Phase::Check, &Updater::chooseParameters},
      {Phase::Check, &Updater::compareVersions}, {Phase::Check, &Updater::checkKnownBad},
      {Phase::Check, &Updater::checkGates},      {Phase::Check, &Updater::fetchDigest},
  };
  serverUrl = url;
  const UpdateResult result = take(kSteps, run);
  const bool isNewer = result == UpdateResult::Done && run.installed < run.available;
  return isNewer ? UpdateResult::UpdateAvailable : result;
} catch (const std::exception& e) {
  QDLOG(ROOT, ERR, "Exception : " << e.what());
  return UpdateResult::Exception;
}

UpdateResult Updater::take(std::span<const Step> steps, UpdateRun& run) {
  for (const Step& step : steps) {
    if (run.isInterrupted()) return giveUp(run, UpdateResult::Interrupted);
    run.enter(step.phase);
    const Stop stop = (this->*step.take)(run);
    if (!stop) continue;
    if (step.phase == Phase::Stop || *stop == UpdateResult::Done) return *stop;
    return giveUp(run, run.isInterrupted() ? UpdateResult::Interrupted : *stop);
  }
  return UpdateResult::Done;
}

/// The run ends before the agent is stopped.
UpdateResult Updater::giveUp(UpdateRun& run, UpdateResult result) {
  if (!run.image.device.empty()) detach(run.image);
  if (result == UpdateResult::Interrupted) {
    run.message = "interrupted; nothing was changed";
    run.cause.clear();
    QDLOG(ROOT, WRN, "Interrupted. Nothing was changed");
  }
  return result;
}

Updater::Stop Updater::identifySystem(UpdateRun& /*run*/) {
  os = utils::getOS();
  QDLOG(ROOT, NFY, "OS is [" << utils::agentOSToString(os) << "]");
  if (os == utils::OsWindows) distrib = utils::DistribExe;
  if (os == utils::OsLinux) {
    distrib = utils::linuxDistrib(utils::isSyno(), utils::isDebian());
    QDLOG(ROOT, NFY, "distrib is [" << utils::agentDistribToString(distrib) << "]");
  }
  return std::nullopt;
}

Updater::Stop Updater::checkAdministrator(UpdateRun& run) {
  if (utils::checkAdmin()) return std::nullopt;
  run.message = "only root may replace the agent";
  QDLOG(ROOT, ERR, "Need priveledged user or root user");
  return UpdateResult::NotAdministrator;
}

Updater::Stop Updater::parseInstalledVersion(UpdateRun& run) {
  run.installed = Version(run.installedText);
  if (run.installed.isValid()) return std::nullopt;
  QDLOG(ROOT, ERR, "Invalid current version " << run.installedText);
  return UpdateResult::InvalidInstalledVersion;
}

Updater::Stop Updater::findTempDir(UpdateRun& run) {
  tempDir = run.downloadFolder.empty() ? utils::getTempDir() : run.downloadFolder;
  if (tempDir.empty()) {
    QDLOG(ROOT, ERR, "Cannot get temp directory location");
    return UpdateResult::Exception;
  }
  QDLOG(ROOT, NFY, "tempdir is [" << tempDir << "]");
  return std::nullopt;
}

Updater::Stop Updater::identifyArchitecture(UpdateRun& run) {
  std::string name = utils::getArch();
  if (name.empty()) {
    QDLOG(ROOT, ERR, "Cannot get architecture");
    return UpdateResult::UnsupportedArchitecture;
  }
  arch = utils::stringToAgentArch(name);
  if (arch == utils::ArchUnknown) {
    QDLOG(ROOT, ERR, "Invalid architecture");
    return UpdateResult::UnsupportedArchitecture;
  }
  if (arch == utils::ArchAmd64 && isEmulation()) {
    name = "arm64";
    arch = utils::ArchArm64;
    run.emulated = true;
  }
  QDLOG(ROOT, NFY, "arch  is [" << name << "]");
  return std::nullopt;
}

Updater::Stop Updater::chooseParameters(UpdateRun& run) {
  if (run.isSigned()) return std::nullopt;
  utils::SetuParameter& setup = run.setup;
  setup = getAgentSetup();
  if (run.emulated) setup.installCmd = "arch -arch arm64 " + setup.installCmd;
  logParameters(setup);
  return std::nullopt;
}

void Updater::logParameters(const utils::SetuParameter& setup) {
  QDLOG(ROOT, NFY, "version url = " << setup.versionUrl);
  QDLOG(ROOT, NFY, "setup url   = " << setup.setupUrl);
  QDLOG(ROOT, NFY, "setup path  = " << setup.setupPath);
  QDLOG(ROOT, NFY, "hash url    = " << setup.hashUrl);
  QDLOG(ROOT, NFY, "star cmd    = " << setup.startCmd);
  QDLOG(ROOT, NFY, "stop cmd    = " << setup.stopCmd);
  QDLOG(ROOT, NFY, "install cmd = " << setup.installCmd);
}

Updater::Stop Updater::compareVersions(UpdateRun& run) {
  if (run.isSigned()) return std::nullopt;
  std::string text = run.setup.versionContent;
  if (os != utils::OsMacOSX || text.empty()) {
    if (const int r = httpClient.get(run.setup.versionUrl, text, run.headers); r != 0) {
      QDLOG(ROOT, ERR, "Failed to download version:  [" << r << "]");
      return UpdateResult::TransferFailed;
    }
  }
  run.available = Version(text);
  if (!run.available.isValid()) {
    QDLOG(ROOT, ERR, "Invalid version_long.txt " << text);
    return UpdateResult::InvalidServerVersion;
  }
  QDLOG(ROOT, NFY, "Available version is " << QDStreamLoggerAdapter(&run.available));
  if (run.available <= run.installed) {
    QDLOG(ROOT, NFY, "Current version is up to date. Nothing to do");
    return UpdateResult::Done;
  }
  return std::nullopt;
}

Updater::Stop Updater::checkAgentUnit(UpdateRun& /*run*/) {
  if (!isInAgentUnit()) return std::nullopt;
  // Stopping the agent would end this process, and nobody would start the agent again.
  QDLOG(ROOT, ERR, "Cannot stop the agent from within its own unit");
  return UpdateResult::Exception;
}

Updater::Stop Updater::fetchDigest(UpdateRun& run) {
  if (run.isSigned() || !run.expectedMd5.empty()) return std::nullopt;
  std::string body;
  if (const int r = httpClient.get(run.setup.hashUrl, body, run.headers); r != 0) {
    QDLOG(ROOT, ERR, "No file signature available (skip verification): [" << r << "]");
  } else if (const std::optional<std::string> digest = digestIn(body)) {
    run.expectedMd5 = *digest;
    QDLOG(ROOT, NFY, "Downloaded md5 is " << run.expectedMd5);
  }
  if (run.settings == nullptr || !run.expectedMd5.empty()) return std::nullopt;
  run.cause = "no-digest";
  run.message = "without a digest nothing is installed: there is none at " + run.setup.hashUrl;
  QDLOG(ROOT, ERR, "Refused : " << run.message);
  return UpdateResult::InstallFailed;
}

Updater::Stop Updater::querySize(UpdateRun& run) {
  if (run.isSigned()) return std::nullopt;
  if (os == utils::OsMacOSX && run.setup.setupSize != 0) {
    run.expectedSize = run.setup.setupSize;
  } else {
    if (const int r = httpClient.head(run.setup.setupUrl, run.headers); r != 0) {
      QDLOG(ROOT, ERR, "Fail to get HEAD for " << run.setup.setupUrl << ": [" << r << " ]");
      return UpdateResult::TransferFailed;
    }
    if (utils::getContentLength(run.headers, run.expectedSize) != 0) {
      QDLOG(ROOT, ERR, "Fail to determine file size");
      return UpdateResult::WrongDigest;
    }
  }
  QDLOG(ROOT, NFY,
        "File size for " << run.setup.setupUrl << " is " << run.expectedSize << " bytes");
  return std::nullopt;
}

Updater::Stop Updater::obtainPackage(UpdateRun& run) {
  for (;;) {
    if (const Stop stop = run.isSigned() ? downloadSigned(run) : downloadVerified(run)) return stop;
    httpClient.cleanup();  // the commands that follow must not inherit its sockets
    if (run.repository != nullptr) run.repository->disconnect();
    if (run.package.isUntouched()) {
      if (!usesDiskImage()) return std::nullopt;
      if (const Stop stop = attachImage(run)) return stop;
      if (run.package.isStillThere()) return std::nullopt;
      detach(run.image);
    }
    // Somebody exchanged the package after its verification: it counts as one with a wrong digest,
    // which is that of the file that lies there now.
    run.lastFailure = rejectPackage(run, utils::computeMD5(run.setup.setupPath));
  }
}

Updater::Stop Updater::downloadVerified(UpdateRun& run) {
  while (run.attempts < UpdateRun::kMaxAttempts) {
    ++run.attempts;
    const UpdateResult result = downloadOnce(run);
    if (result == UpdateResult::Done) return std::nullopt;
    if (result == UpdateResult::TransferFailed) return result;
    run.lastFailure = result;
  }
  const bool wrongSize = run.lastFailure == UpdateResult::WrongSize;
  QDLOG(ROOT, ERR, (wrongSize ? "Invalid setup size" : "Invalid setup md5"));
  return run.lastFailure;
}

UpdateResult Updater::downloadOnce(UpdateRun& run) {
  PackageFile& package = run.package;
  run.enter(Phase::Fetch);
  httpClient.setDownloadLimit(downloadLimit(run.expectedSize));
  const bool acquired = package.acquire(run.setup.setupPath);
  const int r = acquired ? httpClient.download(run.setup.setupUrl, package.fd(), run.headers,
                                               run.setup.setupPath)
                         : -1;
  if (r != 0) {
    QDLOG(ROOT, ERR, "'Fail to download setup file: [" << r << "]");
    return UpdateResult::TransferFailed;
  }
  const unsigned long long size = package.size();
  QDLOG(ROOT, NFY, "Setup downloaded [" << size << " bytes]");
  if (size != run.expectedSize) {
    QDLOG(ROOT, WRN,
          "Downloaded size is " << size << " bytes. Expected size is " << run.expectedSize
                                << " bytes - try again");
    if (run.settings != nullptr) package.remove();  // there is nothing to go on with
    return UpdateResult::WrongSize;
  }
  return verifyDigest(run);
}

UpdateResult Updater::verifyDigest(UpdateRun& run) {
  run.enter(Phase::Verify);
  run.package.remember();
  run.sha256 = httpClient.sha256OfDownload();
  const bool untouched = run.package.isUntouched();
  if (untouched && run.expectedMd5.empty()) return UpdateResult::Done;
  std::string computed = untouched ? httpClient.md5OfDownload() : "";
  if (computed.empty()) {
    computed = untouched ? run.package.md5() : utils::computeMD5(run.setup.setupPath);
  }
  if (!untouched || computed != run.expectedMd5) return rejectPackage(run, computed);
  QDLOG(ROOT, NFY, "Computed md5 is " << computed);
  return UpdateResult::Done;
}

UpdateResult Updater::rejectPackage(UpdateRun& run, const std::string& computed) {
  QDLOG(ROOT, WRN,
        "Re-download setup file because current one has a wrong hash: " << computed << " vs "
                                                                        << run.expectedMd5);
  run.package.remove();
  return UpdateResult::WrongDigest;
}

Updater::Stop Updater::runBeforeHooks(UpdateRun& run) {
  if (run.hooks.empty()) return std::nullopt;
  run.message = runHooks(run.hooks, kBeforeHooks, run.recorder->record(), true, &Interrupts::came);
  if (!run.message.empty()) return UpdateResult::HookRefused;
  return checkUntouched(run);
}

bool Updater::usesDiskImage() const {
  return os == utils::OsMacOSX && distrib == utils::DistribDmg;
}

Updater::Stop Updater::attachImage(UpdateRun& run) {
  utils::SetuParameter& setup = run.setup;
  run.package.handOver();
  const int r = utils::attach(setup.pkgName, setup.setupPath, run.image);
  setup.mountedDevice = run.image.device;
  if (r == 0) return std::nullopt;
  QDLOG(ROOT, ERR, "Unable to attach setup");
  return UpdateResult::AttachFailed;
}
