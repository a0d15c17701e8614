// What runs other programs, and how words reach a shell.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
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
  const TempFolder folder;
  std::string script = folder / "both";
  writeFile(script, "#!/bin/sh\nseq 20001 40000 >&2\nseq 20000\nexit 4\n");
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  const LogCapture log("ROOT:0;");
  EXPECT_EQ(execlog(script), 4);
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 40001U);
  EXPECT_EQ(lines[0], "ROOT:NFY exec : " + script);
  EXPECT_EQ(lines[1], "ROOT:NFY 1");
  EXPECT_EQ(lines[20001], "ROOT:NFY 20001");
  std::string missing = "/nowhere/program";
  EXPECT_THROW(execlog(missing), bp::process_error);
}

TEST(UtilsShell, QuotesOnlyWhatNeedsIt) {
  constexpr const char* kCases[][3] = {
      {"/a_1.2+3:4=5@6%7,8-9.deb", "/a_1.2+3:4=5@6%7,8-9.deb", "/a_1.2+3:4=5@6%7,8-9.deb"},
      {"it's b", "'it'\\''s b'", "it's b"},
      {"$(id)`id`\"\\", "'$(id)`id`\"\\'", "\\$(id)\\`id\\`\\\"\\\\"},
      {"", "", ""}};
  for (const auto& [text, word, quoted] : kCases) {
    EXPECT_EQ(shellWord(text), word);
    EXPECT_EQ(shellQuotedText(text), quoted);
  }
}

TEST(ChildRun, PassesLinesOnAndWaitsForNobodyElse) {
  const TempFolder folder;
  using How = ChildEnd::How;
  const struct {
    const char* script;
    How how;
    int status;
    std::vector<std::string> lines;
  } kCases[] = {
      {"echo $QD_X; printf 'b\\nend' >&2; exit 3", How::Exited, 3, {"value", "b", "end"}},
      {"sleep 7 & echo left", How::Exited, 0, {"left"}},
      {"sleep 97 & echo $!; wait", How::Cancelled, 0, {"PID"}},
  };
  for (const auto& [script, how, status, expected] : kCases) {
    const std::string path = folder / "program";
    writeFile(path, std::string("#!/bin/sh\n") + script);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    std::vector<std::string> lines;
    const ChildEnd end =
        runChild({.program = path,
                  .environment = {{"QD_X", "value"}},
                  .onLine = [&](const std::string& line) { lines.push_back(line); },
                  .cancelled = [&] { return how == How::Cancelled && !lines.empty(); }});
    EXPECT_EQ(end.how, how) << script;
    EXPECT_EQ(end.status, status) << script;
    if (how == How::Cancelled) {
      ASSERT_EQ(lines.size(), 1U);
      const auto runs = [file = "/proc/" + lines[0] + "/stat"] {
        const std::string state = content(file);
        return !state.empty() && state.find(") Z ") == std::string::npos;
      };
      for (int pause = 0; runs() && pause < 1000; ++pause) ::usleep(10000);
      EXPECT_FALSE(runs()) << "the child of the child";
    } else {
      EXPECT_EQ(lines, expected) << script;
    }
  }
  EXPECT_EQ(runChild({.program = "/nowhere", .environment = {}, .onLine = {}, .cancelled = {}}).how,
            How::NotStarted);
}

}  // namespace
