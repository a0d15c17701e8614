#include "osal/osal_identity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <fstream>
#include <string>

#include "LogCapture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

TEST(OsalIdentity, TellsWhatTheKernelTells) {
  struct utsname system {};
  ASSERT_EQ(::uname(&system), 0);
  OSAL_uname u;
  EXPECT_EQ(osal_GetUname(u), 0);
  EXPECT_EQ(u.sysname, system.sysname);
  EXPECT_EQ(u.nodename, system.nodename);
  EXPECT_EQ(u.release, system.release);
  EXPECT_EQ(u.version, system.version);
  EXPECT_EQ(u.machine, system.machine);
  EXPECT_EQ(osal_getHostname(), system.nodename);
}

TEST(OsalIdentity, MakesNewTimeBasedUuids) {
  char first[33];
  char second[33];
  ASSERT_EQ(osal_genUUID(first, 33), 0);
  ASSERT_EQ(osal_genUUID(second, 33), 0);
  EXPECT_THAT(first, MatchesRegex("[0-9A-F]{12}1[0-9A-F]{3}[89AB][0-9A-F]{15}"));
  EXPECT_STRNE(first, second);
}

TEST(OsalIdentity, RefusesShortBuffers) {
  LogCapture log(QDLOG_OSAL, 5);
  char text[33] = "before";
  EXPECT_EQ(osal_genUUID(text, 32), -1);
  EXPECT_EQ(osal_getHostUID(text, 32), -1);
  EXPECT_STREQ(text, "before");
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:ERR osal_genUUID -> buffer too small (32 B ; 33 B needed)",
                          "OSAL:ERR Buffer too short"));
}

#if defined(__linux__)
TEST(OsalIdentity, TakesTheMachineIdOfTheSystem) {
  std::string id;
  if (!(std::ifstream("/etc/machine-id") >> id) || id.size() != 32) {
    GTEST_SKIP() << "this system has no machine id";
  }
  for (char& c : id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  char text[33];
  EXPECT_EQ(osal_getHostUID(text, sizeof text), 0);
  EXPECT_EQ(text, id);
}

TEST(OsalIdentity, NamesTheComputer) {
  if (::access("/etc/machine-info", F_OK) == 0) GTEST_SKIP() << "this system has a pretty name";
  unsigned char name[1025];
  ASSERT_EQ(osal_getcomputername(name, sizeof name), 0);
  EXPECT_EQ(reinterpret_cast<char*>(name), osal_getHostname());
}
#endif

}  // namespace
