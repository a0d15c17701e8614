// What runs other programs, and what holds the package and the lock meanwhile.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Updater/PackageFile.h"
#include "Updater/SignalDelay.h"
#include "Updater/Updater.h"
#include "Updater/boostProcess.h"
#include "Updater/lockFile.h"
#include "Updater/utilsExec.h"
#include "Updater/utilsPackage.h"

namespace {

namespace fs = std::filesystem;
using namespace utils;
using ::testing::ElementsAre;

TEST(Exec, ReturnsTheStatusAndOnSuccessTheLines) {
  const struct {
    std::string command;
    int status;
    std::vector<std::string> lines;
  } kCases[] = {{"printf 'a\\r\\n\\n b'", 0, {"a\r", "", " b"}},
                {"true", 0, {}},
                {"echo lost; exit 3", 3, {}},
                {"echo lost; kill -9 $$", 9, {}}};
  for (const auto& [command, status, expected] : kCases) {
    std::string cmd = command;
    std::vector<std::string> lines;
    EXPECT_EQ(exec(cmd, lines), status) << command;
    EXPECT_EQ(lines, expected) << command;
  }
  std::string more = "seq 20000";  // than a pipe holds
  std::vector<std::string> lines = {"before"};
  EXPECT_EQ(exec(more, lines), 0);
  ASSERT_EQ(lines.size(), 20001U);
  EXPECT_EQ(lines.front() + lines.back(), "before20000");
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
  for (std::string missing : {"/nowhere/program", "", "  "}) {
    EXPECT_THROW(execlog(missing), bp::process_error) << missing;
  }
}

TEST(AttachOutput, FindsDeviceAndPackage) {
  const struct {
    std::vector<std::string> lines;
    std::vector<std::string> found;
  } kCases[] = {
      {{"/dev/disk4\tGUID_partition_scheme", "/dev/disk4s1\tApple_HFS\t/Volumes/Kesa"},
       {"ROOT:DBG Mounted device is /dev/disk4", "ROOT:DBG Mounted device is /dev/disk4s1",
        "ROOT:DBG PKG path is /Volumes/Kesa/K.pkg"}},
      {{"/dev/d \t\t\t/Volumes/Two words  "},
       {"ROOT:DBG Mounted device is /dev/d", "ROOT:DBG PKG path is /Volumes/Two words/K.pkg"}},
      {{"/Volumes/a /dev/ b"},
       {"ROOT:DBG Mounted device is /Volumes/a /dev/ b",
        "ROOT:DBG PKG path is /Volumes/a /dev/ b/K.pkg"}},
      {{"", "hdiutil: attach", "Volumes/x"}, {}},
  };
  for (const auto& [lines, found] : kCases) {
    const LogCapture log(QDLOG_ROOT, 5);
    std::string device;
    std::string package;
    readAttachOutput(lines, "K", device, package);
    EXPECT_EQ(log.lines(), found);
    EXPECT_EQ(device.empty(), found.empty());
    if (!found.empty()) {
      EXPECT_EQ("ROOT:DBG PKG path is " + package, found.back());
    }
  }
}

TEST(PackageFile, IsHeldAgainstASecondRun) {
  const TempFolder folder;
  const std::string path = folder / "package";
  PackageFile first;
  PackageFile second;
  ASSERT_TRUE(first.acquire(path));
  writeFile(path, "content");
  EXPECT_FALSE(second.acquire(path));
  EXPECT_EQ(content(path), "content");
  first.release();
  EXPECT_TRUE(second.acquire(path));
  EXPECT_FALSE(PackageFile().acquire(folder.path()));
}

TEST(PackageFile, NoticesWhatHappensToItsPath) {
  const TempFolder folder;
  const std::string path = folder / "package";
  const std::string other = folder / "other";
  EXPECT_FALSE(PackageFile().isStillThere()) << "before anything is remembered";
  const struct {
    const char* what;
    void (*change)(const std::string& path, const std::string& other);
    bool untouched;
    bool stillThere;
  } kCases[] = {
      {"nothing", [](const std::string&, const std::string&) {}, true, true},
      {"exchanged", [](const std::string& p, const std::string& o) { fs::rename(o, p); }, false,
       false},
      {"removed", [](const std::string& p, const std::string&) { fs::remove(p); }, false, false},
      {"rewritten", [](const std::string& p, const std::string&) { writeFile(p, "CONTENT"); },
       false, true},
      {"attributes", [](const std::string& p, const std::string&) { ::chmod(p.c_str(), 0400); },
       false, true},
      {"a link to it",
       [](const std::string& p, const std::string& o) {
         fs::rename(p, o);
         fs::create_symlink(o, p);
       },
       false, false},
  };
  for (const auto& [what, change, untouched, stillThere] : kCases) {
    PackageFile package;
    ASSERT_TRUE(package.acquire(path));
    writeFile(path, "content");
    writeFile(other, "content");
    package.remember();
    ::usleep(20000);  // more than the file system's clock tick
    change(path, other);
    EXPECT_EQ(package.isUntouched(), untouched) << what;
    EXPECT_EQ(package.isStillThere(), stillThere) << what;
    package.remove();
    fs::remove(other);
  }
}

TEST(LockFile, IsWrittenWholeAndReadBack) {
  const TempFolder folder;
  const std::string path = folder / "lock";
  ASSERT_TRUE(writeLock(path, 1700000000123));
  EXPECT_EQ(content(path), "1700000000123\n");
  fs::create_directories(folder / "taken/by");
  EXPECT_FALSE(writeLock(folder / "taken", 1));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2) << "nothing else is left";
  const struct {
    const char* text;
    long long expected;
  } kCases[] = {{"1700000000123\n", 1700000000123},
                {"  12 \t\nx", 12},
                {"123abc", 123},
                {"-5\r\n", -5},
                {"+7", 7}};
  for (const auto& [text, expected] : kCases) {
    writeFile(path, text);
    EXPECT_EQ(readLock(path), expected) << text;
  }
  for (const char* const text : {"", "\n5", "abc", "99999999999999999999"}) {
    writeFile(path, text);
    EXPECT_THROW(readLock(path), std::logic_error) << text;
  }
}

TEST(LockFile, ShowsItsTimeInTheZoneThatIsSet) {
  const char* const former = std::getenv("TZ");
  const std::string formerZone = former != nullptr ? former : "";
  ::setenv("TZ", "UTC0", 1);
  EXPECT_EQ(lockTimeText(1700000000999), "14-11-2023 22:13:20");
  ::setenv("TZ", "EAST-2:30", 1);
  EXPECT_EQ(lockTimeText(1700000000999), "15-11-2023 00:43:20");
  formerZone.empty() ? ::unsetenv("TZ") : ::setenv("TZ", formerZone.c_str(), 1);
  ::tzset();
}

TEST(LockFile, ThatCannotBeMadeDoesNotEndTheRun) {
  const char* const former = std::getenv("TMPDIR");
  const std::string formerFolder = former != nullptr ? former : "/tmp";
  ::setenv("TMPDIR", "/proc", 1);  // where nobody makes files
  const LogCapture log(QDLOG_ROOT, 5);
  EXPECT_TRUE(Updater(false).checkLockFile());
  ::setenv("TMPDIR", formerFolder.c_str(), 1);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY Lock file is [/proc/upgrade_ovt.lock]",
                                       "ROOT:ERR Failed to open lock file"));
}

TEST(SignalDelay, DeliversTheSignalAtItsEndAndLeavesIgnoredOnesAlone) {
  const auto raiseInside = [](int signal) {
    const SignalDelay delay;
    raise(signal);
    std::fputs("still here", stderr);
  };
  EXPECT_EXIT(
      {
        raiseInside(SIGTERM);
        _exit(0);
      },
      testing::KilledBySignal(SIGTERM), "^still here$");
  EXPECT_EXIT(
      {
        signal(SIGHUP, SIG_IGN);
        raiseInside(SIGHUP);
        _exit(5);
      },
      testing::ExitedWithCode(5), "^still here$");
}

}  // namespace
