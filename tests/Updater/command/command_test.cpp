// What runs other programs, and how words reach a shell.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Files.h"
#include "LogCapture.h"
#include "Updater/command/boostProcess.h"
#include "Updater/command/childRun.h"
#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"

namespace {

using namespace utils;

TEST(Exec, ReturnsTheStatusAndOnSuccessTheLines) {
  std::vector<std::string> lines;
  for (const auto& [command, status] : {std::pair("echo lost; exit 3", 3), {"kill -9 $$", 9}}) {
    std::string cmd = command;
    EXPECT_EQ(exec(cmd, lines), status);
    EXPECT_TRUE(lines.empty());
  }
  std::string cmd = "printf 'a\\r\\n\\n b'";
  EXPECT_EQ(exec(cmd, lines), 0);
  EXPECT_EQ(lines, (std::vector<std::string>{"a\r", "", " b"}));
}

TEST(Execlog, LogsOutputThenErrorsAlsoWhenBothPipesFill) {
  std::string command = "sh -c \"seq 20001 40000 >&2; seq 20000; exit 4\"";
  const LogCapture log("ROOT:0;");
  EXPECT_EQ(execlog(command), 4);
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 40001U);
  EXPECT_EQ(lines[0], "ROOT:NFY exec : " + command);
  EXPECT_EQ(lines[1], "ROOT:NFY 1");
  EXPECT_EQ(lines[20001], "ROOT:NFY 20001");
  std::string missing = "/nowhere/program";
  EXPECT_THROW(execlog(missing), bp::process_error);
}

TEST(UtilsShell, LeavesAPlainWordAloneAndNoOther) {
  const std::string plain = "/a_1.2+3:4=5@6%7,8-9.deb";
  EXPECT_EQ(shellWord(plain), plain);
  for (const char c : std::string(" '\"$`\\;&|<>(*?[{~!#\n")) {
    EXPECT_NE(shellWord({c}), std::string(1, c));
  }
}

/// Whether the process is there, and has not ended.
bool runs(const std::string& pid) {
  const std::string state = content("/proc/" + pid + "/stat");
  return !state.empty() && state.find(") Z ") == std::string::npos;
}

TEST(ChildRun, PassesLinesOnAndWaitsForNobodyElse) {
  std::vector<std::string> lines;
  bool cancels = false;
  const auto run = [&](const std::string& script) {
    lines.clear();
    return runChild({.program = "sh",
                     .arguments = {"-c", script},
                     .environment = {{"QD_X", "value"}},
                     .onLine = [&](const std::string& line) { lines.push_back(line); },
                     .cancelled = [&] { return cancels && !lines.empty(); },
                     .adopts = true});
  };
  EXPECT_EQ(run("echo $QD_X; printf 'b\\nend' >&2; exit 3").status, 3);
  EXPECT_EQ(lines, (std::vector<std::string>{"value", "b", "end"}));
  EXPECT_TRUE(run("sleep 7 & echo left").isGood());
  EXPECT_EQ(lines, std::vector<std::string>{"left"});
  cancels = true;
  for (const char* const script : {"timeout 97 sleep 97 & echo $!; wait",
                                   "setsid -f sh -c 'echo $$; exec sleep 97'; wait; sleep 97"}) {
    EXPECT_EQ(run(script).how, ChildEnd::How::Cancelled) << script;
    ASSERT_EQ(lines.size(), 1U);
    for (int pause = 0; runs(lines[0]) && pause < 1000; ++pause) ::usleep(10000);
    EXPECT_FALSE(runs(lines[0])) << script;
  }
  EXPECT_EQ(runChild({.program = "/nowhere", .environment = {}, .onLine = {}, .cancelled = {}}).how,
            ChildEnd::How::NotStarted);
}

}  // namespace
