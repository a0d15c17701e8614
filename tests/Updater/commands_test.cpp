// What runs other programs, and the lock meanwhile.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Updater/command/boostProcess.h"
#include "Updater/command/utilsExec.h"
#include "Updater/procedure/lockFile.h"

namespace {

namespace fs = std::filesystem;
using namespace utils;

TEST(Exec, ReturnsTheStatusAndOnSuccessTheLines) {
  const struct {
    std::string command;
    int status;
    std::vector<std::string> lines;
  } kCases[] = {{"printf 'a\\r\\n\\n b'", 0, {"a\r", "", " b"}},
                {"echo lost; exit 3", 3, {}},
                {"echo lost; kill -9 $$", 9, {}}};
  for (const auto& [command, status, expected] : kCases) {
    std::string cmd = command;
    std::vector<std::string> lines;
    EXPECT_EQ(exec(cmd, lines), status) << command;
    EXPECT_EQ(lines, expected) << command;
  }
}

TEST(Execlog, LogsOutputThenErrorsAlsoWhenBothPipesFill) {
  const TempFolder folder;
  std::string script = folder / "both";
  writeFile(script, "#!/bin/sh\nseq 20001 40000 >&2\nseq 20000\nexit 4\n");
  fs::permissions(script, fs::perms::owner_all);
  const LogCapture log(QDLOG_ROOT, 0);
  EXPECT_EQ(execlog(script), 4);
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 40001U);
  EXPECT_EQ(lines[0], "ROOT:NFY exec : " + script);
  EXPECT_EQ(lines[1], "ROOT:NFY 1");
  EXPECT_EQ(lines[20001], "ROOT:NFY 20001");
  std::string missing = "/nowhere/program";
  EXPECT_THROW(execlog(missing), bp::process_error);
}

TEST(LockFile, IsWrittenWholeAndReadBack) {
  const TempFolder folder;
  const std::string path = folder / "lock";
  ASSERT_TRUE(writeLock(path, 1700000000123));
  EXPECT_EQ(content(path), "1700000000123\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1) << "nothing else is left";
  EXPECT_EQ(readLock(path), 1700000000123);
  writeFile(path, "  -5\r\nx");
  EXPECT_EQ(readLock(path), -5);
  for (const char* const text : {"", "abc", "99999999999999999999"}) {
    writeFile(path, text);
    EXPECT_THROW(readLock(path), std::logic_error) << text;
  }
}

}  // namespace
