#include "osal/osal_sys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cctype>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>

#include "Limits.h"
#include "Said.h"

namespace {

TEST(OsalEnv, CopiesAValueThatFitsWithItsTerminator) {
  Said said("OSAL:5;");
  const std::string noSuch = "WRN Could not find environment variable \"QD_NONE\"";
  char text[1024] = "before";
  EXPECT_EQ(osal_setEnv("QD_TEST", "abc"), 0);
  EXPECT_EQ(said(osal_getEnv("QD_TEST", text, 3)),
            "-1 ERR Buffer too small to put result = \"abc\" for key = \"QD_TEST\"");
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(said(osal_getEnv("QD_TEST", text, 4)), "0");
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(said(osal_getEnv("QD_NONE", text, 1)), "0 " + noSuch);
  EXPECT_STREQ(text, "");
}

TEST(OsalIdentity, MakesNewTimeBasedUuidsWhereThereIsRoom) {
  Said said("OSAL:5;");
  char first[33];
  char second[33];
  EXPECT_EQ(said(osal_genUUID(first, 32)),
            "-1 ERR osal_genUUID -> buffer too small (32 B ; 33 B needed)");
  EXPECT_EQ(said(osal_getHostUID(first, 32)), "-1 ERR Buffer too short");
  EXPECT_EQ(osal_genUUID(first, 33) + osal_genUUID(second, 33), 0);
  EXPECT_THAT(first, testing::MatchesRegex("[0-9A-F]{12}1[0-9A-F]{3}[89AB][0-9A-F]{15}"));
  EXPECT_STRNE(first, second);
}

TEST(OsalPriority, BelongsToRootOrToWhomTheLimitAllowsIt) {
  EXPECT_TRUE(osal_mayUseNice(0, 20, -20));
  EXPECT_TRUE(osal_mayUseNice(1, 5, 5));
  EXPECT_FALSE(osal_mayUseNice(1, 5, 4));
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
    int offset;
  } kCases[] = {{"UTC0", 86399999, false, "1970/01/01, 23:59:59", 0},
                {"PST8PDT,M3.2.0,M11.1.0", 1706741999000, true, "2024-01-31_14-59-59", -28800},
                {"PST8PDT,M3.2.0,M11.1.0", 1719784799000, true, "2024-06-30_14-59-59", -25200}};
  unsigned char text[64];
  const auto textOf = [&](unsigned long long timeMs, bool forFileName = true) {
    EXPECT_EQ(osal_formated_time(text, true, timeMs, forFileName), 0);
    return std::string(reinterpret_cast<char*>(text));
  };
  int seconds = 7;
  for (const auto& c : kCases) {
    useTimeZone(c.zone);
    EXPECT_EQ(textOf(c.timeMs, c.forFileName), c.expected);
    EXPECT_EQ(osal_tzOffsetAt(static_cast<time_t>(c.timeMs / 1000), &seconds), 0);
    EXPECT_EQ(seconds, c.offset);
  }
  EXPECT_EQ(osal_getIniTZOffset(&seconds), 0);
  EXPECT_EQ(seconds, -28800);
  useTimeZone("NPT-5:45");
  EXPECT_EQ(osal_getTZOffset(&seconds), 0);
  EXPECT_EQ(seconds, 20700);
  useTimeZone(nullptr);
  unsigned long long ms = 0;
  EXPECT_EQ(osal_getMs(&ms), 0);
  const std::string before = textOf(ms);
  EXPECT_LE(before, textOf(0));
  EXPECT_EQ(osal_timevalToMs({4294967296, 1999}, &ms), 0);
  EXPECT_EQ(ms, 4294967296001U);
  EXPECT_EQ(osal_timevalToMs({5, -1}, &ms), -1);
  EXPECT_EQ(osal_tzOffsetAt(LLONG_MAX, &seconds), -1);
}

TEST(OsalTime, PausesToTheEndThroughSignals) {
  const auto start = std::chrono::steady_clock::now();
  {
    const Alarms alarms;
    EXPECT_EQ(osal_doSleep(30), 0);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

#if defined(__linux__)
TEST(OsalSys, TellsWhatThisMachineTells) {
  const auto firstWord = [](const char* file) {
    std::string text;
    std::ifstream(file) >> text;
    return text;
  };
  const unsigned long long before = std::stoull(firstWord("/proc/uptime"));
  const unsigned long long now = osal_getRunTimeSecs();
  EXPECT_LE(before, now);
  EXPECT_LE(now, std::stoull(firstWord("/proc/uptime")));
  unsigned int privateMiB = 0;
  unsigned int residentMiB = 0;
  unsigned long long physicalMiB = 0;
  EXPECT_EQ(osal_getRAMInfos(privateMiB, residentMiB, physicalMiB), 0);
  EXPECT_TRUE(privateMiB > 0 && physicalMiB > residentMiB);
  unsigned char computer[1025] = "";
  EXPECT_EQ(osal_getcomputername(computer, sizeof computer), 0);
  const auto size =
      static_cast<unsigned int>(std::string(reinterpret_cast<char*>(computer)).size());
  EXPECT_EQ(osal_getcomputername(computer, size + 1), 0);
  EXPECT_EQ(osal_getcomputername(computer, size), -1);
  OSAL_uname u;
  EXPECT_EQ(osal_GetUname(u), 0);
  EXPECT_EQ(u.release + osal_getHostname(), firstWord("/proc/sys/kernel/osrelease") + u.nodename);
  std::string id = firstWord("/etc/machine-id");
  if (id.size() != 32) GTEST_SKIP() << "this system has no machine id";
  char text[33];
  EXPECT_EQ(osal_getHostUID(text, sizeof text), 0);
  for (char& c : id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(text, id);
}
#endif

}  // namespace
