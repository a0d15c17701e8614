#pragma once

#include <string_view>

/// What the update procedure ends with; the number is the exit status of the process. The table
/// says what each means.
enum class UpdateResult : int {
#define QD_STATUS(number, name, outcome, cause, meaning) name = number,
#include "Updater/terms/updateStatus.def"
#undef QD_STATUS
};

/// How a run ended, in one word.
enum class RunOutcome { UpToDate, Updated, Deferred, Refused, Failed, RolledBack, Running };

/// "up-to-date", "updated", "deferred", "refused", "failed", "rolled-back", "running".
std::string_view outcomeToString(RunOutcome outcome);

/// One line of the table of statuses.
struct UpdateStatus {
  UpdateResult result;
  RunOutcome outcome;
  std::string_view cause;    ///< one word of letters and "-"; empty for Done
  std::string_view meaning;  ///< a line for people
};

/// The line of a result.
const UpdateStatus& statusOf(UpdateResult result);
