#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tuf/metadata.h"

namespace tuf {

/// Whether the pattern stands for the path. `*` is any number of characters and `?` one; neither is
/// a `/`. All other characters are themselves.
[[nodiscard]] bool matchesPattern(std::string_view pattern, std::string_view path);

/// The delegations that the role trusts with this target path, in their order, the roles of
/// succinct ones by their names.
[[nodiscard]] std::vector<Delegation> delegationsFor(const Targets& role, const std::string& path);

}  // namespace tuf
