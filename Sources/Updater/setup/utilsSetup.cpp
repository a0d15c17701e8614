#include "Updater/setup/utilsSetup.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Updater/command/utilsShell.h"

namespace utils {

namespace {

constexpr const char* kVersionFile = "version_long.txt";
constexpr const char* kDigestExtension = ".md5";

/// A member as an int. The library alone would cut a number that does not fit to another one.
int intMember(const nlohmann::json& j, const char* key) {
  using Int = std::numeric_limits<int>;
  const nlohmann::json& value = j.at(key);
  bool fits = true;
  if (value.is_number_float()) {
    const double number = value.get<double>();
    fits = number > Int::min() - 1.0 && number < Int::max() + 1.0;
  } else if (value.is_number_unsigned()) {
    fits = value.get<unsigned long long>() <= static_cast<unsigned long long>(Int::max());
  } else if (value.is_number_integer()) {
    fits = value.get<long long>() >= Int::min();
  }
  if (!fits) throw std::out_of_range(std::string("number out of range in ") + key);
  return value.get<int>();
}

/// Whether `name` may become a file in the temporary folder and a word of a command: a plain file
/// name, neither an option nor hidden. A package may be called by its extension alone, though.
bool isPlainFileName(const std::string& name) {
  const bool hidden = name.starts_with('.') && name != ".deb" && name != ".rpm" && name != ".spk";
  return !name.starts_with('-') && !hidden &&
         std::none_of(name.begin(), name.end(), [](unsigned char c) {
           return c == '/' || c == '\\' || c < 0x20 || c == 0x7F;
         });
}

void fillUrls(SetuParameter& p, const std::string& base, const std::string& setupName) {
  p.setupUrl = base + setupName;
  p.versionUrl = base + kVersionFile;
  p.hashUrl = base + setupName + kDigestExtension;
}

}  // namespace

void from_json(const nlohmann::json& j, AgentSetupDef& entry) {
  j.at("name").get_to(entry.name);
  j.at("path").get_to(entry.path);
  j.at("setup").get_to(entry.setup);
  j.at("version").get_to(entry.version);
  j.at("hash").get_to(entry.hash);
  entry.os = intMember(j, "os");
  entry.arch = intMember(j, "arch");
  j.at("enable").get_to(entry.enable);
}

bool fitsMachine(const AgentSetupDef& entry, AgentOS os, AgentArch arch, AgentDistrib distrib) {
  if (!entry.enable || entry.arch != arch) return false;
  switch (os) {
    case OsWindows:
      return entry.os == OsWindows && distrib == DistribExe &&
             entry.setup.find(".exe") != std::string::npos;
    case OsMacOSX:
      return entry.os == OsMacOSX;
    case OsLinux:
      return (distrib == DistribDeb && entry.setup.ends_with(".deb")) ||
             (distrib == DistribRpm && entry.setup.ends_with(".rpm")) ||
             (distrib == DistribSpk && entry.setup.ends_with(".spk"));
    case OsUnknown:
      break;
  }
  return false;
}

AgentSetupDef chooseSetup(const std::string& text, AgentOS os, AgentArch arch,
                          AgentDistrib distrib) {
  const nlohmann::json file = nlohmann::json::parse(text);
  for (const nlohmann::json& element : file) {
    auto entry = element.get<AgentSetupDef>();
    if (!fitsMachine(entry, os, arch, distrib)) continue;
    if (!isPlainFileName(entry.setup)) throw std::invalid_argument("invalid setup name");
    return entry;
  }
  return {};
}

void fillFromDefinition(SetuParameter& p, const AgentSetupDef& entry, const std::string& serverUrl,
                        const std::string& tempDir) {
  const std::string base = serverUrl + entry.path + "/";
  p.setupName = entry.setup;
  p.setupUrl = base + entry.setup;
  p.hashUrl = base + entry.hash;
  p.versionUrl = base + entry.version;
  p.setupPath = joinPath(tempDir, entry.setup);
  if (stringToAgentDistrib(entry.setup) == DistribDmg) p.pkgName = withoutExtension(entry.setup);
}

void fillWindowsLayout(SetuParameter& p, const std::string& serverUrl, const std::string& tempDir) {
  p.setupName = "setup.exe";
  p.setupPath = joinPath(tempDir, p.setupName);
  fillUrls(p, serverUrl + "/windows/amd64/", p.setupName);
}

bool fillLinuxLayout(SetuParameter& p, const std::string& serverUrl, const std::string& tempDir,
                     AgentArch arch, AgentDistrib distrib) {
  if (distrib != DistribRpm && distrib != DistribDeb) {
    throw std::runtime_error("Unsupported distribution");
  }
  p.setupName = distrib == DistribRpm ? "setup.rpm" : "setup.deb";
  p.setupPath = joinPath(tempDir, p.setupName);
  if (arch != ArchAmd64 && arch != ArchArm64) return false;
  fillUrls(p, serverUrl + (arch == ArchAmd64 ? "/linux/amd64/" : "/linux/aarch64/"), p.setupName);
  return true;
}

void fillWindowsCommands(SetuParameter& p) {
  p.installCmd = p.setupPath + " /q";
  p.startCmd = "net start qdagent";
  p.stopCmd = "net stop qdagent";
}

void fillMacOSXCommands(SetuParameter& p, AgentDistrib distrib) {
  p.installCmd = "installer -target / -pkg ";
  if (distrib == DistribPkg) p.installCmd += '"' + shellQuotedText(p.setupPath) + '"';
  p.startCmd = "launchctl load /Library/LaunchDaemons/com.qdagent.plist";
  p.stopCmd = "launchctl unload /Library/LaunchDaemons/com.qdagent.plist";
}

void fillLinuxCommands(SetuParameter& p, AgentDistrib distrib) {
  const std::string package = shellWord(p.setupPath);
  if (distrib == DistribSpk) {
    p.installCmd = "synopkg install " + package;
    p.startCmd = "synopkg start kesa";
    p.stopCmd = "synopkg stop kesa";
    p.postInstallCmd = "/bin/sed -i 's/package/root/g' /var/packages/kesa/conf/privilege";
    return;
  }
  if (distrib != DistribRpm && distrib != DistribDeb) {
    throw std::runtime_error("Unsupported distribution");
  }
  p.installCmd = (distrib == DistribRpm ? "rpm -U " : "dpkg -i ") + package;
  p.startCmd = "systemctl start qdagent";
  p.stopCmd = "systemctl stop qdagent";
}

MacOSXCandidates macOSXCandidates(const std::string& archName) {
  static constexpr const char* kAmd64Folders[] = {"/macosx/amd64", "/macosx"};
  static constexpr const char* kArm64Folders[] = {"/macosx/arm64", "/macosx-arm64", "/macosx"};
  static constexpr const char* kAmd64Packages[] = {"setup.pkg", "setup.dmg", "Kesa_x64.pkg",
                                                   "Kesa_x64.dmg", "TideKeeper.dmg"};
  static constexpr const char* kArm64Packages[] = {"setup.pkg", "setup.dmg", "Kesa_ARM64.pkg",
                                                   "Kesa_ARM64.dmg", "TideKeeper.dmg"};
  if (archName == "amd64" || archName == "x86_64") return {kAmd64Folders, kAmd64Packages};
  if (archName == "arm64" || archName == "aarch64") return {kArm64Folders, kArm64Packages};
  return {};
}

}  // namespace utils
