#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Updater/outcome/RunRecord.h"

/// What a hook finds in its environment: QD_UPDATE_FROM, _TO, _PHASE, _OUTCOME, _STATUS, _CAUSE and
/// _RUN.
std::vector<std::pair<std::string, std::string>> hookEnvironment(const RunRecord& record);

/// What the names of hooks begin with: those that may refuse, and those that are told the end.
inline constexpr std::string_view kBeforeHooks = "before-";
inline constexpr std::string_view kAfterHooks = "after-";

/// Runs those of `files`, paths in their order, whose name begins with `prefix`, each for at most a
/// minute. What they print goes into the log, a line a record. Returns a message for people about
/// the first that did not end with 0; empty when all did. `stopAtFailure`: those after it are not
/// run. `cancelled`: asked now and then; may be empty.
std::string runHooks(const std::vector<std::string>& files, std::string_view prefix,
                     const RunRecord& record, bool stopAtFailure,
                     const std::function<bool()>& cancelled);
