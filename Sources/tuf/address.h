#pragma once

#include <string>
#include <string_view>

namespace tuf {

/// Letters, digits and `-._~` as they are, other bytes as `%` and two upper-case digits.
[[nodiscard]] std::string percentEncode(std::string_view text);

/// The same, with the `/` between a path's segments as they are.
[[nodiscard]] std::string encodePath(std::string_view path);

/// The file that keeps a role's metadata: `ROLE.json` with the name encoded; the end of a very long
/// name is replaced by its digest.
[[nodiscard]] std::string roleFile(std::string_view role);

/// The file that keeps a target in a folder of targets: the path encoded, and visible;
/// very long ones as above.
[[nodiscard]] std::string targetFile(std::string_view path);

}  // namespace tuf
