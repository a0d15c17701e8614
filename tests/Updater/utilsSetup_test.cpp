#include "Updater/utilsSetup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "LogCapture.h"
#include "Updater/Updater.h"

namespace {

using namespace utils;
using ::testing::ElementsAre;
using ::testing::StartsWith;

/// An entry that fits an amd64 Linux machine with deb packages; `changes` replaces members, null
/// removes one.
nlohmann::json entry(const nlohmann::json& changes = nlohmann::json::object()) {
  nlohmann::json j = {{"name", "n"},        {"path", "/linux/amd64"}, {"setup", "agent.deb"},
                      {"version", "v.txt"}, {"hash", "agent.md5"},    {"os", OsLinux},
                      {"arch", ArchAmd64},  {"enable", true}};
  j.merge_patch(changes);
  return j;
}

std::string chosen(const nlohmann::json& file, AgentOS os = OsLinux, AgentArch arch = ArchAmd64,
                   AgentDistrib distrib = DistribDeb) {
  return chooseSetup(file.dump(), os, arch, distrib).setup;
}

TEST(ChooseSetup, TakesTheFirstFittingEntry) {
  using J = nlohmann::json;
  const auto array = [](std::initializer_list<J> entries) { return J::array_t(entries); };
  const struct {
    const char* what;
    J file;
    AgentOS os;
    AgentArch arch;
    AgentDistrib distrib;
    const char* expected;
  } kCases[] = {
      {"fits", array({entry()}), OsLinux, ArchAmd64, DistribDeb, "agent.deb"},
      {"disabled is skipped", array({entry({{"enable", false}}), entry({{"setup", "b.deb"}})}),
       OsLinux, ArchAmd64, DistribDeb, "b.deb"},
      {"architecture", array({entry()}), OsLinux, ArchArm64, DistribDeb, ""},
      {"Linux ignores os", array({entry({{"os", 2}})}), OsLinux, ArchAmd64, DistribDeb,
       "agent.deb"},
      {"rpm machine", array({entry(), entry({{"setup", "a.rpm"}})}), OsLinux, ArchAmd64, DistribRpm,
       "a.rpm"},
      {"Synology", array({entry({{"setup", "a.spk"}})}), OsLinux, ArchAmd64, DistribSpk, "a.spk"},
      {"extension alone", array({entry({{"setup", "deb"}}), entry({{"setup", ".deb"}})}), OsLinux,
       ArchAmd64, DistribDeb, ".deb"},
      {"extension in capitals", array({entry({{"setup", "a.DEB"}})}), OsLinux, ArchAmd64,
       DistribDeb, ""},
      {"macOS takes any name", array({entry({{"os", 2}, {"setup", "whatever"}})}), OsMacOSX,
       ArchAmd64, DistribNone, "whatever"},
      {"macOS wants os 2", array({entry()}), OsMacOSX, ArchAmd64, DistribNone, ""},
      {"Windows", array({entry({{"os", 1}, {"setup", "a.exe.old"}})}), OsWindows, ArchAmd64,
       DistribExe, "a.exe.old"},
      {"Windows without exe", array({entry({{"os", 1}})}), OsWindows, ArchAmd64, DistribExe, ""},
      {"unknown system", array({entry()}), OsUnknown, ArchAmd64, DistribDeb, ""},
      {"no entries", J::array(), OsLinux, ArchAmd64, DistribDeb, ""},
      {"null", nullptr, OsLinux, ArchAmd64, DistribDeb, ""},
      {"object by ascending keys",
       {{"b", entry()}, {"a", entry({{"setup", "first.deb"}})}},
       OsLinux,
       ArchAmd64,
       DistribDeb,
       "first.deb"},
      {"empty name hides the next", array({entry({{"os", 2}, {"setup", ""}}), entry({{"os", 2}})}),
       OsMacOSX, ArchAmd64, DistribNone, ""},
      {"numbers as the library has them", array({entry({{"arch", true}})}), OsLinux, ArchAmd64,
       DistribDeb, "agent.deb"},
      {"a fraction is cut", array({entry({{"arch", 1.9}})}), OsLinux, ArchAmd64, DistribDeb,
       "agent.deb"},
      {"faults behind the choice are not seen", array({entry(), 5}), OsLinux, ArchAmd64, DistribDeb,
       "agent.deb"},
  };
  for (const auto& [what, file, os, arch, distrib, expected] : kCases) {
    SCOPED_TRACE(what);
    EXPECT_EQ(chosen(file, os, arch, distrib), expected);
  }
}

TEST(ChooseSetup, AFaultyFileIsLoggedAndEmpty) {
  const struct {
    const char* what;
    std::string text;
    const char* line;
  } kCases[] = {
      {"no JSON", "<html>", "ROOT:ERR Parsing error : [json.exception.parse_error.101]"},
      {"comment", "/**/[]", "ROOT:ERR Parsing error : [json.exception.parse_error.101]"},
      {"cut off", "[", "ROOT:ERR Parsing error : [json.exception.parse_error.101]"},
      {"missing name", nlohmann::json::array({entry({{"name", nullptr}}), entry()}).dump(),
       "ROOT:ERR Parsing error : [json.exception.out_of_range.403] key 'name' not found"},
      {"text for a flag", nlohmann::json::array({entry({{"enable", "true"}})}).dump(),
       "ROOT:ERR Parsing error : [json.exception.type_error.302]"},
      {"a number alone", "5", "ROOT:ERR Parsing error : [json.exception.type_error.304]"},
      {"too large", nlohmann::json::array({entry({{"arch", 4294967297}})}).dump(),
       "ROOT:ERR Parsing error : number out of range in arch"},
      {"too small", nlohmann::json::array({entry({{"os", -2147483649}})}).dump(),
       "ROOT:ERR Parsing error : number out of range in os"},
      {"far too large", nlohmann::json::array({entry({{"os", 1e300}})}).dump(),
       "ROOT:ERR Parsing error : number out of range in os"},
      {"folder", nlohmann::json::array({entry({{"setup", "../a.deb"}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
      {"absolute", nlohmann::json::array({entry({{"setup", "/etc/a.deb"}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
      {"backslash", nlohmann::json::array({entry({{"setup", "a\\b.deb"}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
      {"option", nlohmann::json::array({entry({{"setup", "-a.deb"}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
      {"hidden", nlohmann::json::array({entry({{"setup", ".a.deb"}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
      {"line feed", nlohmann::json::array({entry({{"setup", "a\nb.deb"}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
      {"NUL", nlohmann::json::array({entry({{"setup", std::string("a\0b.deb", 7)}})}).dump(),
       "ROOT:ERR Parsing error : invalid setup name"},
  };
  for (const auto& [what, text, line] : kCases) {
    SCOPED_TRACE(what);
    LogCapture log(QDLOG_ROOT, 5);
    Updater updater(false);
    updater.os = OsLinux;
    updater.arch = ArchAmd64;
    updater.distrib = DistribDeb;
    EXPECT_EQ(updater.parseAgentSetupCfg(text).setup, "");
    EXPECT_THAT(log.lines(), ElementsAre(StartsWith(line)));
  }
}

TEST(SetupLayout, FollowsTheServerLayoutOfEachSystem) {
  const struct {
    AgentArch arch;
    AgentDistrib distrib;
    const char* base;
    const char* name;
  } kLinux[] = {
      {ArchAmd64, DistribDeb, "S/linux/amd64/", "setup.deb"},
      {ArchArm64, DistribRpm, "S/linux/aarch64/", "setup.rpm"},
  };
  for (const auto& [arch, distrib, base, name] : kLinux) {
    SetuParameter p;
    EXPECT_TRUE(fillLinuxLayout(p, "S", "/tmp", arch, distrib));
    EXPECT_EQ(p.setupUrl, std::string(base) + name);
    EXPECT_EQ(p.hashUrl, std::string(base) + name + ".md5");
    EXPECT_EQ(p.versionUrl, std::string(base) + "version_long.txt");
    EXPECT_EQ(p.setupPath, std::string("/tmp/") + name);
  }
  SetuParameter p;
  EXPECT_FALSE(fillLinuxLayout(p, "S", "/tmp", ArchX86, DistribDeb));
  EXPECT_EQ(p.setupUrl + p.versionUrl, "");
  EXPECT_THROW(fillLinuxLayout(p, "S", "/tmp", ArchAmd64, DistribSpk), std::runtime_error);

  SetuParameter windows;
  fillWindowsLayout(windows, "S", "T");
  fillWindowsCommands(windows);
  EXPECT_EQ(windows.setupUrl, "S/windows/amd64/setup.exe");
  EXPECT_EQ(windows.hashUrl, "S/windows/amd64/setup.exe.md5");
  EXPECT_EQ(windows.versionUrl, "S/windows/amd64/version_long.txt");
  EXPECT_EQ(windows.installCmd, "T/setup.exe /q");
  EXPECT_EQ(windows.startCmd + "; " + windows.stopCmd, "net start qdagent; net stop qdagent");
}

TEST(SetupLayout, TakesNamesFromADefinition) {
  SetuParameter p;
  AgentSetupDef def = nlohmann::json(entry({{"setup", "Kesa_ARM64.dmg"}})).get<AgentSetupDef>();
  fillFromDefinition(p, def, "S", "/tmp/");
  EXPECT_EQ(p.setupUrl, "S/linux/amd64/Kesa_ARM64.dmg");
  EXPECT_EQ(p.hashUrl, "S/linux/amd64/agent.md5");
  EXPECT_EQ(p.versionUrl, "S/linux/amd64/v.txt");
  EXPECT_EQ(p.setupPath, "/tmp/Kesa_ARM64.dmg");
  EXPECT_EQ(p.pkgName, "Kesa_ARM64");
}

TEST(SetupCommands, HaveTheirExactText) {
  const auto filled = [](AgentOS os, AgentDistrib distrib, const char* path) {
    SetuParameter p;
    p.setupPath = path;
    if (os == OsMacOSX) {
      fillMacOSXCommands(p, distrib);
    } else {
      fillLinuxCommands(p, distrib);
    }
    return std::vector<std::string>{p.installCmd, p.startCmd, p.stopCmd, p.postInstallCmd};
  };
  constexpr const char* kLoad = "launchctl load /Library/LaunchDaemons/com.qdagent.plist";
  constexpr const char* kUnload = "launchctl unload /Library/LaunchDaemons/com.qdagent.plist";
  EXPECT_THAT(filled(OsMacOSX, DistribPkg, "/tmp/a.pkg"),
              ElementsAre("installer -target / -pkg \"/tmp/a.pkg\"", kLoad, kUnload, ""));
  EXPECT_THAT(filled(OsMacOSX, DistribPkg, "/tmp/a$b.pkg"),
              ElementsAre("installer -target / -pkg \"/tmp/a\\$b.pkg\"", kLoad, kUnload, ""));
  EXPECT_THAT(filled(OsMacOSX, DistribDmg, "/tmp/a.dmg"),
              ElementsAre("installer -target / -pkg ", kLoad, kUnload, ""));
  EXPECT_THAT(
      filled(OsLinux, DistribDeb, "/tmp/a.deb"),
      ElementsAre("dpkg -i /tmp/a.deb", "systemctl start qdagent", "systemctl stop qdagent", ""));
  EXPECT_THAT(filled(OsLinux, DistribDeb, "/tmp/a b.deb"),
              ElementsAre("dpkg -i '/tmp/a b.deb'", "systemctl start qdagent",
                          "systemctl stop qdagent", ""));
  EXPECT_THAT(
      filled(OsLinux, DistribRpm, "/tmp/a.rpm"),
      ElementsAre("rpm -U /tmp/a.rpm", "systemctl start qdagent", "systemctl stop qdagent", ""));
  EXPECT_THAT(filled(OsLinux, DistribSpk, "/tmp/a.spk"),
              ElementsAre("synopkg install /tmp/a.spk", "synopkg start kesa", "synopkg stop kesa",
                          "/bin/sed -i 's/package/root/g' /var/packages/kesa/conf/privilege"));
  EXPECT_THROW(filled(OsLinux, DistribDmg, ""), std::runtime_error);
}

TEST(SetupLayout, KnowsTheCandidatesOfMacOS) {
  const MacOSXCandidates arm = macOSXCandidates("arm64");
  EXPECT_THAT(std::vector<std::string>(arm.folders.begin(), arm.folders.end()),
              ElementsAre("/macosx/arm64", "/macosx-arm64", "/macosx"));
  EXPECT_THAT(
      std::vector<std::string>(arm.packages.begin(), arm.packages.end()),
      ElementsAre("setup.pkg", "setup.dmg", "Kesa_ARM64.pkg", "Kesa_ARM64.dmg", "TideKeeper.dmg"));
  const MacOSXCandidates amd = macOSXCandidates("amd64");
  EXPECT_THAT(std::vector<std::string>(amd.folders.begin(), amd.folders.end()),
              ElementsAre("/macosx/amd64", "/macosx"));
  EXPECT_STREQ(amd.packages[2], "Kesa_x64.pkg");
  for (const char* const none : {"x86", "arm", "none"}) {
    EXPECT_TRUE(macOSXCandidates(none).folders.empty());
  }
}

}  // namespace
