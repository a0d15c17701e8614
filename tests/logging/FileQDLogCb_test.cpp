#include "logging/FileQDLogCb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "PosixFaults.h"
#include "ToolsTest.h"

namespace {

namespace fs = std::filesystem;

// The time stamp is 21 characters with its brackets; the rest of a line around the message of these
// tests is " - ROOT:NFY - [ (f:1)] - ".
constexpr std::size_t kFrame = 21 + 25;

void writeRecord(FileQDLogCb& sink, const std::string& message) {
  sink.log(1, 2, "ROOT", "NFY", "f", 1, "", message.c_str());
}

TEST(FileQDLogCb, NamesFilesShortly) {
  constexpr struct {
    const char* file;
    const char* expected;
  } kCases[] = {{"a/b\\c", "c"},
                {"a\\b/c.cpp", "c.cpp"},
                {"folder/", ""},
                {"exactly_thirty_two_characters.cpp", "xactly_thirty_two_characters.cpp"},
                {"xactly_thirty_two_characters.cpp", "xactly_thirty_two_characters.cpp"}};
  for (const auto& [file, expected] : kCases) EXPECT_STREQ(qdLogShortFileName(file), expected);
  EXPECT_EQ(qdLogBackupName("/var/agent_upd.log"), "/var/agent_upd.bak");
  EXPECT_EQ(qdLogBackupName("abcd"), ".bak");
  EXPECT_EQ(qdLogBackupName("a.b"), "a.b.bak");
}

TEST(FileQDLogCb, AppendsAndEchoesAlsoWithoutAFile) {
  const TempFolder folder;
  writeFile(folder / "agent.log", "before\n");
  for (const char* const name : {"agent.log", "missing/agent.log"}) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    FileQDLogCb(folder / name, true).log(1, 2, "ROOT", "WRN", "/x/y.cpp", 7, "", "text");
    const std::string line = testing::internal::GetCapturedStdout();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(
        line, testing::MatchesRegex("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\] - "
                                    "ROOT:WRN - \\[ \\(y.cpp:7\\)\\] - text\n"));
    if (fs::exists(folder / name)) {
      EXPECT_EQ(content(folder / name), "before\n" + line);
    }
  }
}

TEST(FileQDLogCb, RollsWhenALineWouldCrossTheLimit) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  const std::string backup = folder / "agent_upd.bak";
  writeFile(path, std::string(5242800, 'x'));
  writeFile(backup, "older");
  FileQDLogCb sink(path, false);
  writeRecord(sink, std::string(80 - kFrame, 'x'));
  EXPECT_EQ(fs::file_size(path), 5242881U);
  writeRecord(sink, "first");
  EXPECT_EQ(fs::file_size(backup), 5242881U);
  EXPECT_EQ(fs::file_size(path), kFrame + 6);

  fs::remove(backup);  // and with that name taken it keeps the lines
  fs::create_directories(backup + "/occupied");
  fs::resize_file(path, 5242880);
  writeRecord(sink, "one");
  writeRecord(sink, "two");
  EXPECT_EQ(fs::file_size(path), 5242880 + 2 * (kFrame + 4));
}

TEST(FileQDLogCb, ALogThatSomebodyRemovedGrowsToTheLimitAgain) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  writeFile(path, std::string(5242880, 'x'));
  FileQDLogCb sink(path, false);
  fs::remove(path);
  writeRecord(sink, "one");
  fs::resize_file(path, 5242880 - kFrame - 3);
  writeRecord(sink, "two");
  EXPECT_FALSE(fs::exists(folder / "agent_upd.bak"));
  EXPECT_EQ(fs::file_size(path), 5242881U);
}

TEST(FileQDLogCb, FollowsALinkOnlyInAFolderOfItsOwn) {
  const struct {
    bool shared;
    fs::perms folder;
    bool followed;
  } kCases[] = {{false, fs::perms::owner_all, true},
                {false, fs::perms::all, false},
                {true, fs::perms::owner_all, false}};
  for (const auto& [shared, permissions, followed] : kCases) {
    const TempFolder folder;
    const std::string path = folder / "agent.log";
    fs::permissions(folder.path(), permissions);
    writeFile(folder / "victim", "precious");
    fs::create_symlink(folder / "victim", path);
    FileQDLogCb sink(path, false, shared);
    writeRecord(sink, "text");
    EXPECT_EQ(fs::file_size(folder / "victim"), 8U + (followed ? kFrame + 5 : 0));
    EXPECT_EQ(fs::is_symlink(path), followed);
    if (!followed) {
      EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
    }
  }
}

TEST(FileQDLogCb, ALogThatTheGroupCouldWriteToIsKept) {
  const TempFolder folder;
  fs::permissions(folder.path(), fs::perms(0775));
  const std::string path = folder / "agent.log";
  writeFile(path, "before\n");
  fs::permissions(path, fs::perms(0664));
  FileQDLogCb sink(path, false);
  writeRecord(sink, "text");
  EXPECT_EQ(fs::file_size(path), 7 + kFrame + 5);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0644));
}

TEST(FileQDLogCb, FollowsTheTimeZoneSetting) {
  const TempFolder folder;
  const char* const before = std::getenv("TZ");
  const std::string restored = before != nullptr ? before : "";
  std::string hours;
  for (const char* const zone : {"UTC0", "XXX-14"}) {
    ::setenv("TZ", zone, 1);
    const std::string path = folder / zone;
    FileQDLogCb sink(path, false);
    writeRecord(sink, "text");
    hours += content(path).substr(12, 2);
  }
  EXPECT_NE(hours.substr(0, 2), hours.substr(2));
  before != nullptr ? ::setenv("TZ", restored.c_str(), 1) : ::unsetenv("TZ");
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
}

TEST(FileQDLogCb, LosesTheLineThatMemoryHasNoRoomFor) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  writeFile(path, std::string(5242880, 'x'));
  FileQDLogCb sink(path, false);
  const std::string message(100, 'y');
  bool written = false;
  int lost = 0;
  for (; !written; ++lost) {
    testing::internal::CaptureStderr();
    {
      const PosixFault fault("operator new", ENOMEM, lost);
      sink.log(1, 2, "ROOT", "NFY", "x/file.cpp", 7, "", message.c_str());
      written = !PosixFault::hit();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              written ? "" : "Log error (missed): file.cpp (line 7)\n");
  }
  EXPECT_GT(lost, 3);
  EXPECT_THAT(content(path), testing::EndsWith(message + "\n"));
  EXPECT_LT(fs::file_size(path), 1000U) << "rolled all the same";
}

}  // namespace
