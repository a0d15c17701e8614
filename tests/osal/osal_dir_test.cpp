#include "osal/osal_dir.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "ExpectCall.h"
#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class OSAL_DirTest : public testing::Test {
 protected:
  /// The entries up to the end of the open directory, with their types.
  std::map<std::string, QDFileType> readAll() {
    std::map<std::string, QDFileType> entries;
    char name[256];
    QDFileType type{};
    while (dir.readDir(name, sizeof name, &type, false) == 0 && *name != '\0') entries[name] = type;
    return entries;
  }

  /// Reads on to the first entry that is not "." or "..", without a record of the others.
  int readEntry(char* name, unsigned int size, QDFileType* type, bool warnOnly) {
    for (;;) {
      log.clear();
      const int result = dir.readDir(name, size, type, warnOnly);
      if (result != 0 || (std::string(name) != "." && std::string(name) != "..")) return result;
    }
  }

  /// How messages name the open directory.
  std::string stream() const { return text("(@", static_cast<void*>(dir.dir), ")"); }

  /// The path of the folder with as many slashes at its end as make it `length` long.
  std::string padded(std::size_t length) const {
    return path + std::string(length - path.size(), '/');
  }

  const TempFolder folder;
  const std::string path = folder.path();
  const std::ptrdiff_t before = openDescriptors();
  LogCapture log{"OSAL:5;"};
  OSAL_Dir dir;
};

TEST_F(OSAL_DirTest, ReadsEveryEntryWithItsType) {
  writeFile(folder / "file", "");
  fs::create_directory(folder / "folder");
  fs::create_symlink("file", folder / "to file");
  fs::create_symlink("folder", folder / "to folder");
  fs::create_symlink("nothing", folder / "dangling");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);

  ASSERT_EQ(dir.openDir(bytes(path), false), 0);
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:INF Directory opened " + stream() + " -> " + quoted(path)));
  EXPECT_EQ(::fcntl(::dirfd(dir.dir), F_GETFD), FD_CLOEXEC);
  EXPECT_THAT(readAll(),
              UnorderedElementsAre(
                  Pair(".", QD_FILETYPE_DIR), Pair("..", QD_FILETYPE_DIR),
                  Pair("file", QD_FILETYPE_REG), Pair("folder", QD_FILETYPE_DIR),
                  Pair("to file", QD_FILETYPE_REG), Pair("to folder", QD_FILETYPE_DIR),
                  Pair("dangling", QD_FILETYPE_UNKNOWN), Pair("fifo", QD_FILETYPE_UNKNOWN)));
  EXPECT_THAT(log.lines(), testing::Contains(text("OSAL:ERR Cannot get file type (", ENOENT,
                                                  ") for path :\"", folder / "dangling", "\"")));
  EXPECT_EQ(log.lines().back(), "OSAL:INF Read directory " + stream() + " -> done");
  log.clear();
  const std::string closed = stream();
  EXPECT_EQ(dir.closeDir(true, false), 0);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:INF Directory closed " + closed));
  EXPECT_EQ(dir.dir, nullptr);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(OSAL_DirTest, DoesNotAskForATypeThatNobodyWants) {
  fs::create_symlink("nothing", folder / "dangling");
  ASSERT_EQ(dir.openDir(bytes(path), false), 0);
  char name[256];
  EXPECT_EQ(readEntry(name, sizeof name, nullptr, false), 0);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:INF Read directory " + stream() + " -> dangling"));
}

TEST_F(OSAL_DirTest, ANameNeedsRoomForItsTerminator) {
  writeFile(folder / "abcd", "");
  for (const bool warnOnly : {false, true}) {
    ASSERT_EQ(dir.openDir(bytes(path), false), 0);
    char name[5] = {};
    EXPECT_EQ(readEntry(name, 4, nullptr, warnOnly), -1);
    EXPECT_STREQ(name, "");
    EXPECT_THAT(log.lines(),
                ElementsAre(text("OSAL:", warnOnly ? "WRN" : "ERR",
                                 " Buffer too short to read directory ", stream(), " -> ")));
    EXPECT_EQ(dir.closeDir(true, false), 0);

    ASSERT_EQ(dir.openDir(bytes(path), false), 0);
    EXPECT_EQ(readEntry(name, 5, nullptr, warnOnly), 0);
    EXPECT_STREQ(name, "abcd");
    EXPECT_EQ(dir.closeDir(true, false), 0);
  }
}

TEST_F(OSAL_DirTest, FailuresToOpen) {
  const std::string file = folder / "file";
  const std::string missing = folder / "missing";
  const std::string longName = folder / std::string(256, 'x');
  writeFile(file, "");
  const struct {
    std::string path;
    std::string message;
  } kCases[] = {
      {missing, "Cannot open " + code(ENOENT) + " directory " + quoted(missing)},
      {file, "Cannot open " + code(ENOTDIR) + " directory " + quoted(file)},
      {"", "Cannot open " + code(ENOENT) + " directory \"(root)\""},
      {longName, "Cannot open " + code(ENAMETOOLONG) + " directory " + quoted(longName)},
      {padded(4096), "Path too long : " + quoted(padded(4096))},
      {padded(5000), "Path too long : " + quoted(padded(5000))},
  };
  for (const auto& c : kCases) {
    expectCall(log, dir.openDir(bytes(c.path), false), -1, {"OSAL:ERR " + c.message});
    expectCall(log, dir.openDir(bytes(c.path), true), -1, {"OSAL:WRN " + c.message});
    expectCall(log, dir.closeDir(false, false), 0);
    EXPECT_EQ(openDescriptors(), before);
  }
}

#if PATH_MAX >= 4096
TEST_F(OSAL_DirTest, TheLongestPath) {
  writeFile(folder / "abc", "");
  ASSERT_EQ(dir.openDir(bytes(padded(4095)), false), 0);
  EXPECT_EQ(dir.pathLength, 4096U);
  EXPECT_EQ(readAll().count("abc"), 1U);
}

TEST_F(OSAL_DirTest, TheTypeOfAnEntryWhosePathIsTooLongIsUnknown) {
  writeFile(folder / "abc", "");
  const struct {
    std::size_t entryPath;  // characters
    QDFileType expected;
    bool asked;  // the system is asked, and refuses 4,096 characters; what was cut is not asked for
  } kCases[] = {
      {4095, QD_FILETYPE_REG, false},
      {4096, QD_FILETYPE_UNKNOWN, true},
      {4097, QD_FILETYPE_UNKNOWN, false},
      {4099, QD_FILETYPE_UNKNOWN, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.entryPath);
    ASSERT_EQ(dir.openDir(bytes(padded(c.entryPath - 4)), false), 0);
    char name[256];
    QDFileType type{};
    EXPECT_EQ(readEntry(name, sizeof name, &type, false), 0);
    EXPECT_STREQ(name, "abc");
    EXPECT_EQ(type, c.expected);
    EXPECT_EQ(log.lines().size(), c.asked ? 2U : 1U);
    EXPECT_EQ(log.lines().back(), "OSAL:INF Read directory " + stream() + " -> abc");
    EXPECT_EQ(dir.closeDir(true, false), 0);
  }
}
#endif

TEST_F(OSAL_DirTest, ASecondOpenLeavesTheFirstDirectoryUsable) {
  writeFile(folder / "file", "");
  ASSERT_EQ(dir.openDir(bytes(path), true), 0);
  log.clear();
  expectCall(log, dir.openDir(bytes("/"), true), -1,
             {"OSAL:ERR Cannot open (handle already in use) directory : \"/\""});
  EXPECT_EQ(readAll().size(), 3U);
}

TEST_F(OSAL_DirTest, RefusesWrongArgumentsAndClosedObjects) {
  const std::vector<std::string> wrong = {"OSAL:ERR Arguments error"};
  for (const bool warnOnly : {false, true}) {
    char name[2] = "x";
    expectCall(log, dir.openDir(nullptr, warnOnly), -1, wrong);
    expectCall(log, dir.readDir(nullptr, 1, nullptr, warnOnly), -1, wrong);
    expectCall(log, dir.readDir(name, 0, nullptr, warnOnly), -1, wrong);
    EXPECT_STREQ(name, "x");
    expectCall(log, dir.readDir(name, 1, nullptr, warnOnly), -1,
               {"OSAL:ERR Invalid handle (readDir)"});
    EXPECT_STREQ(name, "");
    expectCall(log, dir.closeDir(false, warnOnly), 0);
    expectCall(log, dir.closeDir(true, warnOnly), -1, {"OSAL:ERR Invalid handle (closeDir)"});
  }
}

TEST_F(OSAL_DirTest, ReportsWhatTheSystemRefuses) {
  writeFile(folder / "file", "");
  for (const bool warnOnly : {false, true}) {
    const std::string level = warnOnly ? "OSAL:WRN " : "OSAL:ERR ";
    ASSERT_EQ(dir.openDir(bytes(path), warnOnly), 0);
    log.clear();
    const std::string closed = stream();
    const int file = ::open((folder / "file").c_str(), O_RDONLY);
    ::dup2(file, ::dirfd(dir.dir));  // no directory any more
    ::close(file);
    char name[256] = "x";
    expectCall(log, dir.readDir(name, sizeof name, nullptr, warnOnly), -1,
               {text(level, "Read directory ", closed, " -> error ", code(ENOTDIR))});
    EXPECT_STREQ(name, "");
    ::close(::dirfd(dir.dir));
    expectCall(log, dir.closeDir(true, warnOnly), -1,
               {text(level, "Cannot close ", code(EBADF), " directory ", closed)});
    EXPECT_EQ(dir.dir, nullptr);
  }
}

TEST_F(OSAL_DirTest, TheDestructorClosesSilently) {
  {
    OSAL_Dir other;
    ASSERT_EQ(other.openDir(bytes("/"), false), 0);
    log.clear();
  }
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
