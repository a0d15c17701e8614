#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

#include "Updater/terms/utilsPlatform.h"

namespace utils {

/// One entry of the server's setup definition file; all members empty: no entry.
struct AgentSetupDef {
  std::string name;
  std::string path;     ///< server folder, begins with "/"
  std::string setup;    ///< file name of the package in that folder
  std::string version;  ///< file name of the version file
  std::string hash;     ///< file name of the digest file
  int os = OsUnknown;
  int arch = ArchUnknown;
  bool enable = false;
};

/// Reads one entry; every member is required, others are ignored. Throws what the JSON library
/// throws for a missing member or a wrong type, and std::out_of_range for a number that is no int.
void from_json(const nlohmann::json& j, AgentSetupDef& entry);

/// Whether an entry is meant for a machine. `distrib` is the package kind that the machine
/// installs; it does not count on macOS.
bool fitsMachine(const AgentSetupDef& entry, AgentOS os, AgentArch arch, AgentDistrib distrib);

/// The first fitting entry of a definition file, or an empty one when none fits. Throws a
/// std::exception for a faulty file; entries behind the chosen one are not looked at.
AgentSetupDef chooseSetup(const std::string& text, AgentOS os, AgentArch arch,
                          AgentDistrib distrib);

/// Everything one platform's setup needs.
struct SetuParameter {
  std::string setupUrl;
  std::string hashUrl;
  std::string versionUrl;
  std::string setupName;  ///< file name of the package on the server
  std::string setupPath;  ///< where the package goes locally
  std::string startCmd;
  std::string stopCmd;
  std::string installCmd;  ///< for a disk image a prefix; the package's path is appended
  std::string postInstallCmd;
  unsigned long long setupSize = 0;  ///< in bytes, as learnt from the server; 0: unknown
  std::string versionContent;        ///< the version file as fetched already; empty: not fetched
  std::string pkgName;               ///< base name of the package inside a disk image
  std::string mountedDevice;         ///< the attached disk image
};

/// Fills names, URLs and the local path from a definition file's entry.
void fillFromDefinition(SetuParameter& p, const AgentSetupDef& entry, const std::string& serverUrl,
                        const std::string& tempDir);

/// Fill names, URLs and the local path by the built-in server layout.
void fillWindowsLayout(SetuParameter& p, const std::string& serverUrl, const std::string& tempDir);

/// Throws std::runtime_error "Unsupported distribution" for another kind than deb and rpm. For
/// another architecture than amd64 and arm64 the URLs stay empty, and the result is false.
bool fillLinuxLayout(SetuParameter& p, const std::string& serverUrl, const std::string& tempDir,
                     AgentArch arch, AgentDistrib distrib);

/// Fill the commands; `setupPath` is set already. The Linux one throws std::runtime_error
/// "Unsupported distribution" for another kind than deb, rpm and spk.
void fillWindowsCommands(SetuParameter& p);
void fillMacOSXCommands(SetuParameter& p, AgentDistrib distrib);
void fillLinuxCommands(SetuParameter& p, AgentDistrib distrib);

/// Server folders, and package names in them, to be tried in order on macOS; both are empty for an
/// architecture that has none.
struct MacOSXCandidates {
  std::span<const char* const> folders;
  std::span<const char* const> packages;
};
MacOSXCandidates macOSXCandidates(const std::string& archName);

}  // namespace utils
