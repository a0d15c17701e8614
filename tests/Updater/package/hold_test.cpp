#include "Updater/package/hold.h"

#include <gtest/gtest.h>

// Fault: a version that the administrator has locked is replaced, or another package's lock counts.
TEST(Hold, LineOfTheListOfLockedVersions) {
  for (const char* const line : {"qdagent-0:7.2.1.4-1.*", "0:qdagent-7.2.1.4-1.x86_64", "qdagent-*",
                                 "qdagent", "qdagent-7.2.1.4-1.* # why"}) {
    EXPECT_TRUE(utils::locksVersion(line, "qdagent")) << line;
  }
  for (const char* const line : {"", "#qdagent", "!qdagent-0:7.2.1.15-1.*", "qdagent-tools-0:1-1.*",
                                 "qdagents", "x-qdagent-1-1.*", "qdagent-", "0:"}) {
    EXPECT_FALSE(utils::locksVersion(line, "qdagent")) << line;
  }
}
