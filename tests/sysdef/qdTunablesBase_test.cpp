#include "sysdef/qdTunablesBase.h"

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "TunablesGuard.h"
#include "sysdef/qdTunablesBaseValues.h"

namespace {

class QDTunablesBaseTest : public testing::Test {
 protected:
  const TunablesGuard guard;
};

TEST_F(QDTunablesBaseTest, TextsReachTheBaseTableOnly) {
  QDTunablesBase::tunablesUpdate(
      bytes("BASE_DEFAULT_THREAD_STACK=2097152\nINDEXMANAGER_SQLITE_INDEX_LOCATION=/var/db\n"
            "QD_HTTP_PORT=80\n"));
  EXPECT_EQ(BASE_DEFAULT_THREAD_STACK, 2097152U);
  EXPECT_STREQ(INDEXMANAGER_SQLITE_INDEX_LOCATION, "/var/db");
  EXPECT_EQ(guard.changed(), "BASE_DEFAULT_THREAD_STACK INDEXMANAGER_SQLITE_INDEX_LOCATION ");
}

TEST_F(QDTunablesBaseTest, ValuesAreClampedToTheCatalogue) {
  BASE_DEFAULT_THREAD_STACK = 1U << 21;
  QDTunablesBase::tunablesUpdate(bytes("BASE_DEFAULT_THREAD_STACK=65536"));
  EXPECT_EQ(BASE_DEFAULT_THREAD_STACK, 1048576U);
}

}  // namespace
