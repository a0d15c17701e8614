#include "base/osal/MacOS/UxosalTools.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Files.h"
#include "TempFolder.h"

namespace {

TEST(Commands, AskForTheLocaleOfAPlainNameOnly) {
  const TempFolder tools;  // at the front of PATH
  const std::string former = std::getenv("PATH");
  ::setenv("PATH", (tools.path().string() + ":" + former).c_str(), 1);
  const auto add = [&tools](const char* name, const std::string& body) {
    writeFile(tools / name, "#!/bin/sh\n" + body);
    std::filesystem::permissions(tools / name, std::filesystem::perms::owner_all);
  };
  add("sudo", "echo \"$#:$*\" >> '" + (tools / "asked") + "'; echo fr_FR\n");
  for (const std::string name : {"$(reboot)", "a.b_c-9"}) {
    add("last", "[ \"$*\" = -1w ] && echo '" + name + "  tty1'");
    std::string user;
    EXPECT_EQ(osal_getLastLogonName(user), 0);
    EXPECT_EQ(user, name);
  }
  EXPECT_EQ(content(tools / "asked"), "6:-u a.b_c-9 defaults read -g AppleLocale\n");
  ::setenv("PATH", former.c_str(), 1);
}

}  // namespace
