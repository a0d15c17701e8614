#include "logging/FileQDLogCb.h"

#include <gmock/gmock.h>

#include "FolderTest.h"
#include "Limits.h"

namespace {

// The time stamp is 21 characters with its brackets; the rest of a line around the message of these
// tests is " - ROOT:NFY - [ (f:1)] - ".
constexpr std::size_t kFrame = 21 + 25;
constexpr std::size_t kLimit = 5242880;

void writeRecord(FileQDLogCb& sink, const std::string& message) {
  sink.log(1, 2, "ROOT", "NFY", "f", 1, "", message.c_str());
}

class FileQDLogCbTest : public FolderTest {
 protected:
  const std::string log = folder / "agent_upd.log";
  const std::string backup = folder / "agent_upd.bak";
};

TEST(QDLogClock, StampsWithTheTimeZoneOfTheMoment) {
  QDLogClock clock;
  ::setenv("TZ", "AAA11", 1);
  const std::string west(clock.now());
  ::setenv("TZ", "BBB-11", 1);
  const std::string east(clock.now());
  ::unsetenv("TZ");
  EXPECT_NE(west.substr(0, 13), east.substr(0, 13));  // the date and the hour
}

TEST_F(FileQDLogCbTest, RollsWhenALineWouldCrossTheLimit) {
  writeFile(log, std::string(kLimit, 'x'));
  FileQDLogCb sink(log, false);
  fs::remove(log);  // by somebody else: it grows to the limit again
  writeRecord(sink, "one");
  writeRecord(sink, std::string(kLimit - 3 * kFrame - 8, 'x'));
  writeRecord(sink, "two");
  EXPECT_EQ(fs::file_size(log), kLimit + 1);
  EXPECT_FALSE(fs::exists(backup));
  writeFile(backup, "older");
  writeRecord(sink, "three");
  EXPECT_EQ(fs::file_size(backup), kLimit + 1);
  EXPECT_EQ(fs::file_size(log), kFrame + 6);

  fs::remove(backup);  // and with that name taken it keeps the lines
  fs::create_directories(backup + "/occupied");
  writeRecord(sink, std::string(kLimit - 2 * kFrame - 7, 'x'));
  writeRecord(sink, "four");
  EXPECT_EQ(fs::file_size(log), kLimit + kFrame + 5);
}

TEST_F(FileQDLogCbTest, AsksForTheSizeBeforeARollAndBehind64KiB) {
  writeFile(log, std::string(kLimit - kFrame - 4, 'x'));
  FileQDLogCb sink(log, false);
  writeRecord(sink, "one");
  fs::resize_file(log, 0);  // by somebody else
  writeRecord(sink, "two");
  EXPECT_EQ(fs::file_size(log), kFrame + 4);
  EXPECT_FALSE(fs::exists(backup));

  fs::resize_file(log, kLimit);
  writeRecord(sink, std::string(0x10000, 'x'));  // without a roll, if within 100 ms
  writeRecord(sink, "three");
  EXPECT_TRUE(fs::exists(backup));
}

TEST_F(FileQDLogCbTest, FollowsALinkOnlyInAFolderThatNobodyShares) {
  writeFile(path, "");
  for (const auto& [mode, followed] :
       {std::pair(0700, true), {0755, true}, {0775, false}, {01777, false}}) {
    fs::permissions(folder.path(), fs::perms(mode));
    fs::remove(log);
    fs::create_symlink(path, log);
    FileQDLogCb sink(log, false);
    writeRecord(sink, "text");
    EXPECT_EQ(fs::is_symlink(log), followed) << mode;
  }
  EXPECT_EQ(fs::file_size(path), 2 * (kFrame + 5));
}

TEST_F(FileQDLogCbTest, BeginsALineAtTheLeftAlsoBehindOneThatWasCutOff) {
  FileQDLogCb sink(log, false);
  {
    const Limit limit(RLIMIT_FSIZE, 60);
    writeRecord(sink, std::string(50, 'x'));
  }
  writeRecord(sink, "next");
  EXPECT_EQ(content(log).substr(59, 3), "x\n[");
  EXPECT_EQ(fs::file_size(log), 60 + 1 + kFrame + 5);

  fs::create_directories(backup + "/occupied");  // nor does a roll that failed forget it
  fs::resize_file(log, kLimit - kFrame);
  FileQDLogCb other(log, false);
  {
    const Limit limit(RLIMIT_FSIZE, kLimit - 1);
    writeRecord(other, "");
  }
  writeRecord(other, "next");
  EXPECT_EQ(fs::file_size(log), kLimit - 1 + 1 + kFrame + 5);
}

}  // namespace
