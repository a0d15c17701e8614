#pragma once

#include <string>

namespace utils {

/// Operating-system family; the setup definition file carries it as a number.
enum AgentOS : int { OsUnknown = 0, OsWindows = 1, OsMacOSX = 2, OsLinux = 3 };

/// Processor architecture; the setup definition file carries it as a number.
enum AgentArch : int { ArchUnknown = 0, ArchAmd64 = 1, ArchArm64 = 2, ArchX86 = 3, ArchArm = 4 };

/// Package kind, named after the setup file's extension.
enum AgentDistrib : int {
  DistribNone = 0,
  DistribDeb = 1,
  DistribRpm = 2,
  DistribExe = 3,
  DistribPkg = 4,
  DistribDmg = 5,
  DistribSpk = 6,
};

/// The agent's package, as Debian's and RPM's databases name it.
inline constexpr const char* kAgentPackage = "qdagent";

/// The family this program was built for.
AgentOS getOS();

/// Whether this program was built for Synology systems.
bool isSyno();

/// The folder of the agent's configuration strings, without a slash at its end; fixed at build
/// time.
const char* getConfigurationFolder();

/// The machine name as the system reports it, for instance "arm64" or "x86_64"; empty when it can't
/// be read.
std::string getArch();

/// The architecture that a machine or architecture name stands for. Case counts.
AgentArch stringToAgentArch(const std::string& name);

/// The package kind of a file name, or of a bare extension. Case counts.
AgentDistrib stringToAgentDistrib(const std::string& name);

/// "Windows", "Macosx", "Linux"; "Unkown" for every other value.
const char* agentOSToString(AgentOS os);

/// "amd64", "arm64", "x86", "arm"; "none" for every other value.
const char* agentArchToString(AgentArch arch);

/// The extension of a package kind; "None" for every other value.
const char* agentDistribToString(AgentDistrib distrib);

/// Package kind of a Linux machine.
AgentDistrib linuxDistrib(bool synology, bool debian);

/// Whether the real user is root.
bool checkAdmin();

/// Whether the system has dpkg.
bool isDebian();

/// The system's temporary folder; empty, after an ERR record, when there is none.
std::string getTempDir();

/// `folder` and `name` with one '/' between them; `folder` alone when `name` is empty.
std::string joinPath(const std::string& folder, const std::string& name);

/// The file name without its extension: the text before the last '.', or all of it.
std::string withoutExtension(const std::string& name);

}  // namespace utils
