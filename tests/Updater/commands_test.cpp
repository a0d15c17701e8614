// What runs other programs, and what holds the package meanwhile.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

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
using ::testing::IsEmpty;

TEST(Exec, ReturnsTheStatusAndOnSuccessTheLines) {
  const struct {
    std::string command;
    int status;
    std::vector<std::string> lines;
  } kCases[] = {
      {"echo a; echo b", 0, {"a", "b"}},
      {"printf x", 0, {"x"}},
      {"printf 'a\\r\\n\\n b'", 0, {"a\r", "", " b"}},
      {"true", 0, {}},
      {"echo lost; exit 3", 3, {}},
      {"echo lost; kill -9 $$", 9, {}},
  };
  for (const auto& [command, status, expected] : kCases) {
    SCOPED_TRACE(command);
    std::string cmd = command;
    std::vector<std::string> lines = {"before"};
    EXPECT_EQ(exec(cmd, lines), status);
    ASSERT_FALSE(lines.empty());
    lines.erase(lines.begin());
    EXPECT_EQ(lines, expected);
  }
}

TEST(Exec, TakesMoreOutputThanAPipeHolds) {
  std::string cmd = "seq 200000";
  std::vector<std::string> lines;
  EXPECT_EQ(exec(cmd, lines), 0);
  ASSERT_EQ(lines.size(), 200000U);
  EXPECT_EQ(lines.back(), "200000");
}

TEST(Execlog, LogsOutputThenErrorsAlsoWhenBothPipesFill) {
  const TempFolder folder;
  const std::string script = folder / "both";
  std::ofstream(script) << "#!/bin/sh\nseq 20000 >&2\nseq 20000\nexit 4\n";
  fs::permissions(script, fs::perms::owner_all);
  LogCapture log(QDLOG_ROOT, 0);
  std::string cmd = script;
  EXPECT_EQ(execlog(cmd), 4);
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 40001U);
  EXPECT_EQ(lines[0], "ROOT:NFY exec : " + script);
  EXPECT_EQ(lines[1], "ROOT:NFY 1");
  EXPECT_EQ(lines[20000], "ROOT:NFY 20000");
  EXPECT_EQ(lines[20001], "ROOT:NFY 1");
}

TEST(Execlog, AProgramThatIsNotThereThrows) {
  for (std::string cmd : {"/nowhere/program", "", "  "}) {
    EXPECT_THROW(execlog(cmd), bp::process_error) << cmd;
  }
}

TEST(AttachOutput, FindsDeviceAndPackage) {
  const struct {
    std::vector<std::string> lines;
    const char* device;
    const char* package;
  } kCases[] = {
      {{"/dev/disk4\tGUID_partition_scheme", "/dev/disk4s1\tApple_HFS\t/Volumes/Kesa"},
       "/dev/disk4s1",
       "/Volumes/Kesa/Kesa_x64.pkg"},
      {{"/dev/disk4 \t\t\t/Volumes/Two words  "}, "/dev/disk4", "/Volumes/Two words/Kesa_x64.pkg"},
      {{"/dev/disk4\tApple_HFS\t"}, "/dev/disk4", ""},
      {{"Apple_HFS\t/Volumes/Kesa"}, "", "/Volumes/Kesa/Kesa_x64.pkg"},
      {{"/Volumes/a /dev/ b"}, "/Volumes/a /dev/ b", "/Volumes/a /dev/ b/Kesa_x64.pkg"},
      {{"", "hdiutil: attach"}, "", ""},
  };
  for (const auto& [lines, device, package] : kCases) {
    LogCapture log(QDLOG_ROOT, 5);
    std::string foundDevice;
    std::string foundPackage;
    readAttachOutput(lines, "Kesa_x64", foundDevice, foundPackage);
    EXPECT_EQ(foundDevice, device);
    EXPECT_EQ(foundPackage, package);
  }
  LogCapture log(QDLOG_ROOT, 5);
  std::string device;
  std::string package;
  readAttachOutput(kCases[0].lines, "Kesa_x64", device, package);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:DBG Mounted device is /dev/disk4",
                                       "ROOT:DBG Mounted device is /dev/disk4s1",
                                       "ROOT:DBG PKG path is /Volumes/Kesa/Kesa_x64.pkg"));
}

TEST(ComputeMD5, IsLowerCaseAndOfNothingForAMissingFile) {
  const TempFolder folder;
  std::ofstream(folder / "abc") << "abc";
  EXPECT_EQ(computeMD5(folder / "abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(computeMD5(folder / "missing"), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(PackageFile, IsCreatedForThisUserAlone) {
  const TempFolder folder;
  const std::string victim = folder / "victim";
  std::ofstream(victim) << "precious";
  const struct {
    const char* what;
    void (*prepare)(const std::string& path, const std::string& victim);
  } kCases[] = {
      {"nothing", [](const std::string&, const std::string&) {}},
      {"link", [](const std::string& p, const std::string& v) { fs::create_symlink(v, p); }},
      {"hard link", [](const std::string& p, const std::string& v) { fs::create_hard_link(v, p); }},
      {"fifo", [](const std::string& p, const std::string&) { ::mkfifo(p.c_str(), 0666); }},
      {"writable by others",
       [](const std::string& p, const std::string&) {
         std::ofstream(p) << "x";
         fs::permissions(p, fs::perms(0666));
       }},
  };
  for (const auto& [what, prepare] : kCases) {
    SCOPED_TRACE(what);
    const std::string path = folder / "package";
    prepare(path, victim);
    PackageFile package;
    EXPECT_TRUE(package.acquire(path));
    const fs::file_status status = fs::symlink_status(path);
    EXPECT_TRUE(fs::is_regular_file(status));
    EXPECT_EQ(status.permissions(), fs::perms(0600));
    EXPECT_EQ(fs::file_size(path), 0U);
    EXPECT_EQ(fs::file_size(victim), 8U);
    package.remove();
    EXPECT_FALSE(fs::exists(path));
  }
  fs::create_directory(folder / "directory");
  EXPECT_FALSE(PackageFile().acquire(folder / "directory"));
}

TEST(PackageFile, IsHeldAgainstASecondRun) {
  const TempFolder folder;
  const std::string path = folder / "package";
  PackageFile first;
  ASSERT_TRUE(first.acquire(path));
  std::ofstream(path) << "content";
  PackageFile second;
  EXPECT_FALSE(second.acquire(path));
  EXPECT_EQ(fs::file_size(path), 7U);
  first.release();
  EXPECT_TRUE(second.acquire(path));
}

TEST(PackageFile, NoticesWhatHappensToItsPath) {
  const TempFolder folder;
  const std::string path = folder / "package";
  const std::string other = folder / "other";
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
      {"longer",
       [](const std::string& p, const std::string&) { std::ofstream(p, std::ios::app) << "x"; },
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
    SCOPED_TRACE(what);
    PackageFile package;
    ASSERT_TRUE(package.acquire(path));
    std::ofstream(path) << "content";
    std::ofstream(other) << "content";
    package.remember();
    ::usleep(20000);  // more than the file system's clock tick
    change(path, other);
    EXPECT_EQ(package.isUntouched(), untouched);
    EXPECT_EQ(package.isStillThere(), stillThere);
    package.remove();
    fs::remove(other);
  }
}

TEST(LockFile, IsWrittenWholeAndReadBack) {
  const TempFolder folder;
  const std::string path = folder / "lock";
  ASSERT_TRUE(writeLock(path, 1700000000123));
  EXPECT_EQ(readLock(path), 1700000000123);
  EXPECT_EQ(fs::file_size(path), 14U);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
  EXPECT_FALSE(writeLock(folder / "missing/lock", 1));

  const struct {
    const char* content;
    long long expected;
  } kCases[] = {{"  12 \t\nx", 12}, {"123abc", 123}, {"-5\r\n", -5}, {"+7", 7}};
  for (const auto& [content, expected] : kCases) {
    std::ofstream(path) << content;
    EXPECT_EQ(readLock(path), expected) << content;
  }
  for (const char* const content : {"", "\n5", "abc", "99999999999999999999"}) {
    std::ofstream(path) << content;
    EXPECT_THROW(readLock(path), std::logic_error) << content;
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
  LogCapture log(QDLOG_ROOT, 5);
  EXPECT_TRUE(Updater(false).checkLockFile());
  ::setenv("TMPDIR", formerFolder.c_str(), 1);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY Lock file is [/proc/upgrade_ovt.lock]",
                                       "ROOT:ERR Failed to open lock file"));
}

TEST(SignalDelay, DeliversTheSignalAtItsEndAndLeavesIgnoredOnesAlone) {
  EXPECT_EXIT(
      {
        {
          const SignalDelay delay;
          raise(SIGTERM);
          std::fputs("still here", stderr);
        }
        std::fputs("never reached", stderr);
        _exit(0);
      },
      testing::KilledBySignal(SIGTERM), "^still here$");
  EXPECT_EXIT(
      {
        signal(SIGHUP, SIG_IGN);
        {
          const SignalDelay delay;
          raise(SIGHUP);
        }
        _exit(5);
      },
      testing::ExitedWithCode(5), "");
}

}  // namespace
