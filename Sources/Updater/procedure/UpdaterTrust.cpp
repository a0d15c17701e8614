// How a run with a settings file learns what it may install: signed releases, and the gates of the
// roll-out.

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <ctime>

#include "Updater/config/SettingsFile.h"
#include "Updater/download/PatientTransport.h"
#include "Updater/procedure/Updater.h"
#include "Updater/process/Interrupts.h"
#include "Updater/trust/SignedReleases.h"
#include "fetch/address.h"
#include "logging/QDLog.h"
#include "osal/osal_identity.h"

namespace {

UnixTime timeNow() { return UnixTime(std::chrono::seconds(std::time(nullptr))); }

/// 32 lower-case digits; all of them 0 where the machine has no id.
std::string machineId() {
  char id[33] = {};
  if (osal_getHostUID(id, sizeof id) != 0) return std::string(32, '0');
  std::string text(id);
  for (char& digit : text) digit = static_cast<char>(std::tolower(digit));
  return text;
}

std::vector<std::string> inhibitionsIn(const std::string& dropInFolder) {
  std::vector<std::string> names;
  for (const std::string& path : listDropIns(dropInFolder + "/inhibit", false).files) {
    names.push_back(boost::filesystem::path(path).filename().string());
  }
  return names;
}

UpdateResult resultOf(TrustFailure::Kind kind) {
  switch (kind) {
    case TrustFailure::Kind::Network:
      return UpdateResult::TransferFailed;
    case TrustFailure::Kind::Storage:
      return UpdateResult::Exception;
    case TrustFailure::Kind::NoRoot:
      return UpdateResult::ConfigurationFaulty;
    default:
      return UpdateResult::NotTrusted;
  }
}

UpdateResult tell(UpdateRun& run, const TrustFailure& failure) {
  const bool isFaulty = failure.kind == TrustFailure::Kind::NoRoot;
  run.message = failure.text;
  QDLOG(ROOT, ERR, (isFaulty ? "Configuration : " : "No trusted releases : ") << failure.text);
  return resultOf(failure.kind);
}

}  // namespace

Updater::Stop Updater::chooseRelease(UpdateRun& run) {
  if (!run.isSigned()) return std::nullopt;
  const FetchSettings& settings = run.settings->fetch;
  fetch::Options options = fetchOptionsOf(settings, settings.deadline);
  options.watcher = [](std::uint64_t, std::uint64_t) { return !Interrupts::came(); };
  run.repository = std::make_unique<SignedReleases>(
      run.trustFolder, run.settings->serversFrom(run.server.empty() ? serverUrl : run.server),
      options);
  run.repository->setPauseListener(run.onPause);
  if (const TrustFailure failure = run.repository->establishRoot(run.settings->trust->root)) {
    return tell(run, failure);
  }
  run.refreshed = std::chrono::steady_clock::now();
  if (const TrustFailure failure = run.repository->refresh(true)) {
    return tell(run, failure);
  }
  const RolloutDecision decision = decide(run);
  if (decision.release == nullptr) {
    if (!hasReleaseForThisMachine(run)) {
      run.message = "the repository has no release for this machine in the channel " +
                    run.settings->trust->channel;
      QDLOG(ROOT, WRN, "No release : " << run.message);
    }
    QDLOG(ROOT, NFY, "Current version is up to date. Nothing to do");
    return UpdateResult::Done;
  }
  run.available = decision.release->version;
  QDLOG(ROOT, NFY, "Available version is " << QDStreamLoggerAdapter(&run.available));
  if (decision.gate != Gate::None) return holdBack(run, decision);
  for (const SignedRelease& release : run.repository->releases()) {
    if (&release.release == decision.release) run.release = &release;
  }
  fillFromRelease(run);
  if (!run.setup.setupName.empty() && !run.release->sha256().empty()) return std::nullopt;
  run.message =
      "the release's target " + run.release->file.path + " has no plain file name, or no sha256";
  return UpdateResult::NotTrusted;
}

/// Of whatever version. Where there is none, somebody may have misspelt the channel.
bool Updater::hasReleaseForThisMachine(const UpdateRun& run) const {
  return std::ranges::any_of(run.repository->releases(), [&](const SignedRelease& signedRelease) {
    const Release& release = signedRelease.release;
    return release.os == os && release.arch == arch && release.kind == distrib &&
           release.channels.contains(run.settings->trust->channel);
  });
}

RolloutDecision Updater::decide(const UpdateRun& run) const {
  std::vector<const Release*> releases;
  for (const SignedRelease& release : run.repository->releases()) {
    releases.push_back(&release.release);
  }
  return decide(run, releases);
}

RolloutDecision Updater::decide(const UpdateRun& run,
                                const std::vector<const Release*>& releases) const {
  const RolloutSettings settings = run.settings->rollout.value_or(RolloutSettings());
  const std::vector<std::string> inhibitions = inhibitionsIn(run.dropInFolder);
  const RolloutMachine machine{.os = os,
                               .arch = arch,
                               .kind = distrib,
                               .installed = run.installed,
                               .id = machineId(),
                               .channel = run.settings->trust->channel};
  return decideRollout(releases, machine, settings, inhibitions, timeNow());
}

Updater::Stop Updater::holdBack(UpdateRun& run, const RolloutDecision& decision) const {
  run.message = decision.why;
  if (run.recorder != nullptr && decision.until) {
    run.recorder->record().deferredUntil = decision.until->time_since_epoch().count();
  }
  run.deferredUntil = decision.until ? decision.until->time_since_epoch().count() : 0;
  QDLOG(ROOT, NFY, "Deferred : " << decision.why);
  return UpdateResult::HeldBack;
}

/// For a server without signed releases the machine's own gates alone.
Updater::Stop Updater::checkGates(UpdateRun& run) {
  if (run.settings == nullptr || run.isSigned()) return std::nullopt;
  Release release;
  release.version = run.available;
  const RolloutDecision decision =
      decideRollout(release, run.settings->rollout.value_or(RolloutSettings()),
                    inhibitionsIn(run.dropInFolder), timeNow());
  return decision.gate == Gate::None ? std::nullopt : holdBack(run, decision);
}

/// A window may have closed, or the release been halted, while the package manager was waited for.
Updater::Stop Updater::checkGatesAgain(UpdateRun& run) {
  constexpr std::chrono::minutes kFresh{1};
  if (!run.isSigned()) return checkGates(run);
  if (std::chrono::steady_clock::now() - run.refreshed > kFresh) {
    if (const Stop stop = refreshRelease(run)) return stop;
  }
  const RolloutDecision decision = decide(run, {&run.release->release});
  return decision.gate == Gate::None ? std::nullopt : holdBack(run, decision);
}

/// Looks up anew what the repository says of the chosen release. Where nobody answers, what it said
/// before holds. The wait may have used up what time there was for requests.
Updater::Stop Updater::refreshRelease(UpdateRun& run) {
  const SignedRelease chosen = *run.release;
  constexpr std::chrono::minutes kLimit{1};
  run.repository->extend(std::chrono::steady_clock::now() + kLimit);
  const TrustFailure failure = run.repository->refresh(false);
  if (failure.kind == TrustFailure::Kind::Network) {
    QDLOG(ROOT, WRN, "Cannot look up again whether the release was halted : " << failure.text);
    return std::nullopt;
  }
  run.message = failure.text;
  if (failure) return resultOf(failure.kind);
  run.repository->disconnect();
  run.release = nullptr;
  for (const SignedRelease& release : run.repository->releases()) {
    if (release.file.path == chosen.file.path && release.sha256() == chosen.sha256()) {
      run.release = &release;
    }
  }
  if (run.release != nullptr) return std::nullopt;
  run.message = "the release was withdrawn while the package manager was waited for";
  return UpdateResult::HeldBack;
}

void Updater::fillFromRelease(UpdateRun& run) {
  utils::SetuParameter& setup = run.setup;
  const SignedRelease& release = *run.release;
  distrib = release.release.kind;
  setup.setupName = release.fileName();
  setup.setupUrl = serverUrl + "/targets/" + release.file.path;
  setup.setupPath = utils::joinPath(tempDir, setup.setupName);
  setup.pkgName = utils::withoutExtension(setup.setupName);
  setup.setupSize = release.file.length;
  run.expectedSize = release.file.length;
  switch (os) {
    case utils::OsWindows:
      fillInstallSetupParamForWindows(setup);
      break;
    case utils::OsMacOSX:
      fillInstallSetupParamForMacOSX(setup);
      break;
    case utils::OsLinux:
      fillInstallSetupParamForLinux(setup);
      break;
    case utils::OsUnknown:
      break;
  }
  if (run.emulated) setup.installCmd = "arch -arch arm64 " + setup.installCmd;
  logParameters(setup);
}

Updater::Stop Updater::downloadSigned(UpdateRun& run) {
  const UpdateResult result = askServers(run, *run.release, true, [&](const std::string& address) {
    return downloadSignedFrom(address, run);
  });
  if (result == UpdateResult::Done) return std::nullopt;
  if (result == UpdateResult::NotTrusted) {
    run.message = "the package is not the one that was signed";
  }
  return result;
}

/// One that has no answer for the moment, or is too slow, is waited for when no other has the file.
UpdateResult Updater::askServers(const UpdateRun& run, const SignedRelease& release, bool isLast,
                                 const Download& download) {
  std::vector<std::string> left = run.repository->addressesOf(release);
  const bool isAlone = left.size() == 1;
  bool refused = false;
  for (const bool patient : {false, true}) {
    if (!patient && isAlone) continue;
    std::vector<std::string> failed;
    for (const std::string& address : left) {
      const bool isLastOfAll = isLast && patient && &address == &left.back();
      httpClient.setPatient(patient);
      httpClient.setSharing(!isAlone && !isLastOfAll);
      UpdateResult result = download(withoutPassword(address));
      if (result == UpdateResult::NotTrusted && !isAlone && httpClient.downloadWasResumed()) {
        result = download(withoutPassword(address));  // the fault may be in what another began
      }
      httpClient.setPatient(true);
      httpClient.setSharing(false);
      if (result == UpdateResult::Done) return result;
      if (run.isInterrupted()) return UpdateResult::TransferFailed;
      refused = refused || result == UpdateResult::NotTrusted;
      if (result == UpdateResult::TransferFailed) failed.push_back(address);
    }
    left = std::move(failed);
  }
  return refused ? UpdateResult::NotTrusted : UpdateResult::TransferFailed;
}

UpdateResult Updater::downloadSignedFrom(const std::string& address, UpdateRun& run) {
  ++run.attempts;
  run.enter(Phase::Fetch);
  PackageFile& package = run.package;
  const std::string& path = run.setup.setupPath;
  httpClient.setDownloadLimit(run.expectedSize);
  const bool acquired = package.acquire(path);
  const int r = acquired ? httpClient.download(address, package.fd(), run.headers, path) : -1;
  if (r != 0) {
    QDLOG(ROOT, ERR, "'Fail to download setup file: [" << r << "]");
    return httpClient.downloadWasTooLong() ? UpdateResult::NotTrusted
                                           : UpdateResult::TransferFailed;
  }
  run.enter(Phase::Verify);
  package.remember();
  const std::string& computed = run.sha256 = httpClient.sha256OfDownload();
  QDLOG(ROOT, NFY, "Setup downloaded [" << package.size() << " bytes]");
  if (package.isUntouched() && package.size() == run.expectedSize && !computed.empty() &&
      computed == run.release->sha256()) {
    QDLOG(ROOT, NFY, "Computed sha256 is " << computed);
    return UpdateResult::Done;
  }
  QDLOG(ROOT, ERR, "Not what was signed : " << computed << " vs " << run.release->sha256());
  package.remove();
  return UpdateResult::NotTrusted;
}
