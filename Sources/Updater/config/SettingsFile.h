#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Updater/config/Settings.h"

/// Where the administrator's settings lie, for an agent instance that may be empty: "update.toml",
/// or "update.INSTANCE.toml", beside the folder of the agent's configuration strings. Empty for an
/// instance name that can't be one.
std::string settingsFileOf(const std::string& configurationFolder, const std::string& instance);

/// The folder of the administrator's own programs and marks, "update.d", in the same place.
std::string dropInFolderOf(const std::string& configurationFolder);

/// What reading the settings file gave. Neither: there is no file, and nothing else was looked at.
struct SettingsRead {
  std::optional<Settings> settings;
  std::string fault;  ///< one line with the place of the fault and what to do
};

/// Opens, examines and reads the file. It must be a regular file and root's own, writable by nobody
/// else, in a folder of which the same holds; with a password in it nobody else may read it.
SettingsRead readSettingsFile(const std::string& path);

/// Why the file at `path`, which may be a link, can't be relied on: it or its folder is not root's
/// own, or others may write to it. Empty when all is well, or no file is there.
std::string foreignFileFault(const std::string& path);

/// The files of one folder below "update.d".
struct DropIns {
  std::vector<std::string> files;       ///< paths, in the order of their names
  std::vector<std::string> passedOver;  ///< paths that are not hidden, and whose names do not fit
  std::string fault;                    ///< one line; empty when all is well
};

/// Lists `folder`: names of letters, digits, "_" and "-" only; others are passed over. A missing
/// folder is an empty one. Each file must be regular and root's own, writable by nobody else, and
/// so must the folder be and the one above it; `executable`: each must be executable, too.
DropIns listDropIns(const std::string& folder, bool executable);
