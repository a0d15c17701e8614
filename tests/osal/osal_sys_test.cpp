#include "osal/osal_sys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Files.h"
#include "Limits.h"
#include "Said.h"
#include "TempFolder.h"
#include "base/osal/MacOS/UxosalTools.h"
#include "base/osal/osalsysinfo.h"
#include "ground/osal_process.h"

namespace {

TEST(OsalEnv, CopiesAValueThatFitsWithItsTerminator) {
  Said said("OSAL:5;");
  const std::string noSuch = "WRN Could not find environment variable \"QD_NONE\"";
  char text[1024] = "before";
  EXPECT_EQ(osal_setEnv("QD_TEST", "abc"), 0);
  EXPECT_EQ(said(osal_getEnv("QD_TEST", text, 3)),
            "-1 ERR Buffer too small to put result = \"abc\" for key = \"QD_TEST\"");
  EXPECT_EQ(said(osal_getEnv("QD_NONE", text, 0)), "-1 " + noSuch + " | ERR Buffer too small");
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(said(osal_getEnv("QD_TEST", text, 4)), "0");
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(said(osal_getEnv("QD_NONE", text, 1)), "0 " + noSuch);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(said(osal_setEnv("k", nullptr)), "-1 ERR Bad argument : key = \"k\"; value = \"\"");
}

TEST(OsalIdentity, MakesNewTimeBasedUuidsWhereThereIsRoom) {
  Said said("OSAL:5;");
  char first[33];
  char second[33];
  EXPECT_EQ(said(osal_genUUID(first, 32)),
            "-1 ERR osal_genUUID -> buffer too small (32 B ; 33 B needed)");
  EXPECT_EQ(said(osal_getHostUID(first, 32)), "-1 ERR Buffer too short");
  EXPECT_EQ(said(osal_genUUID(first, 33)), "0");
  EXPECT_EQ(osal_genUUID(second, 33), 0);
  EXPECT_THAT(first, testing::MatchesRegex("[0-9A-F]{12}1[0-9A-F]{3}[89AB][0-9A-F]{15}"));
  EXPECT_STRNE(first, second);
}

TEST(OsalProcess, AForkedChildHasIdsOfItsOwn) {
  unsigned int parent = 0;
  osal_getPid(&parent);
  const pid_t child = ::fork();
  if (child == 0) {
    unsigned int pid = 0;
    unsigned long long thread = 0;
    osal_getPid(&pid);
    osal_getThreadID(&thread);
    ::_exit(pid == static_cast<unsigned int>(::getpid()) && thread != parent ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

/// A null pointer takes the setting away.
void useTimeZone(const char* zone) {
  zone != nullptr ? ::setenv("TZ", zone, 1) : ::unsetenv("TZ");
  ::tzset();
}

TEST(OsalTime, FormatsLocalTimeAndNowForZero) {
  constexpr struct {
    const char* zone;
    unsigned long long timeMs;
    bool forFileName;
    const char* expected;
  } kCases[] = {{"UTC0", 86400000, true, "1970-01-02_00-00-00"},
                {"UTC0", 86399999, false, "1970/01/01, 23:59:59"},
                {"CET-1CEST,M3.5.0,M10.5.0/3", 1706741999000, true, "2024-01-31_23-59-59"},
                {"CET-1CEST,M3.5.0,M10.5.0/3", 1719784799000, true, "2024-06-30_23-59-59"}};
  unsigned char text[64];
  for (const auto& [zone, timeMs, forFileName, expected] : kCases) {
    useTimeZone(zone);
    EXPECT_EQ(osal_formated_time(text, true, timeMs, forFileName), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(text), expected);
  }
  const auto textOf = [&](unsigned long long timeMs) {
    EXPECT_EQ(osal_formated_time(text, false, timeMs, true), 0);
    return std::string(reinterpret_cast<char*>(text));
  };
  useTimeZone(nullptr);
  unsigned long long ms = 0;
  EXPECT_EQ(osal_getMs(&ms), 0);
  const std::string before = textOf(ms);
  EXPECT_LE(before, textOf(0));
  ms = 0;
  EXPECT_EQ(osal_timevalToMs({4294967296, 1999}, &ms), 0);
  EXPECT_EQ(ms, 4294967296001U);
  Said said("OSAL:5;");
  EXPECT_EQ(said(osal_timevalToMs({5, -1}, &ms)),
            "-1 EL2 Incoherent values (tv_sec = 5, tv_usec = -1)");
}

TEST(OsalTime, TellsTheZoneOffset) {
  int seconds = 7;
  useTimeZone("PST8PDT,M3.2.0,M11.1.0");
  EXPECT_EQ(osal_tzOffsetAt(1706741999, &seconds), 0);
  EXPECT_EQ(seconds, -28800);
  EXPECT_EQ(osal_tzOffsetAt(1719784799, &seconds), 0);
  EXPECT_EQ(seconds, -25200);
  EXPECT_EQ(osal_getIniTZOffset(&seconds), 0);
  EXPECT_EQ(seconds, -28800);
  useTimeZone("NPT-5:45");
  EXPECT_EQ(osal_getTZOffset(&seconds), 0);
  EXPECT_EQ(seconds, 20700);
  useTimeZone(nullptr);
  Said said("OSAL:5;");
  EXPECT_EQ(said(osal_tzOffsetAt(LLONG_MAX, &seconds)), "-1 ERR Error with localtime");
}

TEST(OsalSysinfo, NamesMacOSVersions) {
  const std::pair<std::array<int, 3>, const char*> kCases[] = {
      {{10, -1, 3}, "Mac OS X 10.-1.3"},           {{10, 7, 5}, "Mac OS X 10.7.5 (Lion)"},
      {{10, 8, 5}, "OS X 10.8.5 (Mountain Lion)"}, {{10, 12, 6}, "macOS 10.12.6 (Sierra)"},
      {{10, 16, 0}, "macOS 11.0 (Big Sur)"},       {{10, 21, 6}, "macOS 16.6"},
      {{15, 1, 1}, "macOS 15.1 (Sequoia)"},        {{16, 2, 0}, "macOS 16.2.0"},
      {{26, 0, 1}, "macOS 26.0 (Tahoe)"},          {{27, 0, 0}, "macOS 27.0.0"}};
  for (const auto& [v, expected] : kCases) {
    EXPECT_EQ(osalsysinfo_macOSDescription(v[0], v[1], v[2]), expected);
  }
  EXPECT_TRUE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_ARM64_T6000"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_X86_64"));
}

TEST(Commands, GiveTheirOutput) {
  Said said("OSAL:3;");
  EXPECT_EQ(resultOfCommand("printf 'a\\n\\n'; exit 3"), "a\n");
  EXPECT_EQ(executeCommand("head -c 100000 /dev/zero | tr '\\0' x"), std::string(100000, 'x'));
  QDLOG(OSAL, ERR, "before");  // a sanitizer's first look at the logger takes descriptors
  said.clear();
  const Limit none(RLIMIT_NOFILE, 3);
  EXPECT_EQ(resultOfCommand("echo a"), "");
  EXPECT_EQ(executeCommand("echo b"), "");
  EXPECT_EQ(said(),
            "ERR popen failed on command \"echo a\" | "
            "WRN Error executing command: echo b");
}

TEST(Commands, AskForTheLocaleOfAPlainNameOnly) {
  const TempFolder tools;  // at the front of PATH
  const std::string former = std::getenv("PATH");
  ::setenv("PATH", (tools.path().string() + ":" + former).c_str(), 1);
  const auto add = [&tools](const char* name, const std::string& body) {
    writeFile(tools / name, "#!/bin/sh\n" + body);
    std::filesystem::permissions(tools / name, std::filesystem::perms::owner_all);
  };
  add("sudo", "echo \"$#:$*\" >> '" + (tools / "asked") + "'; echo fr_FR\n");
  for (const std::string name : {"$(reboot)", "a.b_c-9"}) {
    add("last", "[ \"$*\" = -1w ] && echo '" + name + "  tty1'");
    std::string user;
    EXPECT_EQ(osal_getLastLogonName(user), 0);
    EXPECT_EQ(user, name);
  }
  EXPECT_EQ(content(tools / "asked"), "6:-u a.b_c-9 defaults read -g AppleLocale\n");
  ::setenv("PATH", former.c_str(), 1);
}

TEST(OsalTime, PausesToTheEndThroughSignals) {
  struct sigaction former {};
  struct sigaction ignore {};
  ignore.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGALRM, &ignore, &former), 0);
  Said said("OSAL:6;");
  const auto start = std::chrono::steady_clock::now();
  ::ualarm(1000, 1000);
  const int result = osal_doSleep(30);
  ::ualarm(0, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  ASSERT_EQ(::sigaction(SIGALRM, &former, nullptr), 0);
  EXPECT_EQ(said(result), "0 DBG Sleeping 30 ms");
}

#if defined(__linux__)
TEST(OsalSys, TellsWhatThisMachineTells) {
  const auto firstWord = [](const char* file) {
    std::string text;
    std::ifstream(file) >> text;
    return text;
  };
  unsigned int pid = 0;
  unsigned long long thread = 0;
  EXPECT_EQ(osal_getPid(&pid), 0);
  osal_getThreadID(&thread);
  EXPECT_EQ(pid, static_cast<unsigned int>(::getpid()));
  EXPECT_EQ(thread, pid);  // this is the first thread
  std::thread([pid] {
    unsigned long long other = 0;
    osal_getThreadID(&other);
    EXPECT_NE(pid, other);
    char name[64] = {};
    osal_setThreadName("fifteen_letters_and_more");
    osal_setThreadName("");
    EXPECT_EQ(osal_getThreadName(name, sizeof name), 0);
    EXPECT_STREQ(name, "fifteen_letters");
  }).join();
  const unsigned long long before = std::stoull(firstWord("/proc/uptime"));
  const unsigned long long now = osal_getRunTimeSecs();
  EXPECT_LE(before, now);
  EXPECT_LE(now, std::stoull(firstWord("/proc/uptime")));
  unsigned int privateMiB = 0;
  unsigned int residentMiB = 0;
  unsigned long long physicalMiB = 0;
  EXPECT_EQ(osal_getRAMInfos(privateMiB, residentMiB, physicalMiB), 0);
  EXPECT_GT(privateMiB, 0U);
  EXPECT_GT(physicalMiB, residentMiB);
  unsigned char computer[1025] = "";
  EXPECT_EQ(osal_getcomputername(computer, sizeof computer), 0);
  const std::string name = reinterpret_cast<char*>(computer);
  const auto size = static_cast<unsigned int>(name.size());
  EXPECT_EQ(osal_getcomputername(computer, size + 1), 0);
  EXPECT_EQ(osal_getcomputername(computer, size), -1);
  OSAL_uname u;
  EXPECT_EQ(osal_GetUname(u), 0);
  EXPECT_EQ(u.release, firstWord("/proc/sys/kernel/osrelease"));
  EXPECT_EQ(osal_getHostname(), u.nodename);
  std::string id = firstWord("/etc/machine-id");
  if (id.size() != 32) GTEST_SKIP() << "this system has no machine id";
  char text[33];
  EXPECT_EQ(osal_getHostUID(text, sizeof text), 0);
  for (char& c : id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(text, id);
}
#endif

}  // namespace
