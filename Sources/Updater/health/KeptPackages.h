#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A package of the agent that ran on this machine, kept for the way back.
struct KeptPackage {
  std::string version;          ///< "7.2.1.4"
  std::string file;             ///< its name among the kept ones
  std::string sha256;           ///< 64 lower-case hexadecimal digits
  std::string md5;              ///< 32 of them, or empty
  bool mayReturn = true;        ///< whether its publisher lets machines go back to it
  std::string since;            ///< when it came here: "2026-03-01T14:05:09Z"
  unsigned long long room = 0;  ///< bytes that its installation takes; 0: unknown
};

/// Reads what `keptPackagesText` writes; nothing for any other text, and where a file's name is
/// none of a file in this folder; an empty one is an empty list. Unknown members are passed over.
std::optional<std::vector<KeptPackage>> parseKeptPackages(std::string_view text);

/// The list as a JSON array, ended by a line feed: the content of kept.json.
std::string keptPackagesText(const std::vector<KeptPackage>& packages);

/// The kept package of this version; null when there is none.
const KeptPackage* findKept(const std::vector<KeptPackage>& packages, std::string_view version);

/// The list with `package`, which is of the version that runs now, at its front in place of one
/// with the same version, and at most `most` in all, but always this one.
std::vector<KeptPackage> withKept(std::vector<KeptPackage> packages, const KeptPackage& package,
                                  std::size_t most);
