#include "base/sysdef/tunables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.h"
#include "TunablesGuard.h"
#include "base/sysdef/tunablesValues.h"
#include "sysdef/qdTunablesBaseValues.h"

namespace {

using ::testing::ElementsAre;

class TunablesTest : public testing::Test {
 protected:
  const TunablesGuard guard;
};

TEST_F(TunablesTest, TextsReachBothTablesTheAgentsFirst) {
  LogCapture log("PRFS:4;");
  tunablesUpdateStr(
      bytes("BASE_MAX_SOAP_THREAD=7\nQD_PAM_SERVICE_NAME=login\nQD_SERVER_MAIL_SMTPPORT=65537\n"
            "QD_AGENT_PORT=0"));
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          R"(PRFS:INF Tunables - "QD_SERVER_MAIL_SMTPPORT" -> Value (U32) updated to : 65537)",
          R"(PRFS:INF Tunables - "QD_PAM_SERVICE_NAME" -> Value (STR) updated to : "login")",
          R"(PRFS:WRN Tunables - "QD_AGENT_PORT" -> Value too low for min = 1 (0) ; set to min value)",
          R"(PRFS:INF Tunables - "QD_AGENT_PORT" -> Value (U32) updated to : 1)",
          R"(PRFS:INF Tunables - "BASE_MAX_SOAP_THREAD" -> Value (U32) updated to : 7)"));
  EXPECT_STREQ(QD_PAM_SERVICE_NAME, "login");
  EXPECT_EQ(QD_SERVER_MAIL_SMTPPORT, 65537U);
  EXPECT_EQ(QD_AGENT_PORT, 1U);
  EXPECT_EQ(BASE_MAX_SOAP_THREAD, 7U);
}

}  // namespace
