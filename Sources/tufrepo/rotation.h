#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tufrepo/KeyRing.h"
#include "tufrepo/Repository.h"

namespace tufrepo {

/// What the next root has otherwise for a role.
struct RoleChange {
  std::string role;
  std::vector<tuf::Key> add;
  std::vector<std::string> remove;  ///< beginnings of key ids
  std::optional<unsigned> threshold;
  Lives lives;  ///< of any role; what it does not name stays
};

/// The content of the next root. Throws std::runtime_error for a change that makes no sense.
[[nodiscard]] Json nextRoot(const Repository& repository, const RoleChange& change,
                            std::time_t now);

/// The file with the signatures that `keys` can give as keys of the root before or of its own. One
/// that is not the next root, or names a key by another's id, is an error.
[[nodiscard]] std::string signRoot(const std::string& file, const tuf::Root& before, KeyRing& keys);

/// What the root in the file changes, for whoever is to sign it: a line for each, all ended.
[[nodiscard]] std::string changesOf(const std::string& file, const tuf::Root& before);

/// What is missing of a root's signatures, as a sentence; empty: nothing.
[[nodiscard]] std::string missingSignatures(const std::string& file, const tuf::Root& before);

}  // namespace tufrepo
