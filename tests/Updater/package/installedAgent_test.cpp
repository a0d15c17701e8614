#include "Updater/package/installedAgent.h"

#include <gtest/gtest.h>

// Fault: lost bytes pass for whole, or a new time, an administrator's file or an rpm that lacks an
// option has a good version put back.
TEST(InstalledAgent, DamageIsAFileThatIsGoneOrHasOtherBytes) {
  for (const char* const line :
       {"S.5....T.    /usr/sbin/a", "..5......    /a b", "missing     /a", "S........  d /a"}) {
    EXPECT_TRUE(utils::saysDamaged(line)) << line;
  }
  for (const char* const line : {".M...UGT.    /a", "S.5....T.  c /etc/a", "missing   c /etc/a",
                                 "missing   g /a", "rpm: --nothing: unknown option", " /", ""}) {
    EXPECT_FALSE(utils::saysDamaged(line)) << line;
  }
}
