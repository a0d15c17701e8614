#pragma once

#include <string>

#include "Updater/health/AgentWindow.h"
#include "Updater/outcome/RunRecord.h"
#include "Updater/outcome/StateFolder.h"

/// The file of the window, among the records.
inline constexpr const char* kWindow = "window.json";

/// Keeps window.json, and a timer that sees to it should this process die, from before the agent is
/// stopped until the outcome is recorded. What can't be written or started is logged (WRN) and
/// keeps no run from going on.
class WindowKeeper {
 public:
  /// `folder`, of the records, must outlive this object.
  explicit WindowKeeper(StateFolder& folder) : folder_(folder) {}

  /// The agent is about to be stopped. When it returns the file stands on the disk.
  void open(const AgentWindow& window);

  /// The same for a window that a run left that died: file and timer are there already.
  void adopt(const AgentWindow& window);

  /// The run has come to `phase`, because of `ailment` if the agent ails. Rewrites the file where
  /// it is open and that is another step.
  void enter(Phase phase, const std::string& ailment) noexcept;

  /// The outcome is recorded: the file is removed, then the timer stopped. Nothing where it is not
  /// open.
  void close();

 private:
  void write() noexcept;

  StateFolder& folder_;
  AgentWindow window_;
  bool open_ = false;
  bool warned_ = false;
};
