#pragma once

#include <string>
#include <vector>

#include "Updater/terms/Version.h"
#include "Updater/terms/utilsPlatform.h"

// Packages that the system's package manager has downloaded and not thrown away yet.

namespace utils {

/// Files in the cache of apt or dnf that call themselves the agent's package of this version.
std::vector<std::string> cachedPackages(AgentDistrib distrib, const Version& version);

/// Whether the file at `path`, with this SHA-256 digest, is the very package that is installed. Of
/// Debian's apt must know the version's digest, from a list of packages that it trusts; of rpm the
/// database has that of the header, which holds the payload's.
bool isInstalledPackage(AgentDistrib distrib, const std::string& path, const std::string& sha256);

/// Copies a file, for this user's eyes only. Returns whether that worked.
bool copyFile(const std::string& from, const std::string& to);

}  // namespace utils
