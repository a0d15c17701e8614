#include <gtest/gtest.h>

#include "Updater/process/agentUnit.h"
#include "Updater/process/processStart.h"

namespace {

TEST(ProcessStart, CompletesThePathAndRecognisesTheAgentsUnit) {
  EXPECT_EQ(completedPath(nullptr), "/usr/sbin:/usr/bin:/sbin:/bin");
  EXPECT_EQ(completedPath("/opt/bin:/usr/bin"), "/opt/bin:/usr/bin:/usr/sbin:/sbin:/bin");
  constexpr std::pair<const char*, bool> kCases[] = {
      {"0::/../system.slice/qdagent.service/child\n", true},
      {"1:name=systemd:/system.slice/qdagent.service\n0::/\n", true},
      {"0::/system.slice/other-qdagent.service\n", false}};
  for (const auto& [cgroups, expected] : kCases) {
    EXPECT_EQ(isInUnit(cgroups, "qdagent.service"), expected) << cgroups;
  }
}

}  // namespace
