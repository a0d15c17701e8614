#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// One of the administrator's checks of the agent that did not end with 0.
struct FailedCheck {
  std::string file;
  std::string fault;  ///< a text about it, for people
};

/// Runs all of `files`, paths in their order, each for at most `limit`, after which it is ended
/// with its children. What they print goes into the log, a line a record, and so does what failed
/// (WRN). `environment` is added to this process's own. `cancelled`: asked now and then, ends them
/// all; may be empty.
std::vector<FailedCheck> runChecks(
    const std::vector<std::string>& files,
    const std::vector<std::pair<std::string, std::string>>& environment, std::chrono::seconds limit,
    const std::function<bool()>& cancelled);

/// The first of `now` that counts against a new version, which none does that had failed `before`
/// it came: what ails there is something else. Returns its text; empty: none counts.
std::string newFault(const std::vector<FailedCheck>& before, const std::vector<FailedCheck>& now);
