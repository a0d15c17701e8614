#include "base/osal/MacOS/UxosalTools.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Files.h"

namespace {

TEST(Commands, AskForTheLocaleOfAPlainNameOnly) {
  const TempFolder tools;  // at the front of PATH
  const std::string former = std::getenv("PATH");
  ::setenv("PATH", (tools.path().string() + ":" + former).c_str(), 1);
  writeProgram(tools / "sudo", "echo \"$#:$*\" >> '" + (tools / "asked") + "'; echo fr_FR\n");
  for (const std::string name : {"$(reboot)", "a.b_c-9"}) {
    writeProgram(tools / "last", "[ \"$*\" = -1w ] && echo '" + name + "  tty1'");
    std::string user;
    EXPECT_EQ(osal_getLastLogonName(user), 0);
    EXPECT_EQ(user, name);
  }
  ::setenv("PATH", former.c_str(), 1);
  EXPECT_EQ(content(tools / "asked"), "6:-u a.b_c-9 defaults read -g AppleLocale\n");
}

}  // namespace
