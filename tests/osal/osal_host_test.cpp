// What is made of the machine's answers, on a machine that answers what the test wants.

#include "osal/osal_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <string>

#include "HostFake.h"
#include "LogCapture.h"
#include "base/osal/MacOS/UxosalTools.h"
#include "base/osal/osalsysinfo.h"
#include "osal/osal_sys.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OnAFakeMachine : public ::testing::Test {
 protected:
  OnAFakeMachine() { hostFake = {}; }

  LogCapture log{QDLOG_OSAL, 5};
};

TEST_F(OnAFakeMachine, HostUidIsUpperCaseHexadecimal) {
  hostFake.uuid = {0x00, 0x01, 0x7F, 0x80, 0xAB, 0xCD, 0xEF, 0xFF, 0x10};
  char text[33];
  EXPECT_EQ(osal_getHostUID(text, sizeof text), 0);
  EXPECT_STREQ(text, "00017F80ABCDEFFF1000000000000000");

  hostFake.error = EPERM;
  EXPECT_EQ(osal_getHostUID(text, sizeof text), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR gethostuuid failed with error 1"));
}

TEST_F(OnAFakeMachine, ComputerNameFitsWithItsTerminator) {
  const struct {
    int error;
    const char* name;
    unsigned int size;
    int result;
    const char* message;
  } kCases[] = {
      {0, "Máquina", 9, 0, ""},
      {0, "Máquina", 8, -1, "OSAL:ERR Buffer too short to get computer name"},
      {0, "", 1, 0, ""},
      {0, "", 0, -1, "OSAL:ERR Buffer too short to get computer name"},
      {ENOENT, "x", 64, -1, "OSAL:EL2 Error getting computer name"},
      {EILSEQ, "x", 64, -1, "OSAL:ERR Error converting computer name"},
  };
  for (const auto& [error, name, size, result, message] : kCases) {
    SCOPED_TRACE(std::string(name) + " " + std::to_string(size));
    hostFake.error = error;
    hostFake.machineName = name;
    log.clear();
    unsigned char text[64] = "before";
    EXPECT_EQ(osal_getcomputername(text, size), result);
    EXPECT_STREQ(reinterpret_cast<char*>(text), result == 0 ? name : "before");
    if (*message == '\0') {
      EXPECT_THAT(log.lines(), IsEmpty());
    } else {
      EXPECT_THAT(log.lines(), ElementsAre(message));
    }
  }
}

TEST_F(OnAFakeMachine, FinderUserIsAnOrdinaryUser) {
  constexpr const char* kCases[][2] = {
      {"alice", "alice"}, {"loginwindow", ""}, {"root", ""}, {"root2", "root2"}, {"", ""}};
  for (const auto& [console, expected] : kCases) {
    hostFake.consoleUser = console;
    EXPECT_EQ(osal_getFinderUser(), expected);
  }
  hostFake.consoleUser = "alice";
  hostFake.error = ENOENT;
  EXPECT_EQ(osal_getFinderUser(), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OnAFakeMachine, MacOSReleaseIsTheFirstNumber) {
  constexpr struct {
    const char* release;
    int major;
  } kCases[] = {{"23.5.0", 23}, {"8", 8}, {"6.1-amd64", 6}, {"x.1", 0}, {"", 0}};
  for (const auto& [release, expected] : kCases) {
    SCOPED_TRACE(release);
    hostFake.kernelRelease = release;
    int major = -7;
    EXPECT_EQ(osal_macOSReleaseGet(&major), 0);
    EXPECT_EQ(major, expected);
  }
  hostFake.error = EPERM;
  int major = -7;
  EXPECT_EQ(osal_macOSReleaseGet(&major), -1);
  EXPECT_EQ(major, -7);
}

TEST_F(OnAFakeMachine, RunTimeIsInWholeSeconds) {
  hostFake.upTimeMs = 4294967296999;
  EXPECT_EQ(osal_getRunTimeSecs(), 4294967296U);
  hostFake.error = EINVAL;
  EXPECT_EQ(osal_getRunTimeSecs(), 0U);
}

TEST_F(OnAFakeMachine, RamInfosAreInMiB) {
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
  hostFake.error = EPERM;
  EXPECT_EQ(osal_getRAMInfos(own, resident, physical), -1);
}

TEST_F(OnAFakeMachine, MacOSVersionFallsBackToTheNumbers) {
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 14.5 (Sonoma)");
  hostFake.productVersion = "10.15.777";
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 13.2 (Ventura)");
  hostFake.productVersion = "14";
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 13.2 (Ventura)");
  hostFake.productVersion = "14.5";
  hostFake.productVersionError = ENOENT;
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 13.2 (Ventura)");
  hostFake.error = ENOENT;
  EXPECT_EQ(osalsysinfo_macOS(), "macOS 0.0.0");
}

TEST_F(OnAFakeMachine, LinuxIsDescribedByItsOwnName) {
  EXPECT_EQ(osalsysinfo_linux(), "Some Linux 1 (one)");
  hostFake.error = ENOENT;
  OSAL_uname u;
  ASSERT_EQ(osal_GetUname(u), 0);
  EXPECT_EQ(osalsysinfo_linux(), u.sysname);
}

TEST_F(OnAFakeMachine, PriorityChangesOnlyWhereItMayBeRaised) {
  const int nice = ::getpriority(PRIO_PROCESS, 0);
  osal_AdjustProcessPriority(true);
  osal_AdjustProcessPriority(false);
  if (::geteuid() == 0) {
    EXPECT_THAT(hostFake.niceValues, ElementsAre(nice - 4, nice + 4));
    hostFake.error = EACCES;
    osal_AdjustProcessPriority(false);
    EXPECT_THAT(log.lines(), ElementsAre("OSAL:WRN Cannot set process priority (13) to " +
                                         std::to_string(nice + 4)));
  } else {
    EXPECT_TRUE(hostFake.niceValues.empty() || hostFake.niceValues.size() == 2);
  }
}

TEST(OsalPriority, IsForRootAndForWhomTheLimitAllows) {
  EXPECT_TRUE(osal_mayUseNice(0, 20, -20));
  EXPECT_FALSE(osal_mayUseNice(1000, 20, 19));
  EXPECT_FALSE(osal_mayUseNice(1000, -3, -4));
  EXPECT_TRUE(osal_mayUseNice(1000, -4, -4));
}

}  // namespace
