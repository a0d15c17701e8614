#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Updater/terms/utilsPlatform.h"

namespace utils {

/// The agent's package as the system's package database has it.
struct InstalledAgent {
  std::string version;   ///< as the database spells it; empty: the package is not there
  std::string state;     ///< Debian's abbreviation, such as "ii"; else empty, or what is wrong
  bool isWhole = false;  ///< it is there, and its installation came to its end

  /// Whether the administrator wants it to stay as it is.
  [[nodiscard]] bool isOnHold() const { return state.starts_with('h'); }

  /// For messages: "7.2.1.4", "7.2.1.4 (iF)" or "nothing".
  [[nodiscard]] std::string text() const;
};

/// Reads what dpkg-query, rpm, pkgutil or synopkg answered.
InstalledAgent readInstalledAgent(AgentDistrib distrib, const std::string& answer);

/// Whether the database says that the package is not there, rather than that it could not look:
/// the program ended with `status`, which is not 0, and printed `lines`.
bool saysNotInstalled(AgentDistrib distrib, int status, const std::vector<std::string>& lines);

/// Asks the database that packages of the kind `distrib` are in; nothing where there is none to
/// ask, or it does not answer.
std::optional<InstalledAgent> queryInstalledAgent(AgentDistrib distrib);

/// The same, up to five times, a second apart: a momentary lack of processes or memory is no
/// answer.
std::optional<InstalledAgent> queryPersistently(AgentDistrib distrib);

/// Whether a line of `rpm --verify` is about a file that is gone, or has other bytes than the
/// package brought; configuration and what the package only owns do not count.
bool saysDamaged(const std::string& line);

/// Whether no file of the agent's package of the kind `rpm` is damaged: when the power goes the
/// database is ahead of them. True, too, where rpm does not say.
bool hasItsFiles();

/// The kind of package by which the agent is installed on this machine.
AgentDistrib installedKind();

/// Whether the agent runs, as the system's service manager says; nothing where it says neither.
std::optional<bool> agentRuns();

}  // namespace utils
