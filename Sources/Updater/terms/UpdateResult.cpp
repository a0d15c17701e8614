#include "Updater/terms/UpdateResult.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr UpdateStatus kStatuses[] = {
#define QD_STATUS(number, name, outcome, cause, meaning) \
  {UpdateResult::name, RunOutcome::outcome, cause, meaning},
#include "Updater/terms/updateStatus.def"
#undef QD_STATUS
};

constexpr std::array<std::string_view, 7> kOutcomes = {
    "up-to-date", "updated", "deferred", "refused", "failed", "rolled-back", "running"};

}  // namespace

std::string_view outcomeToString(RunOutcome outcome) {
  return kOutcomes[static_cast<std::size_t>(outcome)];
}

const UpdateStatus& statusOf(UpdateResult result) {
  const auto* const found = std::ranges::find(kStatuses, result, &UpdateStatus::result);
  return found != std::end(kStatuses) ? *found : statusOf(UpdateResult::Exception);
}
