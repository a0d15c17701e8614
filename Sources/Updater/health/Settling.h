#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// What systemd says of a unit at one moment.
struct UnitState {
  std::string type;           ///< of its service: "simple", "notify", "oneshot" and so on
  std::string active;         ///< "active", "activating", "failed" and so on; empty: it did not say
  std::string sub;            ///< the finer state, "running" or "auto-restart" for example
  unsigned long mainPid = 0;  ///< 0: no main process
  unsigned long restarts = 0;                ///< by systemd itself since somebody started the unit
  std::chrono::microseconds activeSince{0};  ///< by the steady clock; 0: it did not say
};

/// Reads the lines "Type=", "ActiveState=", "SubState=", "MainPID=", "NRestarts=" and
/// "ActiveEnterTimestampMonotonic="; others are passed over, and what is missing or no number stays
/// as above.
UnitState readUnitState(const std::vector<std::string>& lines);

/// Decides from what is seen of a unit that was just started whether it has settled: active, with
/// one and the same main process, for so long. A unit of type "oneshot" that stays active needs no
/// process, and of one of type "forking" systemd does not always know which is the main one.
class Settling {
 public:
  /// `begun`: when the start began, by the steady clock; `settle`: for so long; `timeout`: so long
  /// it may be starting, or systemd may stay silent.
  Settling(std::chrono::microseconds begun, std::chrono::milliseconds settle,
           std::chrono::milliseconds timeout)
      : begun_(begun), settle_(settle), timeout_(timeout) {}

  /// `at`: since `begun`, never less than the time before. Nothing: look again; an empty text: it
  /// has settled; else what ails it, for people.
  std::optional<std::string> observe(std::chrono::milliseconds at, const UnitState& unit);

  /// How long after `at` to look again: `usual`, or less where it will have settled before.
  [[nodiscard]] std::chrono::milliseconds pauseAfter(std::chrono::milliseconds at,
                                                     std::chrono::milliseconds usual) const;

 private:
  [[nodiscard]] std::chrono::milliseconds activeSince(std::chrono::milliseconds at,
                                                      const UnitState& unit) const;

  std::chrono::microseconds begun_;
  std::chrono::milliseconds settle_;
  std::chrono::milliseconds timeout_;
  std::optional<std::chrono::milliseconds> answered_;  ///< when systemd did say something
  std::optional<std::chrono::milliseconds> since_;     ///< when it became active
  UnitState first_;                                    ///< as it was first seen then
};
