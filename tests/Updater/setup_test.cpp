// What is fetched and run: from the definition file, or by the built-in rules.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "LogCapture.h"
#include "Updater/Updater.h"
#include "Updater/utilsSetup.h"

namespace {

using namespace utils;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using Json = nlohmann::json;

/// An entry that fits an amd64 Linux machine with deb packages; `changes` replaces members, null
/// removes one.
Json entry(const Json& changes = Json::object()) {
  Json j = {{"name", "n"},        {"path", "/linux/amd64"}, {"setup", "agent.deb"},
            {"version", "v.txt"}, {"hash", "agent.md5"},    {"os", OsLinux},
            {"arch", ArchAmd64},  {"enable", true}};
  j.merge_patch(changes);
  return j;
}

Json named(const std::string& setup) { return entry({{"setup", setup}}); }

TEST(ChooseSetup, TakesTheFirstFittingEntry) {
  struct Machine {
    AgentOS os = OsLinux;
    AgentArch arch = ArchAmd64;
    AgentDistrib distrib = DistribDeb;
  };
  constexpr Machine kDeb;
  constexpr Machine kMac{OsMacOSX, ArchAmd64, DistribNone};
  constexpr Machine kWindows{OsWindows, ArchAmd64, DistribExe};
  const auto list = [](std::initializer_list<Json> entries) { return Json::array_t(entries); };
  const struct {
    const char* what;
    Json file;
    Machine machine;
    const char* expected;
  } kCases[] = {
      {"disabled is skipped", list({entry({{"enable", false}}), named("b.deb")}), kDeb, "b.deb"},
      {"Linux ignores os", list({entry({{"os", 2}})}), kDeb, "agent.deb"},
      {"rpm", list({entry(), named("a.rpm")}), {OsLinux, ArchAmd64, DistribRpm}, "a.rpm"},
      {"spk", list({named("a.spk")}), {OsLinux, ArchAmd64, DistribSpk}, "a.spk"},
      {"the extension alone", list({named("deb"), named(".deb")}), kDeb, ".deb"},
      {"extension in capitals", list({named("a.DEB")}), kDeb, ""},
      {"macOS takes any name", list({entry({{"os", 2}, {"setup", "any"}})}), kMac, "any"},
      {"Windows", list({entry({{"os", 1}, {"setup", "a.exe.old"}})}), kWindows, "a.exe.old"},
      {"Windows wants os 1", list({named("a.exe")}), kWindows, ""},
      {"unknown system", list({entry()}), {OsUnknown, ArchAmd64, DistribDeb}, ""},
      {"object by keys", {{"b", entry()}, {"a", named("first.deb")}}, kDeb, "first.deb"},
      {"empty name hides the next", list({entry({{"os", 2}, {"setup", ""}}), entry({{"os", 2}})}),
       kMac, ""},
      {"true is 1, a fraction is cut", list({entry({{"arch", true}, {"os", 3.9}})}), kDeb,
       "agent.deb"},
      {"the limits of int", list({entry({{"os", 2147483647}}), entry()}), kDeb, "agent.deb"},
      {"the limits of int", list({entry({{"os", -2147483647 - 1}})}), kDeb, "agent.deb"},
      {"and of its fractions", list({entry({{"os", 2147483647.5}})}), kDeb, "agent.deb"},
      {"faults behind the choice are not seen", list({entry(), 5}), kDeb, "agent.deb"},
  };
  for (const auto& [what, file, machine, expected] : kCases) {
    EXPECT_EQ(chooseSetup(file.dump(), machine.os, machine.arch, machine.distrib).setup, expected)
        << what;
  }
}

TEST(ChooseSetup, AFaultyFileIsLoggedAndEmpty) {
  const std::string error = "ROOT:ERR Parsing error : ";
  const auto one = [](const Json& changes) { return Json::array({entry(changes)}).dump(); };
  const struct {
    std::string text;
    std::string line;
  } kCases[] = {
      {"<html>", "[json.exception.parse_error.101]"},
      {"[", "[json.exception.parse_error.101]"},
      {"5", "[json.exception.type_error.304]"},
      {one({{"name", nullptr}}), "[json.exception.out_of_range.403] key 'name' not found"},
      {one({{"enable", "true"}}), "[json.exception.type_error.302]"},
      {one({{"arch", 2147483648}}), "number out of range in arch"},
      {one({{"os", -2147483649}}), "number out of range in os"},
      {one({{"setup", "../a.deb"}}), "invalid setup name"},
      {one({{"setup", "a\\b.deb"}}), "invalid setup name"},
      {one({{"setup", "-a.deb"}}), "invalid setup name"},
      {one({{"setup", ".a.deb"}}), "invalid setup name"},
      {one({{"setup", "a\x1F.deb"}}), "invalid setup name"},
      {one({{"setup", "a\x7F.deb"}}), "invalid setup name"},
      {one({{"setup", std::string("a\0b.deb", 7)}}), "invalid setup name"},
  };
  for (const auto& [text, line] : kCases) {
    const LogCapture log(QDLOG_ROOT, 5);
    Updater updater(false);
    updater.os = OsLinux;
    updater.arch = ArchAmd64;
    updater.distrib = DistribDeb;
    EXPECT_EQ(updater.parseAgentSetupCfg(text).setup, "");
    EXPECT_THAT(log.lines(), ElementsAre(StartsWith(error + line))) << text;
  }
}

/// What has been filled in.
std::string texts(const SetuParameter& p) {
  return p.versionUrl + " " + p.setupUrl + " " + p.hashUrl + " " + p.setupPath + " " + p.pkgName;
}

TEST(SetupLayout, FollowsTheServerLayoutOfEachSystem) {
  SetuParameter deb;
  SetuParameter rpm;
  SetuParameter windows;
  SetuParameter defined;
  EXPECT_TRUE(fillLinuxLayout(deb, "S", "/tmp", ArchAmd64, DistribDeb));
  EXPECT_TRUE(fillLinuxLayout(rpm, "S", "/tmp/", ArchArm64, DistribRpm));
  fillWindowsLayout(windows, "S", "T");
  fillWindowsCommands(windows);
  fillFromDefinition(defined, named("K_ARM64.dmg").get<AgentSetupDef>(), "S", "/tmp/");
  EXPECT_EQ(texts(deb),
            "S/linux/amd64/version_long.txt S/linux/amd64/setup.deb S/linux/amd64/setup.deb.md5 "
            "/tmp/setup.deb ");
  EXPECT_EQ(texts(rpm),
            "S/linux/aarch64/version_long.txt S/linux/aarch64/setup.rpm "
            "S/linux/aarch64/setup.rpm.md5 /tmp/setup.rpm ");
  EXPECT_EQ(texts(windows),
            "S/windows/amd64/version_long.txt S/windows/amd64/setup.exe "
            "S/windows/amd64/setup.exe.md5 T/setup.exe ");
  EXPECT_EQ(windows.stopCmd + ";" + windows.installCmd + ";" + windows.startCmd,
            "net stop qdagent;T/setup.exe /q;net start qdagent");
  EXPECT_EQ(texts(defined),
            "S/linux/amd64/v.txt S/linux/amd64/K_ARM64.dmg S/linux/amd64/agent.md5 "
            "/tmp/K_ARM64.dmg K_ARM64");
  SetuParameter none;
  fillLinuxCommands(rpm, DistribRpm);
  EXPECT_EQ(rpm.installCmd, "rpm -U /tmp/setup.rpm");
  EXPECT_THROW(fillLinuxCommands(none, DistribDmg), std::runtime_error);
  EXPECT_FALSE(fillLinuxLayout(none, "S", "/tmp", ArchX86, DistribDeb));
  EXPECT_EQ(none.setupUrl, "");
  EXPECT_THROW(fillLinuxLayout(none, "S", "/tmp", ArchAmd64, DistribSpk), std::runtime_error);
}

}  // namespace
