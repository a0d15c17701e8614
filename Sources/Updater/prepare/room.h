#pragma once

#include <optional>
#include <string>

#include "Updater/terms/utilsPlatform.h"

namespace utils {

/// Bytes that are free for this user on the file system of `path`; nothing where that is unknown.
std::optional<unsigned long long> freeBytes(const std::string& path);

/// A folder on the file system that holds most of the installed agent, or of "/usr" when none is
/// installed: there a new one comes beside it before it goes.
std::string placeOfAgent(AgentDistrib distrib);

/// The folder of the package manager's database, which an installation writes, too.
std::string placeOfDatabase(AgentDistrib distrib);

/// Whether `path` has room for `bytes` so that `reserve` stay free. Returns what is missing as a
/// sentence; empty when there is enough, or nobody can tell.
std::string missingRoom(const std::string& path, unsigned long long bytes,
                        unsigned long long reserve);

/// "64 MiB", "512 KiB", "100 bytes": rounded up.
std::string sizeText(unsigned long long bytes);

}  // namespace utils
