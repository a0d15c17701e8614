// A run that died while the agent was being replaced comes to its end here: by a timer, at boot, or
// when the next run begins.

#include <unistd.h>

#include <cstring>
#include <exception>
#include <iostream>

#include "Updater/download/PartialFile.h"
#include "Updater/outcome/hooks.h"
#include "Updater/procedure/ConfiguredRun.h"
#include "Updater/procedure/LastError.h"
#include "Updater/procedure/Recovery.h"
#include "Updater/process/Interrupts.h"
#include "Updater/process/agentPlaces.h"
#include "Updater/process/recoveryTimer.h"
#include "Updater/terms/utilsPlatform.h"
#include "logging/QDLog.h"

bool windowStands(const RunPlaces& places) {
  return ::access((places.stateFolder + "/" + kWindow).c_str(), F_OK) == 0;
}

int ConfiguredRun::recover() try {
  if (!utils::checkAdmin()) {
    return static_cast<int>(refuse({}, UpdateResult::NotAdministrator, "needs root"));
  }
  if (!windowStands(places_)) {
    stopRecoveryTimer(agentInstance());
    return static_cast<int>(UpdateResult::Done);
  }
  const Interrupts interrupts;
  const std::string closed = folder_.open(places_.stateFolder);
  if (closed.empty() && !folder_.lock()) return static_cast<int>(UpdateResult::Locked);
  // That run may just have come to its end.
  if (!windowStands(places_)) return static_cast<int>(UpdateResult::Done);
  if (!closed.empty()) QDLOG(ROOT, ERR, "No records: " << closed);
  return static_cast<int>(endFormerRun());
} catch (const std::exception& e) {
  return static_cast<int>(
      refuse({}, UpdateResult::Exception, std::string("Exception : ") + e.what()));
}

UpdateResult ConfiguredRun::endFormerRun() try {
  QDLOG(ROOT, WRN, "A run died when it was replacing the agent: bringing that to an end");
  recorder_ = newRecorder();
  auto read = folder_.isOpen() ? parseAgentWindow(readStateFile(places_.stateFolder, kWindow))
                               : std::nullopt;
  if (!read) {
    if (folder_.isOpen()) QDLOG(ROOT, ERR, kWindow << " does not say what it did");
    read.emplace();
    read->run = recorder_->record().run;
    read->step = WindowStep::Install;
  }
  window_.adopt(*read);
  // Whatever the settings have become, there must be an agent.
  Settings settings = settings_;
  if (!settings.health) settings.health.emplace();
  CommandOutput output;
  UpdateRun run;
  run.settings = &settings;
  run.output = &output;
  return resume(*read, run);
} catch (const std::exception& e) {
  // The window stays, for the next attempt; meanwhile there must be an agent.
  Recovery::startAgent(settings_.health.value_or(HealthSettings()).timeout);
  return refuse({}, UpdateResult::Exception, std::string("Exception : ") + e.what());
}

UpdateResult ConfiguredRun::resume(const AgentWindow& window, UpdateRun& run) {
  const LastError lastError;
  run.recorder = recorder_.get();
  run.window = &window_;
  std::optional<UpdateResult> told;
  if (!recorder_->resume(window.run, window.from, window.to)) {
    told = static_cast<UpdateResult>(recorder_->record().status);
  }
  recorder_->beforePhase = [this, &run](Phase phase) {
    window_.enter(phase, run.wasCut ? std::string() : run.ailment);
  };
  run.attempts = static_cast<int>(recorder_->record().attempts);
  run.expectedSize = recorder_->record().size;
  OwnPrograms programs;
  for (const std::string& fault :
       {read_.fault, checkDropIns(places_, programs), readBadVersions(places_, run.bad)}) {
    if (!fault.empty()) QDLOG(ROOT, WRN, "Configuration : " << fault);
  }
  run.checks = programs.checks;
  if (folder_.isOpen()) run.keep.open(folder_.path());
  if (folder_.isOpen() && window.package.starts_with(folder_.path() + "/partial/")) {
    run.downloadFolder = openPartialFolder(folder_.path());
  }
  preferConffiles();
  Recovery::removeDeadLock(folder_);
  Recovery recovery(window, run);
  const UpdateResult result = recovery.perform(told);
  run.keep.giveRoomBack();
  if (!recovery.isEnd()) {
    return refuse({.server = {}, .installed = window.from}, result, run.message);
  }
  if (!told) {
    if (isBad(result, run) && !run.wasCut) markBad(run);
    if ((run.updated || isBad(result, run)) && !run.downloadFolder.empty()) {
      emptyPartialFolder(run.downloadFolder);
    }
    if (run.message.empty() && result != UpdateResult::Done) run.message = lastError.text();
    finish(run, result);
    runHooks(programs.hooks, kAfterHooks, recorder_->record(), false, {});
  } else {
    record_ = recorder_->record();
    window_.close();
  }
  return result;
}
