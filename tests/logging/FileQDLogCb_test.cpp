#include "logging/FileQDLogCb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "PosixFaults.h"
#include "TempFolder.h"

namespace {

namespace fs = std::filesystem;
using ::testing::MatchesRegex;

// The time stamp is 21 characters with its brackets; the rest of a line around the message of these
// tests is " - ROOT:NFY - [ (f:1)] - ".
constexpr std::size_t kFrame = 21 + 25;

std::string content(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void writeRecord(FileQDLogCb& sink, const std::string& message) {
  sink.log(1, 2, "ROOT", "NFY", "f", 1, "", message.c_str());
}

TEST(FileQDLogCb, ShortensSourceFileNames) {
  constexpr struct {
    const char* file;
    const char* expected;
  } kCases[] = {
      {"/src/update_driver", "update_driver"},
      {"C:\\src\\driver.cpp", "driver.cpp"},
      {"a/b\\c", "c"},
      {"a\\b/c", "c"},
      {"folder/", ""},
      {"", ""},
      {"exactly_thirty_two_characters.cpp", "xactly_thirty_two_characters.cpp"},
      {"xactly_thirty_two_characters.cpp", "xactly_thirty_two_characters.cpp"},
  };
  for (const auto& [file, expected] : kCases) {
    SCOPED_TRACE(file);
    EXPECT_STREQ(qdLogShortFileName(file), expected);
  }
}

TEST(FileQDLogCb, NamesTheBackup) {
  EXPECT_EQ(qdLogBackupName("/var/agent_upd.log"), "/var/agent_upd.bak");
  EXPECT_EQ(qdLogBackupName("a.b"), "a.b.bak");
  EXPECT_EQ(qdLogBackupName("abcd"), ".bak");
}

TEST(FileQDLogCb, FormatsALine) {
  EXPECT_EQ(
      qdLogLine("2026-03-01 14:05:09", "ROOT", "ERR", "/src/update_driver", 166, "Download failed"),
      "[2026-03-01 14:05:09] - ROOT:ERR - [ (update_driver:166)] - Download failed");
}

TEST(FileQDLogCb, AppendsAndEchoes) {
  const TempFolder folder;
  const std::string path = folder / "agent.log";
  std::ofstream(path) << "before\n";
  testing::internal::CaptureStdout();
  FileQDLogCb(path, true).log(1, 2, "ROOT", "WRN", "/x/y.cpp", 7, "", "text");
  const std::string line = testing::internal::GetCapturedStdout();
  EXPECT_THAT(line, MatchesRegex("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\] - "
                                 "ROOT:WRN - \\[ \\(y.cpp:7\\)\\] - text\n"));
  EXPECT_EQ(content(path), "before\n" + line);
}

TEST(FileQDLogCb, RollsWhenALineWouldCrossTheLimit) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  std::ofstream(path).close();
  fs::resize_file(path, 5242800);
  std::ofstream(folder / "agent_upd.bak") << "older";
  FileQDLogCb sink(path, false);

  writeRecord(sink, std::string(80 - kFrame, 'x'));
  EXPECT_EQ(fs::file_size(path), 5242881U);
  writeRecord(sink, "first");
  EXPECT_EQ(fs::file_size(folder / "agent_upd.bak"), 5242881U);
  EXPECT_EQ(fs::file_size(path), kFrame + 6);
}

TEST(FileQDLogCb, ABlockedBackupNameKeepsTheLines) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  std::ofstream(path).close();
  fs::resize_file(path, 5242880);
  fs::create_directories(folder / "agent_upd.bak/occupied");
  FileQDLogCb sink(path, false);
  writeRecord(sink, "one");
  writeRecord(sink, "two");
  EXPECT_EQ(fs::file_size(path), 5242880 + 2 * (kFrame + 4));
}

TEST(FileQDLogCb, WithoutAFileItOnlyEchoes) {
  const TempFolder folder;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  FileQDLogCb sink(folder / "missing/agent.log", true);
  writeRecord(sink, "text");
  EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::EndsWith(" - text\n"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FileQDLogCb, InASharedOrTemporaryFolderItFollowsNoLink) {
  for (const bool shared : {false, true}) {
    SCOPED_TRACE(shared);
    const TempFolder folder;
    if (!shared) fs::permissions(folder.path(), fs::perms::all);
    const std::string victim = folder / "victim";
    std::ofstream(victim) << "precious";
    fs::create_symlink(victim, folder / "agent.log");
    FileQDLogCb sink(folder / "agent.log", false, shared);
    writeRecord(sink, "text");
    EXPECT_EQ(content(victim), "precious");
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "agent.log")));
    EXPECT_EQ(fs::status(folder / "agent.log").permissions(), fs::perms(0600));
  }
}

TEST(FileQDLogCb, InAFolderOfItsOwnALinkIsTheAdministratorsWish) {
  const TempFolder folder;
  fs::create_symlink(folder / "elsewhere", folder / "agent.log");
  FileQDLogCb sink(folder / "agent.log", false);
  writeRecord(sink, "text");
  EXPECT_EQ(fs::file_size(folder / "elsewhere"), kFrame + 5);
}

TEST(FileQDLogCb, LosesTheLineThatMemoryHasNoRoomFor) {
  const TempFolder folder;
  const std::string path = folder / "agent_upd.log";
  std::ofstream(path).close();
  fs::resize_file(path, 5242880);
  FileQDLogCb sink(path, false);
  const std::string message(100, 'x');
  int lost = 0;
  for (int news = 0;; ++news) {
    testing::internal::CaptureStderr();
    {
      const PosixFault fault("operator new", ENOMEM, news);
      sink.log(1, 2, "ROOT", "NFY", "x/file.cpp", 7, "", message.c_str());
      if (!PosixFault::hit()) break;
    }
    ++lost;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Log error (missed): file.cpp (line 7)\n");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_GE(lost, 3);
  EXPECT_THAT(content(path), testing::EndsWith("xxx\n"));
}

}  // namespace
