#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Updater/terms/UpdateResult.h"

/// Where a run is. A run passes them in this order, back from Verify to Fetch when it tries again.
enum class Phase {
  Check,     ///< what the machine is, what is installed, what there is
  Fetch,     ///< the package is downloaded
  Verify,    ///< and verified
  Prepare,   ///< whatever else must be in order before the agent is stopped
  Stop,      ///< the agent is being stopped
  Install,   ///< the package manager works
  Start,     ///< the agent is being started
  Health,    ///< it is being looked after
  Rollback,  ///< the former version is being put back
  Done,
};
inline constexpr std::size_t kPhases = 10;

/// "check", "fetch", "verify", "prepare", "stop", "install", "start", "health", "rollback", "done".
std::string_view phaseToString(Phase phase);

/// Whether the agent may be stopped in this phase: from the stop to the end of the way back.
bool agentMayBeStopped(Phase phase);

/// One run, as it is recorded.
struct RunRecord {
  std::string run;      ///< identifies it, 32 hexadecimal digits
  std::string program;  ///< version of the program
  std::string from;     ///< the version that was installed
  std::string to;       ///< the version that is to be installed; empty while it is not known
  Phase phase = Phase::Check;
  RunOutcome outcome = RunOutcome::Running;
  int status = 0;       ///< exit status of the process
  std::string cause;    ///< word of the status
  std::string message;  ///< a line for people; empty when all is well
  std::time_t started = 0;
  std::time_t ended = 0;          ///< 0: it has not
  std::uint64_t bytes = 0;        ///< of the package, downloaded
  std::uint64_t size = 0;         ///< of the package; 0 while it is not known
  unsigned int attempts = 0;      ///< downloads begun
  std::string rolledBackFrom;     ///< the version that ailed; empty: none did
  std::time_t deferredUntil = 0;  ///< 0: not known, or not deferred
  std::vector<std::string> bad;   ///< versions that are not installed here any more

  /// What the package database said after the installation; empty: it was not asked. For the
  /// metrics alone, as the next one.
  std::string installed{};

  /// Seconds spent in each phase so far.
  std::array<double, kPhases> seconds{};
};

/// `text`, which may come from a server or a program, as a line for people: control characters are
/// blanks, and what is very long is cut.
std::string plainLine(std::string_view text);

/// The record as a JSON object, on several lines with the last one ended: the content of
/// status.json.
std::string statusText(const RunRecord& record);

/// The same on one line, ended: what is appended to history.jsonl.
std::string historyLine(const RunRecord& record);

/// Reads what the two above write; nothing for any other text. Unknown members are passed over.
std::optional<RunRecord> parseRecord(std::string_view text);

/// The metrics of a run that has ended, in Prometheus' text format. `channel`: where releases come
/// from, may be empty; `lastSuccess`: when the latest run with status 0 ended, 0 for never.
std::string metricsText(const RunRecord& record, const std::string& channel,
                        std::time_t lastSuccess);

/// "2026-03-01T14:05:09Z"; empty for 0.
std::string utcText(std::time_t time);
