// What is made of the machine's answers, on a machine that answers what the test wants.

#include "osal/osal_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "Files.h"
#include "HostFake.h"
#include "Limits.h"
#include "Said.h"
#include "TempFolder.h"
#include "base/osal/MacOS/UxosalTools.h"
#include "base/osal/osalnet.h"
#include "base/osal/osalsysinfo.h"
#include "base/sysdef/tunablesValues.h"
#include "osal/osal_sys.h"

namespace {

class OnAFakeMachine : public ::testing::Test {
 protected:
  OnAFakeMachine() { hostFake = {}; }

  Said said{"OSAL:5;"};
};

TEST_F(OnAFakeMachine, EveryAnswerMayFail) {
  hostFake.error = EPERM;
  char text[33];
  int major = -7;
  unsigned int mib = 0;
  unsigned long long physical = 0;
  EXPECT_EQ(said(osal_getHostUID(text, sizeof text)), "-1 ERR gethostuuid failed with error 1");
  EXPECT_EQ(said(osal_macOSReleaseGet(&major)), "-1 ERR Cannot get kernel release (1)");
  EXPECT_EQ(major, -7);
  EXPECT_EQ(osal_getRunTimeSecs(), 0U);
  EXPECT_EQ(said(), "ERR Cannot get up-time (1)");
  EXPECT_EQ(said(osal_getRAMInfos(mib, mib, physical)), "-1 ERR Cannot get memory information (1)");
  EXPECT_EQ(osal_getFinderUser(), "");
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 0.0.0");
  EXPECT_EQ(said(), "");
}

TEST_F(OnAFakeMachine, AnswersAreConverted) {
  hostFake.uuid = {0x00, 0x01, 0x7F, 0x80, 0xAB, 0xCD, 0xEF, 0xFF, 0x10};
  char text[33];
  EXPECT_EQ(osal_getHostUID(text, sizeof text), 0);
  EXPECT_STREQ(text, "00017F80ABCDEFFF1000000000000000");
  hostFake.upTimeMs = 4294967296999;
  EXPECT_EQ(osal_getRunTimeSecs(), 4294967296U);
  hostFake.regions = {{(3ULL << 20) - 1, HostShareMode::Private, 1, 0}};
  hostFake.residentSize = 7ULL << 20;
  hostFake.physicalMemory = 1ULL << 53;
  unsigned int own = 0;
  unsigned int resident = 0;
  unsigned long long physical = 0;
  EXPECT_EQ(osal_getRAMInfos(own, resident, physical), 0);
  EXPECT_EQ(own, 2U);
  EXPECT_EQ(resident, 7U);
  EXPECT_EQ(physical, 1ULL << 33);
  constexpr std::pair<const char*, int> kReleases[] = {{"23.5.0", 23}, {"8", 8}, {"x.1", 0}};
  for (const auto& [release, expected] : kReleases) {
    hostFake.kernelRelease = release;
    int major = -7;
    EXPECT_EQ(osal_macOSReleaseGet(&major), 0);
    EXPECT_EQ(major, expected);
  }
  constexpr const char* kUsers[][2] = {
      {"alice", "alice"}, {"loginwindow", ""}, {"root", ""}, {"root2", "root2"}};
  for (const auto& [console, expected] : kUsers) {
    hostFake.consoleUser = console;
    EXPECT_EQ(osal_getFinderUser(), expected);
  }
}

TEST_F(OnAFakeMachine, ComputerNameFitsWithItsTerminator) {
  const struct {
    int error;
    const char* name;
    unsigned int size;
    const char* said;
  } kCases[] = {{0, "Máquina", 9, "0"},
                {0, "Máquina", 8, "-1 ERR Buffer too short to get computer name"},
                {ENOENT, "x", 64, "-1 EL2 Error getting computer name"},
                {EILSEQ, "x", 64, "-1 ERR Error converting computer name"}};
  for (const auto& c : kCases) {
    hostFake.error = c.error;
    hostFake.machineName = c.name;
    unsigned char text[64] = "before";
    EXPECT_EQ(said(osal_getcomputername(text, c.size)), c.said);
    EXPECT_STREQ(reinterpret_cast<char*>(text), *c.said == '0' ? c.name : "before");
  }
}

TEST_F(OnAFakeMachine, PriorityChangesOnlyWhereItMayBeRaised) {
  EXPECT_TRUE(osal_mayUseNice(0, 20, -20));
  EXPECT_FALSE(osal_mayUseNice(1000, -3, -4));
  EXPECT_TRUE(osal_mayUseNice(1000, -4, -4));
  const int nice = ::getpriority(PRIO_PROCESS, 0);
  osal_AdjustProcessPriority(true);
  osal_AdjustProcessPriority(false);
  if (::geteuid() != 0) GTEST_SKIP() << "only root may surely raise it";
  EXPECT_THAT(hostFake.niceValues, testing::ElementsAre(nice - 4, nice + 4));
  hostFake.error = EACCES;
  osal_AdjustProcessPriority(false);
  EXPECT_EQ(said(), "WRN Cannot set process priority (13) to " + std::to_string(nice + 4));
}

TEST_F(OnAFakeMachine, MacOSVersions) {
  constexpr struct {
    int major;
    int minor;
    int patch;
    const char* expected;
  } kCases[] = {{10, -1, 3, "Mac OS X 10.-1.3"},
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
                {27, 0, 0, "macOS 27.0.0"}};
  for (const auto& [major, minor, patch, expected] : kCases) {
    EXPECT_EQ(osalsysinfo_macOSDescription(major, minor, patch), expected);
  }
  // A text of 4 to 8 characters counts, and the numbers where there is none.
  constexpr const char* kTexts[][2] = {{"14.5", "macOS 14.5 (Sonoma)"},
                                       {"10.15.77", "macOS 10.15.77 (Catalina)"},
                                       {"26.0.1", "macOS 26.0 (Tahoe)"},
                                       {"10.x.7", "Mac OS X 10.0.0 (Cheetah)"},
                                       {"text", "macOS 0.0.0"},
                                       {"9.1", "macOS 13.2 (Ventura)"},
                                       {"10.15.777", "macOS 13.2 (Ventura)"},
                                       {"", "macOS 13.2 (Ventura)"}};
  for (const auto& [text, expected] : kTexts) {
    hostFake.productVersion = text;
    EXPECT_EQ(osalsysinfo_macOS(), expected);
  }
  hostFake.productVersion = "14.5";
  hostFake.productVersionError = ENOENT;
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 13.2 (Ventura)");
  EXPECT_TRUE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_ARM64_T6000"));
  EXPECT_TRUE(osalsysinfo_isArm64Kernel("release_arm64"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_X86_64"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel("Arm64"));
}

#if defined(__linux__)
TEST_F(OnAFakeMachine, SystemAndMachineAreNamed) {
  struct utsname system {};
  ASSERT_EQ(::uname(&system), 0);
  char osText[1025] = "before";
  char archName[1025] = "before";
  unsigned int flags = 0;
  getsysinfo(osText, archName, &flags);
  EXPECT_STREQ(osText, "Some Linux 1 (one)");
  EXPECT_STREQ(archName, system.machine);
  EXPECT_EQ(flags, 0x300U);
  hostFake.error = ENOENT;
  QD_AGENT_NAS = true;
  getsysinfo(osText, archName, &flags);
  QD_AGENT_NAS = false;
  EXPECT_STREQ(osText, system.sysname);
  EXPECT_EQ(flags, 0x340U);
}
#endif

/// A folder of scripts at the front of PATH.
class Commands : public ::testing::Test {
 protected:
  Commands() { ::setenv("PATH", (tools.path().string() + ":" + path_).c_str(), 1); }
  ~Commands() override { ::setenv("PATH", path_.c_str(), 1); }

  void add(const std::string& name, const std::string& body) const {
    writeFile(tools / name, "#!/bin/sh\n" + body);
    std::filesystem::permissions(tools / name, std::filesystem::perms::owner_all);
  }
  void addPrinter(const std::string& name, const std::string& arguments,
                  const std::string& text) const {
    add(name, "[ \"$*\" = '" + arguments + "' ] || exit 1\ncat <<'END'\n" + text + "\nEND\n");
  }

  const TempFolder tools;
  Said said{"OSAL:3;"};

 private:
  const std::string path_ = std::getenv("PATH");
};

TEST_F(Commands, GiveTheirOutput) {
  constexpr struct {
    const char* command;
    const char* result;
    const char* output;
  } kCases[] = {
      {"true", "", ""},       {"echo a; exit 3", "a", "a\n"},  {"printf 'a\\n\\n'", "a\n", "a\n\n"},
      {"printf a", "a", "a"}, {"echo a | tr a b", "b", "b\n"},
  };
  for (const auto& [command, result, output] : kCases) {
    EXPECT_EQ(resultOfCommand(command), result);
    EXPECT_EQ(executeCommand(command), output);
  }
  for (const std::size_t size : {127U, 128U, 129U, 255U, 256U, 257U, 100000U}) {
    const std::string command = "head -c " + std::to_string(size) + " /dev/zero | tr '\\0' x";
    EXPECT_EQ(resultOfCommand(command), std::string(size, 'x'));
    EXPECT_EQ(executeCommand(command), std::string(size, 'x'));
  }
  QDLOG(OSAL, ERR, "before");  // a sanitizer's first look at the logger takes descriptors
  said.clear();
  const Limit none(RLIMIT_NOFILE, 3);
  EXPECT_EQ(resultOfCommand("echo a"), "");
  EXPECT_EQ(executeCommand("echo b"), "");
  EXPECT_EQ(said(),
            "ERR popen failed on command \"echo a\" | "
            "WRN Error executing command: echo b");
}

TEST_F(Commands, RunOneAtATime) {
  const std::string busy = tools / "busy";
  const std::string command = "mkdir '" + busy + "' && rmdir '" + busy + "' && echo alone";
  std::atomic<int> alone = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 5; ++n) {
        if (resultOfCommand(command) == "alone") ++alone;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(alone, 20);
}

TEST_F(Commands, TellSerialNumberAndAddresses) {
  addPrinter("ioreg", "-l",
             "  | \"IOPlatformUUID\" = \"X\"\n  |   \"IOPlatformSerialNumber\" = \"C02ABC123\"");
  EXPECT_EQ(osal_getSerialNumber(), "C02ABC123");
  add("ioreg", "");
  EXPECT_EQ(osal_getSerialNumber(), "");
  EXPECT_EQ(said(), "ERR Unable to retrieve serial number.");
  addPrinter("ifconfig", "",
             "lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n"
             "\tinet 127.0.0.1 netmask 0xff000000\n"
             "\tinet6 ::1 prefixlen 128\n"
             "\tinet6 fe80::1%lo0 prefixlen 64 scopeid 0x1\n"
             "en0: flags=8863<UP,BROADCAST> mtu 1500\n"
             "\tether a4:83:e7:00:11:22\n"
             "\tinet 192.168.1.5 netmask 0xffffff00\n"
             "en1: flags=8863<UP>\n"
             "\tether a4:83:e7:00:11:23");
  EXPECT_EQ(osal_getMACAddress(), "a4:83:e7:00:11:22\na4:83:e7:00:11:23");
  EXPECT_EQ(osal_getIPv4Address(), "127.0.0.1\n192.168.1.5");
  EXPECT_EQ(osal_getIPv6Address(), "::1\nfe80::1");
  add("ifconfig", "");
  EXPECT_EQ(osal_getMACAddress(), "");
}

TEST_F(Commands, AskForTheLocaleOfAPlainNameOnly) {
  add("sudo", "echo \"$#:$*\" >> '" + (tools / "asked") + "'; echo fr_FR\n");
  constexpr struct {
    const char* last;
    int result;
    const char* user;
    const char* asked;
  } kCases[] = {{"a.b_c-9  tty1", 0, "a.b_c-9", "6:-u a.b_c-9 defaults read -g AppleLocale\n"},
                {"$(reboot)  tty1", 0, "$(reboot)", ""},
                {"a\"b  tty1", 0, "a\"b", ""},
                {"", -1, "before", ""}};
  for (const auto& [last, result, expected, asked] : kCases) {
    addPrinter("last", "-1w", std::string(last) + "\nwtmp begins");
    std::filesystem::remove(tools / "asked");
    std::string user = "before";
    EXPECT_EQ(osal_getLastLogonName(user), result);
    EXPECT_EQ(user, expected);
    EXPECT_EQ(content(tools / "asked"), asked);
  }
}

}  // namespace
