#include "logging/FileQDLogCb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "ToolsTest.h"

namespace {

namespace fs = std::filesystem;

// The time stamp is 21 characters with its brackets; the rest of a line around the message of these
// tests is " - ROOT:NFY - [ (f:1)] - ".
constexpr std::size_t kFrame = 21 + 25;

void writeRecord(FileQDLogCb& sink, const std::string& message) {
  sink.log(1, 2, "ROOT", "NFY", "f", 1, "", message.c_str());
}

TEST(FileQDLogCb, AppendsAndEchoes) {
  const TempFolder folder;
  writeFile(folder / "agent.log", "before\n");
  testing::internal::CaptureStdout();
  FileQDLogCb(folder / "agent.log", true).log(1, 2, "ROOT", "WRN", "/x/y.cpp", 7, "", "text");
  const std::string line = testing::internal::GetCapturedStdout();
  EXPECT_THAT(line,
              testing::MatchesRegex("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\] - "
                                    "ROOT:WRN - \\[ \\(y.cpp:7\\)\\] - text\n"));
  EXPECT_EQ(content(folder / "agent.log"), "before\n" + line);
}

TEST(FileQDLogCb, StampsWithTheTimeZoneOfTheMoment) {
  QDLogClock clock;
  ::setenv("TZ", "AAA11", 1);
  const std::string west(clock.now());
  ::setenv("TZ", "BBB-11", 1);
  const std::string east(clock.now());
  ::unsetenv("TZ");
  EXPECT_NE(west.substr(0, 13), east.substr(0, 13));  // the date and the hour
}

TEST(FileQDLogCb, RollsWhenALineWouldCrossTheLimit) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  const std::string backup = folder / "agent_upd.bak";
  writeFile(path, std::string(5242880, 'x'));
  FileQDLogCb sink(path, false);
  fs::remove(path);  // by somebody else: it grows to the limit again
  writeRecord(sink, "one");
  writeRecord(sink, std::string(5242880 - 3 * kFrame - 8, 'x'));
  writeRecord(sink, "two");
  EXPECT_EQ(fs::file_size(path), 5242881U);
  EXPECT_FALSE(fs::exists(backup));
  writeFile(backup, "older");
  writeRecord(sink, "three");
  EXPECT_EQ(fs::file_size(backup), 5242881U);
  EXPECT_EQ(fs::file_size(path), kFrame + 6);

  fs::remove(backup);  // and with that name taken it keeps the lines
  fs::create_directories(backup + "/occupied");
  writeRecord(sink, std::string(5242880 - 2 * kFrame - 7, 'x'));
  writeRecord(sink, "four");
  EXPECT_EQ(fs::file_size(path), 5242880U + kFrame + 5);
}

TEST(FileQDLogCb, AsksForTheSizeBeforeARollAndBehind64KiB) {
  const TempFolder folder;
  const std::string path = folder / "agent.log";
  writeFile(path, std::string(5242880 - kFrame - 4, 'x'));
  FileQDLogCb sink(path, false);
  writeRecord(sink, "one");
  fs::resize_file(path, 0);  // by somebody else
  writeRecord(sink, "two");
  EXPECT_EQ(fs::file_size(path), kFrame + 4);
  EXPECT_FALSE(fs::exists(folder / "agent.bak"));

  fs::resize_file(path, 5242880);
  writeRecord(sink, std::string(0x10000, 'x'));  // without a roll, if within 100 ms
  writeRecord(sink, "three");
  EXPECT_TRUE(fs::exists(folder / "agent.bak"));
}

TEST(FileQDLogCb, FollowsALinkOnlyInAFolderOfItsOwn) {
  for (const fs::perms permissions : {fs::perms::owner_all, fs::perms::all}) {
    const bool followed = permissions == fs::perms::owner_all;
    const TempFolder folder;
    const std::string path = folder / "agent.log";
    fs::permissions(folder.path(), permissions);
    writeFile(folder / "victim", "precious");
    fs::create_symlink(folder / "victim", path);
    FileQDLogCb sink(path, false);
    writeRecord(sink, "text");
    EXPECT_EQ(fs::file_size(folder / "victim"), 8U + (followed ? kFrame + 5 : 0));
    EXPECT_EQ(fs::is_symlink(path), followed);
  }
}

TEST(FileQDLogCb, BeginsALineAtTheLeftAlsoBehindOneThatWasCutOff) {
  const TempFolder folder;
  const std::string path = folder / "agent.log";
  FileQDLogCb sink(path, false);
  {
    const Limit limit(RLIMIT_FSIZE, 60);
    writeRecord(sink, std::string(50, 'x'));
  }
  writeRecord(sink, "next");
  EXPECT_EQ(content(path).substr(59, 3), "x\n[");
  EXPECT_EQ(fs::file_size(path), 60U + 1U + kFrame + 5U);

  fs::create_directories(folder / "agent.bak/occupied");  // nor does a roll that failed forget it
  fs::resize_file(path, 5242880 - kFrame);
  FileQDLogCb other(path, false);
  {
    const Limit limit(RLIMIT_FSIZE, 5242880 - 1);
    writeRecord(other, "");
  }
  writeRecord(other, "next");
  EXPECT_EQ(fs::file_size(path), 5242880U - 1U + 1U + kFrame + 5U);
}

}  // namespace
