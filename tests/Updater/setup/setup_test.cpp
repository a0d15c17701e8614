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

TEST(ChooseSetup, TakesTheFirstFittingEntry) {
  const auto named = [](const char* setup, int os = OsLinux) {
    return entry({{"setup", setup}, {"os", os}});
  };
  const struct {
    AgentOS os;
    AgentDistrib distrib;
    Json file;
    const char* expected;
  } kCases[] = {
      {OsLinux, DistribRpm, {entry(), named("a.rpm")}, "a.rpm"},
      {OsLinux, DistribDeb, {named("deb"), named(".deb")}, ".deb"},
      {OsLinux, DistribDeb, {{"b", entry()}, {"a", named("first.deb")}}, "first.deb"},
      {OsWindows, DistribExe, {named("a.exe"), named("a.EXE", 1), named("a.exe.1", 1)}, "a.exe.1"},
  };
  for (const auto& [os, distrib, file, expected] : kCases) {
    EXPECT_EQ(chooseSetup(file.dump(), os, ArchAmd64, distrib).setup, expected);
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
