#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A version that ailed on this machine. Of its digests those are known that it was verified by.
struct BadVersion {
  std::string version;
  std::string sha256;  ///< hexadecimal digits, or empty
  std::string md5;     ///< the same
  std::string since;   ///< "2026-03-01T14:05:09Z"
  std::string cause;   ///< what ailed, for people
};

/// Reads what `badVersionsText` writes; nothing for any other text, but an empty one is an empty
/// list. Unknown members are passed over.
std::optional<std::vector<BadVersion>> parseBadVersions(std::string_view text);

/// The list as a JSON array, ended by a line feed: the content of bad.json.
std::string badVersionsText(const std::vector<BadVersion>& versions);

/// The entry with one of these digests, each of which may be empty; null when there is none: a new
/// package of the same version is not bad.
const BadVersion* findBad(const std::vector<BadVersion>& versions, std::string_view sha256,
                          std::string_view md5);
