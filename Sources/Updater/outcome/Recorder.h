#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "Updater/outcome/RunRecord.h"
#include "Updater/outcome/StateFolder.h"

/// The record of a run that begins now.
RunRecord newRecord(const std::string& from);

/// The run ends now with `result`; with Done it has either installed `record.to` or found nothing
/// to do. The phase stays the one in which it ended. Without a message that of the status is taken.
void endRecord(RunRecord& record, UpdateResult result, bool updated, const std::string& message);

/// Writes what becomes of one run: status.json at each phase, at its end a line of the history and
/// the metrics. What can't be written is logged once (WRN), and never keeps the run from
/// going on. Nothing is thrown by what is called while the agent is stopped.
class Recorder {
 public:
  /// Where records go.
  struct Places {
    std::string textfile;            ///< folder of the metrics; empty: none are written
    std::string channel;             ///< named in the metrics; may be empty
    std::uint64_t historyLimit = 0;  ///< bytes
  };

  /// `folder`, which may have failed to open, must outlive this object.
  Recorder(StateFolder& folder, Places places);

  /// The record. Whoever knows better fills it in; it is written at the next phase.
  [[nodiscard]] RunRecord& record() { return record_; }

  /// Called at each phase and whenever bytes came.
  std::function<void(const RunRecord&)> observer;

  /// Called before each phase is recorded. What it throws is passed over.
  std::function<void(Phase)> beforePhase;

  /// The first phase: `from` is the version that is installed.
  void begin(const std::string& from);

  /// Goes on with the record of the run `run` that died, or with one like it where it left none.
  /// Returns false when its outcome is recorded already: then what is missing of that is written
  /// now.
  bool resume(const std::string& run, const std::string& from, const std::string& to);

  /// The run has come to `phase`, or begins another download in it.
  void enter(Phase phase) noexcept;

  /// Bytes of the package have come.
  void progress(std::uint64_t bytes) noexcept;

  /// Ends the record, as above, and writes it, synchronised. `cause`: one of those that the status
  /// has besides its own; empty: its own.
  void finish(UpdateResult result, bool updated, const std::string& message,
              const std::string& cause = {});

 private:
  void write(bool durable) noexcept;
  void addFormerRun();
  void writeMetrics();
  void warn(const char* what, int error) noexcept;
  void spendTime();
  void observe() noexcept;

  StateFolder& folder_;
  Places places_;
  RunRecord record_;
  std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
  unsigned int attempts_ = 0;  ///< as the record had them when a phase was entered
  bool warned_ = false;
};
