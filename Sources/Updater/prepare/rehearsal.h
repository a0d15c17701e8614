#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Updater/terms/Version.h"
#include "Updater/terms/utilsPlatform.h"

// What a package manager is asked about a package before anything is stopped. What it prints goes
// to the log, a record a line. Only packages of Debian and of rpm are looked at.

namespace utils {

/// Asked now and then while a command runs; true: it is to be ended. May be empty.
using StopWish = std::function<bool()>;

/// A command that came to its end.
struct CommandAnswer {
  int status = -1;       ///< its exit status; -1: it could not be run, or was ended
  bool missing = false;  ///< there is no such command
  std::vector<std::string> lines;
};

/// Runs the words as a command, without a shell and with English messages, and waits. At the limit
/// it is ended.
CommandAnswer ask(const std::vector<std::string>& words, bool logged,
                  const StopWish& cancelled = {},
                  std::chrono::seconds limit = std::chrono::minutes(10));

/// A package file, as it describes itself.
struct PackageFacts {
  std::string name;                      ///< empty: it could not be read
  std::string version;                   ///< empty: likewise
  unsigned long long installedSize = 0;  ///< bytes; 0: it does not say
  std::string depends;                   ///< Debian's Pre-Depends and Depends
};
PackageFacts readPackageFacts(AgentDistrib distrib, const std::string& path);

/// Why the package is not the agent's of the version `wanted`, which is what the database is held
/// against in the end; empty when it is, or can't be read, which the rehearsal shows.
std::string identityFault(const PackageFacts& facts, const Version& wanted);

/// Simulates the installation. Returns why it would fail; empty when it would not, as far as can be
/// seen before its scripts run. `facts` are the package's own.
std::string rehearse(AgentDistrib distrib, const std::string& path, const PackageFacts& facts,
                     const StopWish& cancelled);

/// Whether dpkg was interrupted, or has packages that are unpacked only.
bool isHalfDone(AgentDistrib distrib);

/// Completes them. Whatever comes meanwhile, dpkg is not ended half way; only a script that hangs
/// is, after hours. Returns whether dpkg then says that all is well.
bool completeHalfDone();

}  // namespace utils
