#pragma once

#include <chrono>
#include <ctime>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tuf/metadata.h"

// The content (the member `signed`) of a repository's documents, as it is written.

namespace tufrepo {

using tuf::Json;

/// How long a role's documents hold.
using Lives = std::map<std::string, std::chrono::seconds>;

/// The top-level roles in the order in which keys are listed for people.
[[nodiscard]] const std::vector<std::string>& topRoles();

/// Root 2 years, targets 180 days, snapshot 30 days, timestamp 7 days.
[[nodiscard]] Lives defaultLives();

/// "2026-03-01T14:05:09Z".
[[nodiscard]] std::string timeText(std::time_t time);

/// Whose keys the first root lists.
struct FirstRole {
  std::vector<tuf::Key> keys;
  unsigned threshold = 1;
};

[[nodiscard]] Json firstRoot(const std::map<std::string, FirstRole>& roles, const Lives& lives);
[[nodiscard]] Json firstTargets();
[[nodiscard]] Json firstSnapshot();
[[nodiscard]] Json firstTimestamp();

/// The lives that a root states in a member of its own, with the defaults for those it does not.
[[nodiscard]] Lives livesOf(const Json& root);
void setLives(Json& root, const Lives& lives);

/// What one document says of another: version, length, SHA-256.
[[nodiscard]] Json describe(tuf::Version version, std::string_view file);

/// The entry of a target.
[[nodiscard]] Json describeTarget(const tuf::TargetFile& target);

}  // namespace tufrepo
