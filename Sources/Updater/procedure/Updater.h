#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "Updater/net/HttpClient.h"
#include "Updater/outcome/StateFolder.h"
#include "Updater/procedure/AgentService.h"
#include "Updater/procedure/UpdateRun.h"
#include "Updater/rollout/decision.h"
#include "Updater/setup/utilsSetup.h"
#include "Updater/terms/UpdateResult.h"
#include "Updater/terms/utilsPlatform.h"

/// The update of one agent, run once per process and on one thread: takes the lock, asks the
/// server, downloads and verifies the package, replaces the agent. Every step is logged in module
/// ROOT.
class Updater {
 public:
  /// `skip`: the agent is stopped and started again, but nothing is installed.
  explicit Updater(bool skip) : skipInstall(skip) {}
  Updater(const Updater&) = delete;
  Updater& operator=(const Updater&) = delete;
  virtual ~Updater() = default;

  /// Runs the update under the lock. `url` is the server's address without a slash at its end,
  /// `currentVersion` the version that is installed. Returns the exit status of the process; 0 also
  /// when another run holds the lock.
  int checkAndUpdate(const std::string& url, const std::string& currentVersion);

  /// The update procedure itself; returns an UpdateResult as a number. No std::exception leaves it.
  int doCheckAndUpdate(const std::string& url, const std::string& currentVersion);

  /// The same with what the caller set in `run` and finds there afterwards.
  UpdateResult perform(const std::string& url, UpdateRun& run);

  /// Asks the server alone: the first steps of the procedure, and for the digest. Done: the
  /// installed version is up to date; UpdateAvailable: it is not, and `run.available` is the
  /// version to install, as it is with InstallFailed, where there is no digest. Changes nothing and
  /// needs no rights. No std::exception leaves it.
  UpdateResult checkOnly(const std::string& url, UpdateRun& run);

  /// Logs what a run is about to do.
  static void announce(const std::string& url, const std::string& currentVersion);

  /// Takes the lock: true when this run may go on, false when another run holds it or it can't be
  /// read.
  bool checkLockFile();

  /// The same for a run that holds the lock of `folder`, if there is one: that one decides, so a
  /// lock that lies in the future, that a run left that died, or that can't be read does not hold.
  bool checkLockFile(StateFolder& folder);

  /// Removes the lock, even one that another run has taken meanwhile.
  void removeLockFile();

  /// The entry of a definition file that fits this machine, or an empty one, after an ERR record,
  /// when the file is faulty. No std::exception leaves it.
  utils::AgentSetupDef parseAgentSetupCfg(const std::string& text);

  /// The setup parameters for this machine, from the server's definition file or, when it has none,
  /// by the built-in rules. Throws std::runtime_error when there are none.
  utils::SetuParameter getAgentSetup();

  // The built-in rules, by operating system: URLs, names, local path and commands. Each fills `p`
  // and returns it; throws std::runtime_error where a machine is not supported.
  utils::SetuParameter& fillDefaultSetupParamForWindows(utils::SetuParameter& p);
  utils::SetuParameter& fillDefaultSetupParamForMacOSX(utils::SetuParameter& p);
  utils::SetuParameter& fillDefaultSetupParamForLinux(utils::SetuParameter& p);

  // The commands alone; `setupPath` and `distrib` are set already.
  utils::SetuParameter& fillInstallSetupParamForWindows(utils::SetuParameter& p);
  utils::SetuParameter& fillInstallSetupParamForMacOSX(utils::SetuParameter& p);
  utils::SetuParameter& fillInstallSetupParamForLinux(utils::SetuParameter& p);

  /// What the discovery on a macOS server found.
  struct SetupInfo {
    std::string rootPath;  ///< the server folder that answered
    std::string setupUrl;
    std::string setupName;
    std::string pkgName;
    std::string versionContent;
    unsigned long long setupSize = 0;
  };

  /// Tries the candidate folders, then the candidate packages in the first that answers. Returns 0;
  /// 3 for an architecture without candidates, 5 when no folder answers, 7 for a package without a
  /// length. When no package answers the result is 0 with an empty name.
  int getSetupRootPath(const std::string& server, const std::string& archName, SetupInfo& info);

  bool skipInstall;
  std::string lockFilePath;
  HttpClient httpClient;
  std::string serverUrl;
  std::string tempDir;
  utils::AgentArch arch = utils::ArchUnknown;
  utils::AgentOS os = utils::OsUnknown;
  utils::AgentDistrib distrib = utils::DistribNone;

 protected:
  bool takeLock(long long now);

  /// The result that ends the procedure; empty: it goes on with the next step.
  using Stop = std::optional<UpdateResult>;

  // The steps of the procedure, in order.
  Stop identifySystem(UpdateRun& run);
  Stop checkAdministrator(UpdateRun& run);
  Stop parseInstalledVersion(UpdateRun& run);
  Stop findTempDir(UpdateRun& run);
  Stop identifyArchitecture(UpdateRun& run);
  Stop chooseRelease(UpdateRun& run);
  Stop chooseParameters(UpdateRun& run);
  Stop compareVersions(UpdateRun& run);
  Stop checkKnownBad(UpdateRun& run);
  Stop checkGates(UpdateRun& run);
  Stop checkAgentUnit(UpdateRun& run);
  Stop fetchDigest(UpdateRun& run);
  Stop querySize(UpdateRun& run);
  Stop obtainPackage(UpdateRun& run);
  Stop runBeforeHooks(UpdateRun& run);
  Stop checkHealthBefore(UpdateRun& run);
  Stop secureWayBack(UpdateRun& run);
  Stop prepareWayBack(UpdateRun& run);

  // Steps of a run with a settings file, which has everything fit before the agent is stopped.
  // They look at packages of Debian and of rpm alone.
  Stop checkHold(UpdateRun& run);
  Stop checkDownloadRoom(UpdateRun& run);
  Stop checkInstallRoom(UpdateRun& run);
  Stop completePackageManager(UpdateRun& run);
  Stop installLibraries(UpdateRun& run);
  Stop rehearse(UpdateRun& run);
  Stop refuseInstallation(UpdateRun& run, const std::string& refusal) const;
  Stop lockPackageManager(UpdateRun& run);
  Stop checkGatesAgain(UpdateRun& run);
  Stop openWindow(UpdateRun& run);

  Stop replaceAgent(UpdateRun& run);

  /// One step and the phase that it belongs to.
  struct Step {
    Phase phase;
    Stop (Updater::*take)(UpdateRun&);
  };
  UpdateResult take(std::span<const Step> steps, UpdateRun& run);
  static UpdateResult giveUp(UpdateRun& run, UpdateResult result);

  // Parts of these.
  [[nodiscard]] bool prepares(const UpdateRun& run) const;
  Stop waitForPackageManager(UpdateRun& run) const;
  static unsigned long long roomFor(const std::string& package, const utils::PackageFacts& facts);
  Stop checkRoom(UpdateRun& run, const std::string& path, unsigned long long bytes) const;
  Stop checkUntouched(UpdateRun& run) const;

  // Parts of chooseRelease and checkGates.
  [[nodiscard]] bool hasReleaseForThisMachine(const UpdateRun& run) const;
  RolloutDecision decide(const UpdateRun& run) const;
  RolloutDecision decide(const UpdateRun& run, const std::vector<const Release*>& releases) const;
  static Stop refreshRelease(UpdateRun& run);
  Stop holdBack(UpdateRun& run, const RolloutDecision& decision) const;
  void fillFromRelease(UpdateRun& run);
  static void logParameters(const utils::SetuParameter& setup);

  // Parts of obtainPackage. downloadOnce returns Done, TransferFailed, WrongSize or WrongDigest.
  Stop downloadVerified(UpdateRun& run);
  Stop downloadSigned(UpdateRun& run);

  /// From an address; Done, TransferFailed, or NotTrusted where it is another file.
  using Download = std::function<UpdateResult(const std::string& address)>;

  /// Downloads the release from the first server that has it. `isLast`: nothing is downloaded
  /// after it.
  UpdateResult askServers(const UpdateRun& run, const SignedRelease& release, bool isLast,
                          const Download& download);
  UpdateResult downloadSignedFrom(const std::string& address, UpdateRun& run);
  UpdateResult downloadOnce(UpdateRun& run);
  UpdateResult verifyDigest(UpdateRun& run);
  UpdateResult rejectPackage(UpdateRun& run, const std::string& computed);
  Stop attachImage(UpdateRun& run);
  [[nodiscard]] bool usesDiskImage() const;

  // Parts of replaceAgent. Once the agent is being stopped nothing throws, so that it is always
  // started.
  bool installAgent(UpdateRun& run, bool withXCBDeps) const noexcept;
  int runInstallation(UpdateRun& run) const noexcept;
  void installXCBDeps(const UpdateRun& run) const noexcept;
  UpdateResult judgeReplacement(UpdateRun& run, bool installed, bool started) const;

  // After it.
  [[nodiscard]] bool looksAfter(const UpdateRun& run) const;
  UpdateResult judgeHealth(UpdateRun& run, const AgentService& service, UpdateResult replaced,
                           std::time_t stopped);
  UpdateResult goBack(UpdateRun& run, UpdateResult replaced, std::time_t stopped);

  // Parts of secureWayBack and prepareWayBack; findWayBack returns why there is none.
  std::string findWayBack(UpdateRun& run);
  bool fetchFormer(UpdateRun& run, const SignedRelease& former);
  bool findFormerInCache(UpdateRun& run) const;
  bool keep(UpdateRun& run, const std::string& path, const KeptPackage& package) const;
  void keepInstalled(UpdateRun& run) const;
};
