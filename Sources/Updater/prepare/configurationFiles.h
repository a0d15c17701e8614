#pragma once

#include <string>

#include "Updater/terms/utilsPlatform.h"

// The configuration files of the installed agent, as the package database names them. An
// installation may replace them, and the way back must not leave another version's behind.

namespace utils {

/// Puts those that exist into the archive at `path`, with owners and modes. Returns whether that
/// worked.
bool saveConfigurationFiles(AgentDistrib distrib, const std::string& path);

/// Puts them back as they were. Returns whether that worked; without an archive it did.
bool restoreConfigurationFiles(const std::string& path);

/// Removes those that were not there when the archive at `path` was made, that dpkg calls obsolete
/// now, and that are as their package brought them. rpm does that by itself.
void removeForeignConfiguration(const std::string& path);

}  // namespace utils
