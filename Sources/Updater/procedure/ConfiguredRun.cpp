#include "Updater/procedure/ConfiguredRun.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <utility>

#include "Updater/download/PartialFile.h"
#include "Updater/outcome/hooks.h"
#include "Updater/package/installedAgent.h"
#include "Updater/prepare/room.h"
#include "Updater/procedure/LastError.h"
#include "Updater/procedure/lockFile.h"
#include "Updater/process/Interrupts.h"
#include "Updater/terms/utilsPlatform.h"
#include "fetch/address.h"
#include "ground/osal_ownfile.h"
#include "logging/QDLog.h"

namespace {

/// Only who may read whose lock it is can tell that the run died.
bool isLockedBeside(const RunPlaces& places) try {
  const std::string note = places.stateFolder + "/lock";
  if (::access(note.c_str(), F_OK) == 0 && ::access(note.c_str(), R_OK) != 0) return false;
  const std::string former = readStateFile(places.stateFolder, "lock");
  return lockHoldsBeside(findLock(placeOfLock()), former, lockTimeNow());
} catch (const std::exception&) {
  return false;  // without a temporary folder there is no lock
}

/// What does not even begin to replace the agent.
bool leavesItAlone(UpdateResult result) {
  return result == UpdateResult::Done || result == UpdateResult::HeldBack ||
         result == UpdateResult::KnownBad;
}

}  // namespace

RunPlaces RunPlaces::ofInstance(const std::string& instance) {
  return {.settingsFile = settingsFileOf(utils::getConfigurationFolder(), instance),
          .dropInFolder = dropInFolderOf(utils::getConfigurationFolder()),
          .stateFolder = stateFolderOf(instance)};
}

std::string trustFolderOf(const RunPlaces& places) { return places.stateFolder + "/tuf"; }

ConfiguredRun::ConfiguredRun(SettingsRead read, RunPlaces places)
    : read_(std::move(read)),
      settings_(read_.settings.value_or(Settings())),
      places_(std::move(places)) {}

bool isBad(UpdateResult result, const UpdateRun& run) {
  // Without [health] nobody asks whether it was the version's fault.
  if (result == UpdateResult::StartFailed) return run.updated && run.settings->health;
  return result == UpdateResult::Unhealthy || result == UpdateResult::RolledBack;
}

std::unique_ptr<Recorder> ConfiguredRun::newRecorder() {
  auto recorder = std::make_unique<Recorder>(
      folder_, Recorder::Places{.textfile = settings_.report.textfile,
                                .channel = settings_.trust ? settings_.trust->channel : "",
                                .historyLimit = settings_.report.history});
  recorder->observer = observer;
  return recorder;
}

int ConfiguredRun::perform(const RunRequest& request) try {
  Updater::announce(withoutPassword(request.server), request.installed);
  const Interrupts interrupts;
  const std::string closed = folder_.open(places_.stateFolder);
  if (!closed.empty()) QDLOG(ROOT, WRN, "No records: " << closed);
  const bool locked = folder_.lock();
  if (!locked && read_.fault.empty()) {
    return static_cast<int>(
        refuse(request, UpdateResult::Locked, "another run holds " + folder_.pathOf("lock")));
  }
  // The records are those of the run that holds the lock.
  if (!locked) folder_.close();
  RunRequest now = request;
  if (folder_.holdsLock() && folder_.isOpen() && windowStands(places_)) {
    const UpdateResult former = endFormerRun();
    if (windowStands(places_)) return static_cast<int>(former);  // it is not at its end yet
    const auto agent = utils::queryInstalledAgent(utils::installedKind());
    if (agent && !agent->version.empty()) now.installed = agent->version;
  }
  recorder_ = newRecorder();
  return static_cast<int>(performRecorded(now));
} catch (const std::exception& e) {
  return static_cast<int>(
      refuse(request, UpdateResult::Exception, std::string("Exception : ") + e.what()));
}

UpdateResult ConfiguredRun::performRecorded(const RunRequest& request) {
  UpdateRun run;
  try {
    return performLocked(request, run);
  } catch (const std::exception& e) {
    run.message = std::string("Exception : ") + e.what();
    QDLOG(ROOT, ERR, run.message);
    finish(run, UpdateResult::Exception);
    return UpdateResult::Exception;
  }
}

/// A run that leaves no record.
UpdateResult ConfiguredRun::refuse(const RunRequest& request, UpdateResult result,
                                   const std::string& message) {
  QDLOG(ROOT, ERR, message);
  record_ = newRecord(request.installed);
  endRecord(record_, result, false, message);
  return result;
}

UpdateResult ConfiguredRun::performLocked(const RunRequest& request, UpdateRun& run) {
  const LastError lastError;
  run.installedText = request.installed;
  run.recorder = recorder_.get();
  run.window = &window_;
  recorder_->beforePhase = [this, &run](Phase phase) { window_.enter(phase, run.ailment); };
  recorder_->begin(request.installed);

  OwnPrograms programs;
  std::string fault = read_.fault;
  if (fault.empty()) fault = checkTrust(settings_, places_);
  if (fault.empty()) fault = checkDropIns(places_, programs);
  if (fault.empty()) fault = readBadVersions(places_, run.bad);
  if (!fault.empty()) {
    QDLOG(ROOT, ERR, "Configuration : " << fault);
    run.message = fault;
    finish(run, UpdateResult::ConfigurationFaulty);
    return UpdateResult::ConfigurationFaulty;
  }

  for (const std::string& note : programs.notes) QDLOG(ROOT, WRN, note);
  Updater updater(request.skipInstall);
  CommandOutput output;
  run.settings = &settings_;
  run.output = &output;
  for (const BadVersion& bad : run.bad) recorder_->record().bad.push_back(bad.version);
  run.hooks = programs.hooks;
  run.checks = programs.checks;
  run.trustFolder = trustFolderOf(places_);
  run.dropInFolder = places_.dropInFolder;
  const UpdateResult result = update(updater, request, run);
  if (isBad(result, run)) markBad(run);
  if (leavesItAlone(result) && !run.updated && !request.skipInstall) noteWhetherItRuns(run);
  if (run.message.empty() && result != UpdateResult::Done) run.message = lastError.text();
  // Records are for all to read.
  run.message = withoutPassword(run.message, request.server);
  finish(run, result);
  if (run.attempts > 0) runHooks(programs.hooks, kAfterHooks, recorder_->record(), false, {});
  return result;
}

/// An agent that is down must not hide behind "up to date", or for as long as a version is held
/// back.
void ConfiguredRun::noteWhetherItRuns(UpdateRun& run) const {
  if (!settings_.health || utils::agentRuns() != false) return;
  QDLOG(ROOT, WRN, "The agent does not run");
  run.message += (run.message.empty() ? "" : "; ") + std::string("the agent does not run");
}

UpdateResult ConfiguredRun::update(Updater& updater, const RunRequest& request, UpdateRun& run) {
  if (request.installed.empty()) {
    run.message = kNoAgent;
    return UpdateResult::InvalidInstalledVersion;
  }
  if (!updater.checkLockFile(folder_)) {
    run.message = "another run began less than an hour ago; when it has ended, remove " +
                  updater.lockFilePath;
    return UpdateResult::Locked;
  }
  run.server = request.server;
  if (!settings_.fetch.ca.empty() && request.server.starts_with("http:")) {
    QDLOG(ROOT, WRN, "fetch.ca has no effect : the server's address begins with http:");
  }
  const auto requests = transport(request, run);
  if (settings_.health && settings_.health->rollback && folder_.isOpen()) {
    const int error = run.keep.open(folder_.path());
    if (error != 0) QDLOG(ROOT, WRN, "Cannot keep packages : " << std::strerror(error));
  }
  updater.httpClient.setTransport(requests.get());
  preferConffiles();
  const UpdateResult result = updater.perform(withoutPassword(request.server), run);
  updater.httpClient.setTransport(nullptr);
  if (result == UpdateResult::TransferFailed && run.message.empty()) {
    run.message = requests->failure();
  }
  run.packageManager.release();
  run.keep.giveRoomBack();
  // Whatever else it ended with, a later run goes on with it.
  if ((run.updated || isBad(result, run)) && !run.downloadFolder.empty()) {
    run.package.remove();
    emptyPartialFolder(run.downloadFolder);
  }
  updater.removeLockFile();
  if (Interrupts::came() && result != UpdateResult::Interrupted) {
    QDLOG(ROOT, WRN, "An interrupt came when the agent was being replaced: the run went on");
  }
  return result;
}

/// dpkg's own defaults, which the variable replaces, and what the administrator wants.
void ConfiguredRun::preferConffiles() const {
  if (!settings_.install.replaceConffiles) return;
  ::setenv("DPKG_FORCE", "security-mac,downgrade,confnew", 1);
}

std::unique_ptr<PatientTransport> ConfiguredRun::transport(const RunRequest& request,
                                                           UpdateRun& run) {
  auto requests = std::make_unique<PatientTransport>(
      settings_.fetch, settings_.serversFrom(request.server), settings_.fetch.deadline);
  requests->setWatcher([this](unsigned long long bytes) {
    if (bytes > 0) recorder_->progress(bytes);
    return !Interrupts::came();
  });
  requests->setPauseListener(onPause);
  run.onPause = onPause;
  if (folder_.isOpen()) run.downloadFolder = openPartialFolder(folder_.path());
  // Records without room never keep an update from running: the temporary folder may have some.
  const auto free = utils::freeBytes(run.downloadFolder);
  if (free && *free < settings_.install.reserve) run.downloadFolder.clear();
  requests->setPartialFolder(run.downloadFolder);
  requests->setDigests(
      {.md5 = !settings_.trust, .sha256 = settings_.trust || settings_.health.has_value()});
  return requests;
}

/// The version that was just installed is not installed again, should somebody put another in its
/// place.
void ConfiguredRun::markBad(UpdateRun& run) const {
  const std::string version = versionText(run.available);
  run.bad.push_back({.version = version,
                     .sha256 = run.sha256,
                     .md5 = run.expectedMd5,
                     .since = utcText(std::time(nullptr)),
                     .cause = run.ailment});
  recorder_->record().bad.push_back(version);
  const bool written =
      folder_.isOpen() && folder_.replace(kBadVersions, badVersionsText(run.bad), true) == 0;
  if (!written) QDLOG(ROOT, WRN, "Cannot write " << kBadVersions);
}

void ConfiguredRun::finish(const UpdateRun& run, UpdateResult result) {
  run.fillRecord();
  recorder_->finish(result, run.updated, run.message, run.cause);
  record_ = recorder_->record();
  window_.close();
}

std::string checkTrust(const Settings& settings, const RunPlaces& places) {
  if (!settings.trust) return {};
  for (const std::string& folder : {places.stateFolder, trustFolderOf(places)}) {
    if (::access(folder.c_str(), F_OK) == 0 && osal_folderIsShared(folder.c_str())) {
      return folder +
             ": others than root may write to it, so what it holds is not trusted; see to its "
             "content, then chown root and chmod go-w it";
    }
  }
  return foreignFileFault(settings.trust->root);
}

std::string checkDropIns(const RunPlaces& places, OwnPrograms& programs) {
  std::vector<std::string> marks;
  const std::pair<const char*, std::vector<std::string>*> kFolders[] = {
      {"hooks", &programs.hooks}, {"health", &programs.checks}, {"inhibit", &marks}};
  for (const auto& [name, files] : kFolders) {
    DropIns found = listDropIns(places.dropInFolder + "/" + name, files != &marks);
    if (!found.fault.empty()) return found.fault;
    for (const std::string& path : found.passedOver) {
      programs.notes.push_back(
          "Passed over for its name, not of letters, digits, _ and - alone : " + path);
    }
    *files = std::move(found.files);
  }
  for (const std::string& path : programs.hooks) {
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name.starts_with(kBeforeHooks) || name.starts_with(kAfterHooks)) continue;
    programs.notes.push_back("Passed over for its name, neither before-... nor after-... : " +
                             path);
  }
  return {};
}

std::string readBadVersions(const RunPlaces& places, std::vector<BadVersion>& bad) {
  auto read = parseBadVersions(readStateFile(places.stateFolder, kBadVersions));
  if (!read) {
    return places.stateFolder + "/" + kBadVersions +
           ": is no list of bad versions; see to its content, then remove it";
  }
  bad = std::move(*read);
  return {};
}

std::vector<std::string> obstaclesNow(const RunPlaces& places, unsigned long long bytes,
                                      unsigned long long reserve) {
  std::vector<std::string> obstacles;
  const utils::AgentDistrib kind = utils::installedKind();
  const auto agent = utils::queryInstalledAgent(kind);
  if (agent && agent->isOnHold()) obstacles.emplace_back("the package is on hold");
  if (stateFolderIsLocked(places.stateFolder) == true) {
    obstacles.emplace_back("another run is under way");
  } else if (isLockedBeside(places)) {
    obstacles.push_back("a run began less than an hour ago, by " + placeOfLock());
  }
  if (std::string fault = utils::missingRoom(utils::placeOfAgent(kind), bytes, reserve);
      !fault.empty()) {
    obstacles.push_back(std::move(fault));
  }
  return obstacles;
}
