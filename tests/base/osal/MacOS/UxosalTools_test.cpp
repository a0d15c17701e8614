#include "base/osal/MacOS/UxosalTools.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>

#include "Files.h"
#include "Limits.h"
#include "Said.h"
#include "TempFolder.h"

namespace {

TEST(Commands, GiveTheirOutput) {
  Said said("OSAL:3;");
  EXPECT_EQ(resultOfCommand("printf 'a\\n\\n'; exit 3"), "a\n");
  EXPECT_EQ(executeCommand("head -c 100000 /dev/zero | tr '\\0' x"), std::string(100000, 'x'));
  QDLOG(OSAL, ERR, "before");  // a sanitizer's first look at the logger takes descriptors
  said.clear();
  const Limit none(RLIMIT_NOFILE, 3);
  EXPECT_EQ(resultOfCommand("echo a"), "");
  EXPECT_EQ(executeCommand("echo b"), "");
  EXPECT_EQ(said(),
            "ERR popen failed on command \"echo a\" | "
            "WRN Error executing command: echo b");
}

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
