// What is fetched and run: from the definition file, or by the built-in rules.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "Updater/setup/utilsSetup.h"

namespace {

using namespace utils;
using Json = nlohmann::json;

/// An entry that fits an amd64 Linux machine with deb packages; `changes` replaces members.
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
  const auto list = [](std::initializer_list<Json> entries) { return Json::array_t(entries); };
  const struct {
    const char* what;
    Json file;
    Machine machine;
    const char* expected;
  } kCases[] = {
      {"rpm", list({entry(), named("a.rpm")}), {OsLinux, ArchAmd64, DistribRpm}, "a.rpm"},
      {"extension alone", list({named("deb"), named(".deb")}), kDeb, ".deb"},
      {"Windows",
       list({named("a.exe"), entry({{"os", 1}, {"setup", "a.EXE"}}),
             entry({{"os", 1}, {"setup", "a.exe.1"}})}),
       {OsWindows, ArchAmd64, DistribExe},
       "a.exe.1"},
      {"object by keys", {{"b", entry()}, {"a", named("first.deb")}}, kDeb, "first.deb"},
  };
  for (const auto& [what, file, machine, expected] : kCases) {
    EXPECT_EQ(chooseSetup(file.dump(), machine.os, machine.arch, machine.distrib).setup, expected)
        << what;
  }
}

/// What has been filled in.
std::string texts(const SetuParameter& p) {
  return p.versionUrl + " " + p.setupUrl + " " + p.hashUrl + " " + p.setupPath + " " + p.installCmd;
}

TEST(SetupLayout, FollowsTheServerLayoutOfEachSystem) {
  SetuParameter rpm;
  SetuParameter windows;
  EXPECT_TRUE(fillLinuxLayout(rpm, "S", "/tmp/", ArchArm64, DistribRpm));
  fillLinuxCommands(rpm, DistribRpm);
  fillWindowsLayout(windows, "S", "T");
  fillWindowsCommands(windows);
  EXPECT_EQ(texts(rpm),
            "S/linux/aarch64/version_long.txt S/linux/aarch64/setup.rpm "
            "S/linux/aarch64/setup.rpm.md5 /tmp/setup.rpm rpm -U /tmp/setup.rpm");
  EXPECT_EQ(texts(windows),
            "S/windows/amd64/version_long.txt S/windows/amd64/setup.exe "
            "S/windows/amd64/setup.exe.md5 T/setup.exe T/setup.exe /q");
  EXPECT_EQ(windows.stopCmd + ";" + windows.startCmd, "net stop qdagent;net start qdagent");
}

}  // namespace
