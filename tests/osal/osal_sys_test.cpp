#include "osal/osal_sys.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "Limits.h"
#include "LogCapture.h"

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

TEST(OsalTime, PausesToTheEndThroughSignals) {
  const auto start = std::chrono::steady_clock::now();
  {
    const Alarms alarms;
    EXPECT_EQ(osal_doSleep(30), 0);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

}  // namespace
