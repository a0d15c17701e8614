#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "LogCapture.h"
#include "PosixFaults.h"
#include "base/sysdef/tunables.h"
#include "sysdef/qdTunables.h"

namespace {

using ::testing::ElementsAre;

TEST(QDTunablesFaults, WantOfMemoryEndsTheParse) {
  std::uint32_t value = 1;
  const QDTunablesS record{0, 9, QD_TUNABLE_TYPE_U32, &value, "KEY"};
  LogCapture log("PRFS:4;EXCP:5;");
  const PosixFault fault("operator new", 1);
  QDTunables::tunablesUpdate(bytes("KEY=2"), &record, 1);
  EXPECT_THAT(log.lines(), ElementsAre("PRFS:ERR Tunables - unexpected error while updating"));
  EXPECT_EQ(value, 1U);
}

TEST(QDTunablesFaults, WantOfMemoryForTheFile) {
  LogCapture log("PRFS:2;EXCP:5;");
  const PosixFault fault("operator new[]", 1);
  tunablesUpdate(bytes("/nowhere/tunables"));
  EXPECT_TRUE(PosixFault::hit());
  EXPECT_THAT(log.lines(),
              ElementsAre("PRFS:ERR Tunables - unexpected error while updating", "EXCP:EL2 ECEP"));
}

}  // namespace
