#include "osal/osal_time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>

#include "LogCapture.h"

namespace {

using ::testing::ElementsAre;

/// Sets the process's time zone for one test.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* const former = std::getenv("TZ")) former_ = former;
    ::setenv("TZ", zone, 1);
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() {
    if (former_) {
      ::setenv("TZ", former_->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }

 private:
  std::optional<std::string> former_;
};

TEST(OsalTime, MakesMillisecondsOfSecondsAndMicroseconds) {
  LogCapture log(QDLOG_OSAL, 5);
  constexpr struct {
    struct timeval time;
    unsigned long long ms;
  } kCases[] = {
      {{0, 0}, 0},
      {{0, 999}, 0},
      {{1, 1999}, 1001},
      {{4294967296, 999999}, 4294967296999},
  };
  for (const auto& [time, expected] : kCases) {
    unsigned long long ms = 7;
    EXPECT_EQ(osal_timevalToMs(time, &ms), 0);
    EXPECT_EQ(ms, expected);
  }
  unsigned long long ms = 7;
  EXPECT_EQ(osal_timevalToMs({-1, 5}, &ms), -1);
  EXPECT_EQ(osal_timevalToMs({5, -1}, &ms), -1);
  EXPECT_EQ(ms, 7U);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:EL2 Incoherent values (tv_sec = -1, tv_usec = 5)",
                                       "OSAL:EL2 Incoherent values (tv_sec = 5, tv_usec = -1)"));
}

TEST(OsalTime, ReadsTheWallClock) {
  const auto wall = [] {
    return static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                               std::chrono::system_clock::now().time_since_epoch())
                                               .count());
  };
  unsigned long long last = wall();
  for (int i = 0; i < 1000; ++i) {
    unsigned long long ms = 0;
    ASSERT_EQ(osal_getMs(&ms), 0);
    ASSERT_LE(last, ms);
    last = ms;
  }
  EXPECT_LE(last, wall());
}

TEST(OsalTime, FormatsLocalTime) {
  constexpr unsigned long long kDay = 86400000;
  constexpr struct {
    const char* zone;
    unsigned long long timeMs;
    bool forFileName;
    const char* expected;
  } kCases[] = {
      {"UTC0", kDay, true, "1970-01-02_00-00-00"},
      {"UTC0", kDay, false, "1970/01/02, 00:00:00"},
      {"UTC0", kDay - 1, false, "1970/01/01, 23:59:59"},
      {"UTC0", 999, false, "1970/01/01, 00:00:00"},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 1706741999000, true, "2024-01-31_23-59-59"},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 1719784799000, true, "2024-06-30_23-59-59"},
      {"PST8", kDay, false, "1970/01/01, 16:00:00"},
  };
  for (const auto& [zone, timeMs, forFileName, expected] : kCases) {
    SCOPED_TRACE(std::string(zone) + " " + expected);
    const TimeZone set(zone);
    unsigned char text[64] = "before";
    EXPECT_EQ(osal_formated_time(text, true, timeMs, forFileName), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(text), expected);
  }
}

TEST(OsalTime, FormatsTheCurrentTimeForZero) {
  const TimeZone set("UTC0");
  const auto text = [](unsigned long long timeMs) {
    unsigned char buffer[64];
    EXPECT_EQ(osal_formated_time(buffer, false, timeMs, true), 0);
    return std::string(reinterpret_cast<char*>(buffer));
  };
  const auto now = [] {
    unsigned long long ms = 0;
    EXPECT_EQ(osal_getMs(&ms), 0);
    return ms;
  };
  const std::string before = text(now());
  const std::string current = text(0);
  EXPECT_LE(before, current);
  EXPECT_LE(current, text(now()));
}

TEST(OsalTime, TellsTheZoneOffset) {
  constexpr time_t kWinter = 1706741999;
  constexpr time_t kSummer = 1719784799;
  constexpr struct {
    const char* zone;
    int winter;
    int summer;
    int initial;
  } kCases[] = {
      {"UTC0", 0, 0, 0},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 3600, 7200, 3600},
      {"PST8PDT,M3.2.0,M11.1.0", -28800, -25200, -28800},
      {"NPT-5:45", 20700, 20700, 20700},
  };
  for (const auto& [zone, winter, summer, initial] : kCases) {
    SCOPED_TRACE(zone);
    const TimeZone set(zone);
    int seconds = 7;
    EXPECT_EQ(osal_tzOffsetAt(kWinter, &seconds), 0);
    EXPECT_EQ(seconds, winter);
    EXPECT_EQ(osal_tzOffsetAt(kSummer, &seconds), 0);
    EXPECT_EQ(seconds, summer);
    EXPECT_EQ(osal_getIniTZOffset(&seconds), 0);
    EXPECT_EQ(seconds, initial);
    EXPECT_EQ(osal_getTZOffset(&seconds), 0);
    EXPECT_TRUE(seconds == winter || seconds == summer) << seconds;
  }
}

TEST(OsalTime, ReportsAYearThatDoesNotFit) {
  LogCapture log(QDLOG_OSAL, 5);
  int seconds = 7;
  EXPECT_EQ(osal_tzOffsetAt(LLONG_MAX, &seconds), -1);
  EXPECT_EQ(seconds, 7);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Error with localtime"));
}

TEST(OsalTime, PausesToTheEndThroughSignals) {
  struct sigaction former {};
  struct sigaction ignore {};
  ignore.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGALRM, &ignore, &former), 0);
  const struct itimerval everyMillisecond = {{0, 1000}, {0, 1000}};
  const struct itimerval off = {};
  LogCapture log(QDLOG_OSAL, 6);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(::setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
  EXPECT_EQ(osal_doSleep(30), 0);
  ASSERT_EQ(::setitimer(ITIMER_REAL, &off, nullptr), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  ASSERT_EQ(::sigaction(SIGALRM, &former, nullptr), 0);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:DBG Sleeping 30 ms"));
}

#if defined(__linux__)
TEST(OsalTime, CountsFromTheStartOfTheSystem) {
  const auto upTime = [] {
    double seconds = 0;
    std::ifstream("/proc/uptime") >> seconds;
    return static_cast<unsigned long long>(seconds);
  };
  const unsigned long long before = upTime();
  const unsigned long long now = osal_getRunTimeSecs();
  EXPECT_LE(before, now);
  EXPECT_LE(now, upTime());
  EXPECT_GT(now, 0U);
}
#endif

}  // namespace
