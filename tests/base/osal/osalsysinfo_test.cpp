#include "base/osal/osalsysinfo.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <array>
#include <fstream>
#include <string>

#include "base/osal/osalnet.h"
#include "base/sysdef/tunablesValues.h"

namespace {

TEST(OsalSysInfo, DescribesEveryMacOSVersion) {
  constexpr struct {
    int major;
    int minor;
    int patch;
    const char* expected;
  } kCases[] = {
      {10, -1, 3, "Mac OS X 10.-1.3"},
      {10, 0, 4, "Mac OS X 10.0.4 (Cheetah)"},
      {10, 1, 5, "Mac OS X 10.1.5 (Puma)"},
      {10, 2, 8, "Mac OS X 10.2.8 (Jaguar)"},
      {10, 3, 9, "Mac OS X 10.3.9 (Panther)"},
      {10, 4, 11, "Mac OS X 10.4.11 (Tiger)"},
      {10, 5, 8, "Mac OS X 10.5.8 (Leopard)"},
      {10, 6, 8, "Mac OS X 10.6.8 (Snow Leopard)"},
      {10, 7, 5, "Mac OS X 10.7.5 (Lion)"},
      {10, 8, 5, "OS X 10.8.5 (Mountain Lion)"},
      {10, 9, 5, "OS X 10.9.5 (Mavericks)"},
      {10, 10, 5, "OS X 10.10.5 (Yosemite)"},
      {10, 11, 6, "OS X 10.11.6 (El Capitan)"},
      {10, 12, 6, "macOS 10.12.6 (Sierra)"},
      {10, 13, 6, "macOS 10.13.6 (High Sierra)"},
      {10, 14, 6, "macOS 10.14.6 (Mojave)"},
      {10, 15, 7, "macOS 10.15.7 (Catalina)"},
      {10, 16, 0, "macOS 11.0 (Big Sur)"},
      {10, 16, 1, "macOS 11.1 (Big Sur)"},
      {10, 17, 2, "macOS 12.2 (Monterey)"},
      {10, 18, 3, "macOS 13.3 (Ventura)"},
      {10, 19, 4, "macOS 14.4 (Sonoma)"},
      {10, 20, 5, "macOS 15.5 (Sequoia)"},
      {10, 21, 6, "macOS 16.6"},
      {11, 7, 10, "macOS 11.7 (Big Sur)"},
      {12, 6, 1, "macOS 12.6 (Monterey)"},
      {13, 0, 1, "macOS 13.0 (Ventura)"},
      {14, 5, 0, "macOS 14.5 (Sonoma)"},
      {15, 1, 1, "macOS 15.1 (Sequoia)"},
      {16, 2, 0, "macOS 16.2.0"},
      {25, 1, 2, "macOS 25.1.2"},
      {26, 0, 1, "macOS 26.0 (Tahoe)"},
      {27, 0, 0, "macOS 27.0.0"},
      {9, 2, 2, "macOS 9.2.2"},
      {0, 0, 0, "macOS 0.0.0"},
  };
  for (const auto& [major, minor, patch, expected] : kCases) {
    SCOPED_TRACE(expected);
    EXPECT_EQ(osalsysinfo_macOSDescription(major, minor, patch), expected);
  }
}

TEST(OsalSysInfo, ReadsProductVersionsOfFourToEightCharacters) {
  constexpr struct {
    const char* text;
    bool usable;
    std::array<int, 3> numbers;
  } kCases[] = {
      {"14.5", true, {14, 5, 0}},      {"10.16", true, {10, 16, 0}},
      {"10.15.7", true, {10, 15, 7}},  {"10.15.77", true, {10, 15, 77}},
      {"26.0.1", true, {26, 0, 1}},    {"10.x.7", true, {10, 0, 0}},
      {"text", true, {0, 0, 0}},       {"", false, {7, 7, 7}},
      {"14", false, {7, 7, 7}},        {"9.1", false, {7, 7, 7}},
      {"10.15.777", false, {7, 7, 7}},
  };
  for (const auto& [text, usable, expected] : kCases) {
    SCOPED_TRACE(text);
    std::array<int, 3> numbers{7, 7, 7};
    EXPECT_EQ(osalsysinfo_parseVersion(text, numbers), usable);
    EXPECT_EQ(numbers, expected);
  }
}

TEST(OsalSysInfo, KnowsAnArm64KernelByItsVersionText) {
  EXPECT_TRUE(osalsysinfo_isArm64Kernel(
      "Darwin Kernel Version 23.5.0: xnu-10063.121.3~5/RELEASE_ARM64_T6000"));
  EXPECT_TRUE(osalsysinfo_isArm64Kernel("release_arm64"));
  EXPECT_FALSE(
      osalsysinfo_isArm64Kernel("Darwin Kernel Version 23.5.0: xnu-10063.121.3~5/RELEASE_X86_64"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel("Arm64"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel(""));
}

TEST(GetSysInfo, NamesSystemAndMachine) {
  struct utsname system {};
  ASSERT_EQ(::uname(&system), 0);
  std::string description;
#if defined(__APPLE__)
  GTEST_SKIP() << "the expected description is the one of os-release";
#endif
  std::ifstream release("/etc/os-release");
  for (std::string line; std::getline(release, line);) {
    if (line.starts_with("PRETTY_NAME=\"")) description = line.substr(13, line.size() - 14);
  }
  ASSERT_FALSE(description.empty());

  char osText[1025] = "before";
  char archName[1025] = "before";
  unsigned int flags = 0;
  getsysinfo(osText, archName, &flags);
  EXPECT_EQ(osText, description);
  EXPECT_STREQ(archName, system.machine);
  EXPECT_EQ(flags, 0x300U);

  QD_AGENT_NAS = true;
  getsysinfo(osText, archName, &flags);
  QD_AGENT_NAS = false;
  EXPECT_EQ(flags, 0x340U);
  EXPECT_EQ(isEmulation(), std::string(system.version).find("ARM64") != std::string::npos);
}

}  // namespace
