#include "osal/osal_sys.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "Limits.h"
#include "LogCapture.h"

namespace {

TEST(OsalEnv, CopiesAValueThatFitsWithItsTerminator) {
  LogCapture said("OSAL:5;");
  char text[1024] = "before";
  EXPECT_EQ(osal_setEnv("QD_TEST", "abc"), 0);
  EXPECT_EQ(said(osal_getEnv("QD_TEST", text, 3)),
            "-1 ERR Buffer too small to put result = \"abc\" for key = \"QD_TEST\"");
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(said(osal_getEnv("QD_TEST", text, 4)), "0");
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(said(osal_getEnv("QD_NONE", text, 1)),
            "0 WRN Could not find environment variable \"QD_NONE\"");
  EXPECT_STREQ(text, "");
}

TEST(OsalTime, IsLocalAndNowForZero) {
  unsigned char text[64];
  const auto textOf = [&text](unsigned long long ms, bool forFileName) {
    EXPECT_EQ(osal_formated_time(text, true, ms, forFileName), 0);
    return std::string(reinterpret_cast<char*>(text));
  };
  int ahead = 0;
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  EXPECT_EQ(textOf(1719784799000, true), "2024-06-30_23-59-59");
  EXPECT_EQ(textOf(1719784799999, false), "2024/06/30, 23:59:59");
  EXPECT_GT(textOf(0, true), "2024");
  EXPECT_EQ(osal_tzOffsetAt(1719784799, &ahead), 0);
  EXPECT_EQ(ahead, 7200);
  ::unsetenv("TZ");
  unsigned long long ms = 0;
  EXPECT_EQ(osal_timevalToMs({4294967296, 1999}, &ms), 0);
  EXPECT_EQ(ms, 4294967296001U);
}

TEST(OsalTime, PausesToTheEndThroughSignals) {
  const auto start = std::chrono::steady_clock::now();
  {
    const Alarms alarms;
    EXPECT_EQ(osal_doSleep(30), 0);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

}  // namespace
