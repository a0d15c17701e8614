#include "Updater/terms/utilsPlatform.h"

#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <exception>
#include <string_view>

#include "base/ground/target.h"
#include "base/osal/osalnet.h"
#include "logging/QDLog.h"

namespace utils {

AgentOS getOS() { return static_cast<AgentOS>(targetFamily()); }

bool isSyno() { return targetIsSynology(); }

const char* getConfigurationFolder() { return targetConfigurationFolder(); }

std::string getArch() {
  char description[1025] = {};
  char machine[1025] = {};
  unsigned int flags = 0;
  getsysinfo(description, machine, &flags);
  return machine;
}

AgentArch stringToAgentArch(const std::string& name) {
  if (name == "amd64" || name == "x64" || name == "x86_64") return ArchAmd64;
  if (name == "arm64" || name == "aarch64") return ArchArm64;
  if (name == "x86") return ArchX86;
  if (name == "arm" || name == "aarch32") return ArchArm;
  return name.find("armv7") != std::string::npos ? ArchArm : ArchUnknown;
}

AgentDistrib stringToAgentDistrib(const std::string& name) {
  const std::string extension = name.substr(name.rfind('.') + 1);  // npos + 1 is 0
  for (const AgentDistrib distrib :
       {DistribDeb, DistribRpm, DistribExe, DistribPkg, DistribDmg, DistribSpk}) {
    if (extension == agentDistribToString(distrib)) return distrib;
  }
  return DistribNone;
}

const char* agentOSToString(AgentOS os) {
  switch (os) {
    case OsWindows:
      return "Windows";
    case OsMacOSX:
      return "Macosx";
    case OsLinux:
      return "Linux";
    case OsUnknown:
      break;
  }
  return "Unkown";
}

const char* agentArchToString(AgentArch arch) {
  switch (arch) {
    case ArchAmd64:
      return "amd64";
    case ArchArm64:
      return "arm64";
    case ArchX86:
      return "x86";
    case ArchArm:
      return "arm";
    case ArchUnknown:
      break;
  }
  return "none";
}

const char* agentDistribToString(AgentDistrib distrib) {
  switch (distrib) {
    case DistribDeb:
      return "deb";
    case DistribRpm:
      return "rpm";
    case DistribExe:
      return "exe";
    case DistribPkg:
      return "pkg";
    case DistribDmg:
      return "dmg";
    case DistribSpk:
      return "spk";
    case DistribNone:
      break;
  }
  return "None";
}

AgentDistrib linuxDistrib(bool synology, bool debian) {
  if (synology) return DistribSpk;
  return debian ? DistribDeb : DistribRpm;
}

bool checkAdmin() { return ::getuid() == 0; }

bool isDebian() {
  struct stat info {};
  return ::stat("/usr/bin/dpkg", &info) == 0;
}

std::string getTempDir() {
  try {
    return boost::filesystem::temp_directory_path().string();
  } catch (const std::exception& e) {
    QDLOG(ROOT, ERR, "getTempDir Error: " << e.what());
    return {};
  }
}

std::string joinPath(const std::string& folder, const std::string& name) {
  if (name.empty()) return folder;
  return folder.ends_with('/') ? folder + name : folder + '/' + name;
}

std::string withoutExtension(const std::string& name) { return name.substr(0, name.rfind('.')); }

}  // namespace utils
