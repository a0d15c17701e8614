#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Updater/config/SettingsFile.h"
#include "Updater/download/PatientTransport.h"
#include "Updater/outcome/Recorder.h"
#include "Updater/outcome/StateFolder.h"
#include "Updater/procedure/Updater.h"
#include "Updater/procedure/WindowKeeper.h"

/// Where a run finds what the administrator set, and leaves its records.
struct RunPlaces {
  std::string settingsFile;
  std::string dropInFolder;
  std::string stateFolder;

  /// Those of an agent instance, which may be empty.
  static RunPlaces ofInstance(const std::string& instance);
};

/// Where runs keep the metadata that they trust.
std::string trustFolderOf(const RunPlaces& places);

/// What is asked of one run.
struct RunRequest {
  std::string server;     ///< without a slash at its end
  std::string installed;  ///< the installed version; empty: nobody knows
  bool skipInstall = false;
};

/// One update as the administrator set it: the procedure, with its records, hooks and lock around
/// it. Once per process.
class ConfiguredRun {
 public:
  /// `read` holds settings, or why there are none.
  ConfiguredRun(SettingsRead read, RunPlaces places);

  /// Called at each phase and whenever bytes came. Set before `perform`.
  std::function<void(const RunRecord&)> observer;

  /// Told of pauses before requests that are sent again. Set before `perform`.
  fetch::PauseListener onPause;

  /// The update. Returns the exit status of the process. No std::exception leaves it.
  int perform(const RunRequest& request);

  /// Brings a run to an end that died while the agent was being replaced. Returns the exit status:
  /// what that run has come to; 0 also where there is none, 12 where a run is under way. Of these
  /// two nothing is logged. No std::exception leaves it.
  int recover();

  /// What became of it. Of a run that another one kept from its place it is in no record but this.
  [[nodiscard]] const RunRecord& record() const { return record_; }

 private:
  std::unique_ptr<Recorder> newRecorder();
  UpdateResult performRecorded(const RunRequest& request);
  UpdateResult performLocked(const RunRequest& request, UpdateRun& run);
  UpdateResult update(Updater& updater, const RunRequest& request, UpdateRun& run);
  std::unique_ptr<PatientTransport> transport(const RunRequest& request, UpdateRun& run);
  void preferConffiles() const;
  void noteWhetherItRuns(UpdateRun& run) const;
  UpdateResult endFormerRun();
  UpdateResult resume(const AgentWindow& window, UpdateRun& run);
  void finish(const UpdateRun& run, UpdateResult result);
  void markBad(UpdateRun& run) const;
  UpdateResult refuse(const RunRequest& request, UpdateResult result, const std::string& message);

  SettingsRead read_;
  Settings settings_;  ///< the defaults where there are none
  RunPlaces places_;
  StateFolder folder_;
  std::unique_ptr<Recorder> recorder_;
  WindowKeeper window_{folder_};
  RunRecord record_;
};

/// Whether the version that a run with this end installed is not to be installed here again.
bool isBad(UpdateResult result, const UpdateRun& run);

/// The administrator's own programs, paths in the order of their names.
struct OwnPrograms {
  std::vector<std::string> hooks;
  std::vector<std::string> checks;  ///< of the agent's health
  std::vector<std::string> notes;   ///< which files are passed over for their names, a line each
};

/// What is said where nobody knows the installed version.
inline constexpr const char* kNoAgent =
    "the package manager knows no installed agent, or does not answer; --installed says its "
    "version";

/// Why what the trust begins with, and what it has come to, can't be relied on: somebody else may
/// write to it. Empty when all is well, and without [trust].
std::string checkTrust(const Settings& settings, const RunPlaces& places);

/// What a run would find faulty besides the settings file itself, with what to do; empty when
/// nothing. `programs`: those that may be run.
std::string checkDropIns(const RunPlaces& places, OwnPrograms& programs);

/// Whether a run died, or is just at work, between the stop of the agent and its own end.
bool windowStands(const RunPlaces& places);

/// The file of the bad versions, among the records.
inline constexpr const char* kBadVersions = "bad.json";

/// Reads it. Returns what is faulty, with what to do; empty when nothing is.
std::string readBadVersions(const RunPlaces& places, std::vector<BadVersion>& bad);

/// What would keep an update from being installed at this moment, a line each: `bytes` are those of
/// its package, as far as they are known, `reserve` those that must stay free. Reads only.
std::vector<std::string> obstaclesNow(const RunPlaces& places, unsigned long long bytes,
                                      unsigned long long reserve);
