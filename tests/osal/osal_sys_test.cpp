#include "osal/osal_sys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <thread>

#include "Said.h"
#include "osal/osal_process.h"

namespace {

constexpr const char* kKey = "QD_TEST_VARIABLE";

TEST(OsalEnv, CopiesAValueThatFitsWithItsTerminator) {
  Said said("OSAL:5;");
  const std::string tooSmall = "-1 ERR Buffer too small to put result = ";
  const std::string noSuch = "WRN Could not find environment variable \"QD_TEST_VARIABLE\"";
  const struct {
    const char* value;  // null: the variable is missing
    unsigned int size;
    const char* buffer;
    std::string said;
  } kCases[] = {{"abc", 4, "abc", "0"},
                {"abc", 3, "before", tooSmall + "\"abc\" for key = \"QD_TEST_VARIABLE\""},
                {"", 1, "", "0"},
                {"", 0, "before", tooSmall + "\"\" for key = \"QD_TEST_VARIABLE\""},
                {nullptr, 1, "", "0 " + noSuch},
                {nullptr, 0, "before", "-1 " + noSuch + " | ERR Buffer too small"}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.said);
    ASSERT_EQ(osal_setEnv(kKey, "former"), 0);
    c.value != nullptr ? osal_setEnv(kKey, c.value) : ::unsetenv(kKey);
    char text[1024] = "before";
    EXPECT_EQ(said(osal_getEnv(kKey, text, c.size)), c.said);
    EXPECT_STREQ(text, c.buffer);
  }
  char text[4];
  EXPECT_EQ(said(osal_getEnv(nullptr, text, sizeof text)), "-1 ERR Bad argument : key = \"\"");
  EXPECT_EQ(said(osal_setEnv(nullptr, "v")), "-1 ERR Bad argument : key = \"\"; value = \"v\"");
  EXPECT_EQ(said(osal_setEnv("k", nullptr)), "-1 ERR Bad argument : key = \"k\"; value = \"\"");
  EXPECT_EQ(said(osal_setEnv("a=b", "v")),
            "-1 ERR Could not set (22) environment variable \"a=b\" to value : \"v\"");
}

TEST(OsalIdentity, MakesNewTimeBasedUuidsWhereThereIsRoom) {
  Said said("OSAL:5;");
  char first[33] = "before";
  char second[33];
  EXPECT_EQ(said(osal_genUUID(first, 32)),
            "-1 ERR osal_genUUID -> buffer too small (32 B ; 33 B needed)");
  EXPECT_EQ(said(osal_getHostUID(first, 32)), "-1 ERR Buffer too short");
  EXPECT_STREQ(first, "before");
  EXPECT_EQ(said(osal_genUUID(first, 33)), "0");
  EXPECT_EQ(osal_genUUID(second, 33), 0);
  EXPECT_THAT(first, testing::MatchesRegex("[0-9A-F]{12}1[0-9A-F]{3}[89AB][0-9A-F]{15}"));
  EXPECT_STRNE(first, second);
}

TEST(OsalMemory, SumsWhatIsSharedWithNobody) {
  using enum HostShareMode;
  EXPECT_EQ(osal_privateBytes({}, 4096), 0U);
  EXPECT_EQ(osal_privateBytes({{1000, CopyOnWrite, 1, 5}}, 4096), 1000U);
  EXPECT_EQ(osal_privateBytes({{1000, CopyOnWrite, 2, 5}}, 4096), 20480U);
  EXPECT_EQ(osal_privateBytes({{1000, CopyOnWrite, 0, 5}}, 4096), 20480U);
  EXPECT_EQ(osal_privateBytes({{1000, Other, 1, 5}}, 4096), 0U);
  EXPECT_EQ(osal_privateBytes({{1ULL << 40, Private, 9, 1}, {7, Private, 1, 0}}, 4096),
            (1ULL << 40) + 7);
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

TEST(OsalProcess, TellsAndNamesTheCallingThread) {
  unsigned long long own = 0;
  EXPECT_EQ(osal_getThreadID(&own), 0);
  EXPECT_EQ(osal_getThreadID(nullptr), 0);
  EXPECT_EQ(osal_getPid(nullptr), 0);
  std::thread([own] {
    unsigned long long other = 0;
    osal_getThreadID(&other);
    EXPECT_NE(own, other);
    char name[64] = {};
    osal_setThreadName("worker");
    osal_setThreadName(nullptr);
    osal_setThreadName("");
    EXPECT_EQ(osal_getThreadName(name, sizeof name), 0);
    EXPECT_STREQ(name, "worker");
#if defined(__linux__)
    osal_setThreadName("fifteen_letters_and_more");
    osal_getThreadName(name, sizeof name);
    EXPECT_STREQ(name, "fifteen_letters");
#endif
  }).join();
}

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
    former_ ? ::setenv("TZ", former_->c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
  }

 private:
  std::optional<std::string> former_;
};

TEST(OsalTime, MakesMillisecondsOfSecondsAndMicroseconds) {
  Said said("OSAL:5;");
  constexpr struct {
    struct timeval time;
    unsigned long long ms;
    const char* said;
  } kCases[] = {{{1, 1999}, 1001, "0"},
                {{4294967296, 999999}, 4294967296999, "0"},
                {{-1, 5}, 7, "-1 EL2 Incoherent values (tv_sec = -1, tv_usec = 5)"},
                {{5, -1}, 7, "-1 EL2 Incoherent values (tv_sec = 5, tv_usec = -1)"}};
  for (const auto& c : kCases) {
    unsigned long long ms = 7;
    EXPECT_EQ(said(osal_timevalToMs(c.time, &ms)), c.said);
    EXPECT_EQ(ms, c.ms);
  }
}

TEST(OsalTime, FormatsLocalTimeAndNowForZero) {
  constexpr unsigned long long kDay = 86400000;
  constexpr struct {
    const char* zone;
    unsigned long long timeMs;
    bool forFileName;
    const char* expected;
  } kCases[] = {{"UTC0", kDay, true, "1970-01-02_00-00-00"},
                {"UTC0", kDay - 1, false, "1970/01/01, 23:59:59"},
                {"UTC0", 999, false, "1970/01/01, 00:00:00"},
                {"CET-1CEST,M3.5.0,M10.5.0/3", 1706741999000, true, "2024-01-31_23-59-59"},
                {"CET-1CEST,M3.5.0,M10.5.0/3", 1719784799000, true, "2024-06-30_23-59-59"}};
  unsigned char text[64];
  for (const auto& [zone, timeMs, forFileName, expected] : kCases) {
    const TimeZone set(zone);
    EXPECT_EQ(osal_formated_time(text, true, timeMs, forFileName), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(text), expected);
  }
  const auto textOf = [&](unsigned long long timeMs) {
    EXPECT_EQ(osal_formated_time(text, false, timeMs, true), 0);
    return std::string(reinterpret_cast<char*>(text));
  };
  const auto now = [] {
    unsigned long long ms = 0;
    EXPECT_EQ(osal_getMs(&ms), 0);
    return ms;
  };
  const TimeZone set("UTC0");
  const std::string before = textOf(now());
  const std::string current = textOf(0);
  EXPECT_LE(before, current);
  EXPECT_LE(current, textOf(now()));
}

TEST(OsalTime, TellsTheZoneOffset) {
  constexpr struct {
    const char* zone;
    int winter;
    int summer;
  } kCases[] = {{"UTC0", 0, 0},
                {"CET-1CEST,M3.5.0,M10.5.0/3", 3600, 7200},
                {"PST8PDT,M3.2.0,M11.1.0", -28800, -25200},
                {"NPT-5:45", 20700, 20700}};
  for (const auto& [zone, winter, summer] : kCases) {
    SCOPED_TRACE(zone);
    const TimeZone set(zone);
    int seconds = 7;
    EXPECT_EQ(osal_tzOffsetAt(1706741999, &seconds), 0);
    EXPECT_EQ(seconds, winter);
    EXPECT_EQ(osal_tzOffsetAt(1719784799, &seconds), 0);
    EXPECT_EQ(seconds, summer);
    EXPECT_EQ(osal_getIniTZOffset(&seconds), 0);
    EXPECT_EQ(seconds, winter);
    EXPECT_EQ(osal_getTZOffset(&seconds), 0);
    EXPECT_TRUE(seconds == winter || seconds == summer) << seconds;
  }
  Said said("OSAL:5;");
  int seconds = 7;
  EXPECT_EQ(said(osal_tzOffsetAt(LLONG_MAX, &seconds)), "-1 ERR Error with localtime");
  EXPECT_EQ(seconds, 7);
}

TEST(OsalTime, PausesToTheEndThroughSignals) {
  struct sigaction former {};
  struct sigaction ignore {};
  ignore.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGALRM, &ignore, &former), 0);
  const struct itimerval everyMillisecond = {{0, 1000}, {0, 1000}};
  const struct itimerval off = {};
  Said said("OSAL:6;");
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(::setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
  const int result = osal_doSleep(30);
  ASSERT_EQ(::setitimer(ITIMER_REAL, &off, nullptr), 0);
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
