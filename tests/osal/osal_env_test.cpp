#include "osal/osal_env.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "LogCapture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kKey = "QD_TEST_VARIABLE";

TEST(OsalEnv, CopiesAValueThatFitsWithItsTerminator) {
  constexpr struct {
    const char* value;
    unsigned int size;
    int result;
    const char* buffer;
    const char* message;
  } kCases[] = {
      {"abc", 1024, 0, "abc", ""},
      {"abc", 4, 0, "abc", ""},
      {"", 1, 0, "", ""},
      {"abc", 3, -1, "before",
       "OSAL:ERR Buffer too small to put result = \"abc\" for key = \"QD_TEST_VARIABLE\""},
      {"", 0, -1, "before",
       "OSAL:ERR Buffer too small to put result = \"\" for key = \"QD_TEST_VARIABLE\""},
  };
  for (const auto& [value, size, result, buffer, message] : kCases) {
    SCOPED_TRACE(std::string(value) + " in " + std::to_string(size));
    ASSERT_EQ(osal_setEnv(kKey, value), 0);
    LogCapture log(QDLOG_OSAL, 5);
    char text[1024] = "before";
    EXPECT_EQ(osal_getEnv(kKey, text, size), result);
    EXPECT_STREQ(text, buffer);
    if (*message == '\0') {
      EXPECT_THAT(log.lines(), IsEmpty());
    } else {
      EXPECT_THAT(log.lines(), ElementsAre(message));
    }
  }
  ::unsetenv(kKey);
}

TEST(OsalEnv, TakesAMissingVariableForAnEmptyOne) {
  ::unsetenv(kKey);
  LogCapture log(QDLOG_OSAL, 5);
  char text[4] = "abc";
  EXPECT_EQ(osal_getEnv(kKey, text, 1), 0);
  EXPECT_STREQ(text, "");
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:WRN Could not find environment variable \"QD_TEST_VARIABLE\""));
  log.clear();
  EXPECT_EQ(osal_getEnv(kKey, text, 0), -1);
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:WRN Could not find environment variable \"QD_TEST_VARIABLE\"",
                          "OSAL:ERR Buffer too small"));
}

TEST(OsalEnv, SetsAndOverwrites) {
  ASSERT_EQ(osal_setEnv(kKey, "one"), 0);
  ASSERT_EQ(osal_setEnv(kKey, "two"), 0);
  EXPECT_STREQ(std::getenv(kKey), "two");
  ::unsetenv(kKey);
}

TEST(OsalEnv, RefusesBadArguments) {
  LogCapture log(QDLOG_OSAL, 5);
  char text[4];
  EXPECT_EQ(osal_getEnv(nullptr, text, sizeof text), -1);
  EXPECT_EQ(osal_setEnv(nullptr, "v"), -1);
  EXPECT_EQ(osal_setEnv("k", nullptr), -1);
  EXPECT_EQ(osal_setEnv("a=b", "v"), -1);
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:ERR Bad argument : key = \"\"",
                          "OSAL:ERR Bad argument : key = \"\"; value = \"v\"",
                          "OSAL:ERR Bad argument : key = \"k\"; value = \"\"",
                          "OSAL:ERR Could not set (22) environment variable \"a=b\" to value : "
                          "\"v\""));
}

}  // namespace
