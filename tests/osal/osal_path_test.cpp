#include "osal/osal_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <functional>
#include <string>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"
#include "osal/osal_fs.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string quoted(const std::string& path) { return '"' + path + '"'; }

class OsalPathTest : public testing::Test {
 protected:
  /// The lines since the last call.
  std::vector<std::string> newLines() {
    std::vector<std::string> lines = log.lines();
    log.clear();
    return lines;
  }

  const TempFolder folder;
  const std::string path = folder / "path";
  const std::string missing = folder / "missing";
  const std::string file = folder / "file";
  LogCapture log{"OSAL:9;"};
};

TEST_F(OsalPathTest, TypesOfModes) {
  constexpr struct {
    mode_t mode;
    QDFileType type;
  } kCases[] = {{S_IFREG, QD_FILETYPE_REG},     {S_IFDIR, QD_FILETYPE_DIR},
                {S_IFLNK, QD_FILETYPE_SYMLINK}, {S_IFIFO, QD_FILETYPE_UNKNOWN},
                {S_IFCHR, QD_FILETYPE_UNKNOWN}, {S_IFBLK, QD_FILETYPE_UNKNOWN},
                {S_IFSOCK, QD_FILETYPE_UNKNOWN}};
  for (const auto& c : kCases) EXPECT_EQ(osal_fileTypeOf(c.mode | 07777), c.type) << c.mode;
}

TEST_F(OsalPathTest, GetFileTypeFollowsLinks) {
  writeFile(file, "");
  fs::create_symlink(file, folder / "to file");
  fs::create_symlink(folder.path(), folder / "to folder");
  const struct {
    std::string path;
    QDFileType type;
  } kCases[] = {{file, QD_FILETYPE_REG},
                {folder.path(), QD_FILETYPE_DIR},
                {folder / "to file", QD_FILETYPE_REG},
                {folder / "to folder", QD_FILETYPE_DIR},
                {"/dev/null", QD_FILETYPE_UNKNOWN}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.path);
    QDFileType type{};
    EXPECT_EQ(osal_getFileType(bytes(c.path), &type, false), 0);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(osal_getFileType(bytes(c.path), nullptr, false), 0);
  }
  EXPECT_THAT(newLines(), IsEmpty());

  QDFileType type = QD_FILETYPE_DOOR;
  EXPECT_EQ(osal_getFileType(bytes(missing), &type, true), -1);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(osal_getFileType(bytes(missing), &type, false), -1);
  EXPECT_EQ(type, QD_FILETYPE_DOOR);
  EXPECT_THAT(newLines(), ElementsAre(text("OSAL:ERR Cannot get file type (", ENOENT,
                                           ") for path :", quoted(missing))));
}

TEST_F(OsalPathTest, Exists) {
  writeFile(file, "");
  fs::create_symlink(missing, folder / "dangling");
  fs::create_symlink("loop", folder / "loop");
  const std::string longName = folder / std::string(256, 'x');
  const struct {
    std::string path;
    bool exists;
    int error;
  } kCases[] = {{file, true, 0},
                {folder.path(), true, 0},
                {missing, false, 0},
                {"", false, 0},
                {file + "/below", false, 0},
                {folder / "dangling", false, 0},
                {folder / "loop", false, ELOOP},
                {longName, false, ENAMETOOLONG}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.path);
    const int result = c.error == 0 ? 0 : -1;
    const std::string shown = quoted(c.path.empty() ? "(root)" : c.path);
    bool exists = !c.exists;
    EXPECT_EQ(osal_exists(bytes(c.path), &exists, false), result);
    EXPECT_EQ(exists, c.exists != (c.error != 0));
    EXPECT_THAT(
        newLines(),
        ElementsAre(c.error == 0 ? text("OSAL:DBG osal_exists : check file (",
                                        c.exists ? "exists" : "not exists", ") at path ", shown)
                                 : text("OSAL:ERR osal_exists : cannot check file (", c.error,
                                        ") at path ", shown)));
    EXPECT_EQ(osal_exists(bytes(c.path), nullptr, true), result);
    EXPECT_THAT(newLines(), IsEmpty());
  }
  bool exists = true;
  EXPECT_EQ(osal_exists(nullptr, &exists, false), -1);
  EXPECT_THAT(newLines(), ElementsAre("OSAL:ERR osal_exists : NULL arg"));
  EXPECT_EQ(osal_exists(nullptr, &exists, true), -1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(OsalPathTest, MkdirTakesWhateverIsThereForSuccess) {
  writeFile(file, "");
  const std::string orphan = missing + "/child";
  const mode_t former = ::umask(027);
  bool existed = true;
  EXPECT_EQ(osal_mkdir(bytes(path), &existed, false), 0);
  ::umask(former);
  EXPECT_FALSE(existed);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0750));
  EXPECT_EQ(osal_mkdir(bytes(path), &existed, false), 0);
  EXPECT_TRUE(existed);
  existed = false;
  EXPECT_EQ(osal_mkdir(bytes(file), &existed, false), 0);
  EXPECT_TRUE(existed);
  EXPECT_EQ(osal_mkdir(bytes(orphan), &existed, false), -1);
  EXPECT_EQ(osal_mkdir(bytes(""), nullptr, false), -1);
  EXPECT_THAT(newLines(),
              ElementsAre("OSAL:INF osal_mkdir : directory created at path " + quoted(path),
                          "OSAL:DBG osal_mkdir : directory already exists at path " + quoted(path),
                          "OSAL:DBG osal_mkdir : directory already exists at path " + quoted(file),
                          text("OSAL:ERR osal_mkdir : cannot create directory (", ENOENT,
                               ") at path ", quoted(orphan)),
                          text("OSAL:ERR osal_mkdir : cannot create directory (", ENOENT,
                               ") at path \"(root)\"")));
  EXPECT_EQ(osal_mkdir(bytes(folder / "silent"), nullptr, true), 0);
  EXPECT_EQ(osal_mkdir(bytes(folder / "silent"), nullptr, true), 0);
  EXPECT_EQ(osal_mkdir(bytes(orphan), nullptr, true), -1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(OsalPathTest, RmdirTakesAMissingDirectoryForSuccess) {
  fs::create_directories(path + "/child");
  bool missingDirectory = true;
  EXPECT_EQ(osal_rmdir(bytes(path), &missingDirectory), -1);
  EXPECT_TRUE(missingDirectory);
  fs::remove(path + "/child");
  EXPECT_EQ(osal_rmdir(bytes(path), &missingDirectory), 0);
  EXPECT_FALSE(missingDirectory);
  EXPECT_EQ(osal_rmdir(bytes(path), &missingDirectory), 0);
  EXPECT_TRUE(missingDirectory);
  EXPECT_EQ(osal_rmdir(bytes(path), nullptr), 0);
  EXPECT_THAT(newLines(),
              ElementsAre(text("OSAL:ERR osal_rmdir : cannot remove directory (", ENOTEMPTY,
                               ") at path ", quoted(path)),
                          "OSAL:INF osal_rmdir : directory removed at path " + quoted(path),
                          "OSAL:DBG osal_rmdir : directory not exists at path " + quoted(path),
                          "OSAL:DBG osal_rmdir : directory not exists at path " + quoted(path)));
}

TEST_F(OsalPathTest, RmfileTellsWhetherAFileWasRemoved) {
  writeFile(file, "");
  const std::string below = file + "/below";
  bool removed = true;
  EXPECT_EQ(osal_rmfile(bytes(below), &removed, false), -1);
  EXPECT_TRUE(removed);
  removed = false;
  EXPECT_EQ(osal_rmfile(bytes(file), &removed, false), 0);
  EXPECT_TRUE(removed);
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(osal_rmfile(bytes(file), &removed, false), 0);
  EXPECT_FALSE(removed);
  EXPECT_THAT(newLines(),
              ElementsAre(text("OSAL:ERR osal_rmfile : cannot remove file (", ENOTDIR, ") at path ",
                               quoted(below)),
                          "OSAL:INF osal_rmfile : file removed at path " + quoted(file),
                          "OSAL:INF osal_rmfile : file not exists at path " + quoted(file)));
  writeFile(file, "");
  EXPECT_EQ(osal_rmfile(bytes(below), nullptr, true), -1);
  EXPECT_EQ(osal_rmfile(bytes(file), nullptr, true), 0);
  EXPECT_EQ(osal_rmfile(bytes(file), nullptr, true), 0);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(OsalPathTest, RenameReplacesTheTarget) {
  writeFile(file, "new");
  writeFile(path, "old");
  EXPECT_EQ(osal_rename(bytes(file), bytes(path), false), 0);
  EXPECT_EQ(content(path), "new");
  EXPECT_EQ(osal_rename(bytes(file), bytes(path), false), -1);
  EXPECT_EQ(content(path), "new");
  EXPECT_THAT(newLines(), ElementsAre(text("OSAL:INF osal_rename : file at path ", quoted(file),
                                           " renamed to ", quoted(path)),
                                      text("OSAL:ERR osal_rename : cannot rename file (", ENOENT,
                                           ") at path ", quoted(file), " to ", quoted(path))));
  EXPECT_EQ(osal_rename(bytes(path), bytes(file), true), 0);
  EXPECT_EQ(osal_rename(bytes(path), bytes(file), true), -1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(OsalPathTest, SetAllRights) {
  writeFile(file, "");
  fs::permissions(file, fs::perms(0400));
  EXPECT_EQ(osal_setAllRights(bytes(file), false), 0);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0777));
  EXPECT_EQ(osal_setAllRights(bytes(missing), false), -1);
  EXPECT_THAT(newLines(), ElementsAre("OSAL:INF chmod/0777 at path : " + quoted(file),
                                      text("OSAL:ERR Cannot make chmod/0777 (", ENOENT,
                                           ") at path : ", quoted(missing))));
  EXPECT_EQ(osal_setAllRights(bytes(file), true), 0);
  EXPECT_EQ(osal_setAllRights(bytes(missing), true), -1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(OsalPathTest, SetTimesKeepsMicroseconds) {
  writeFile(file, "");
  constexpr struct {
    unsigned long long given;
    long long seconds;
    long long nanoseconds;
  } kCases[] = {{0, 0, 0},
                {1'500'000'000'000'000'000, 1'500'000'000, 0},
                {1'500'000'000'999'999'999, 1'500'000'000, 999'999'000},
                {1'500'000'001'000'000'999, 1'500'000'001, 0},
                {1'500'000'001'000'001'000, 1'500'000'001, 1'000}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.given);
    EXPECT_EQ(osal_setTimes(bytes(file), 7'000'008'000, c.given), 0);
    EXPECT_THAT(newLines(), ElementsAre(text("OSAL:INF Set aTime = 7000008000 ; mTime = ", c.given,
                                             " at path : ", quoted(file))));
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
#if defined(__APPLE__)
    const timespec accessed = info.st_atimespec;
    const timespec changed = info.st_mtimespec;
#else
    const timespec accessed = info.st_atim;
    const timespec changed = info.st_mtim;
#endif
    EXPECT_EQ(accessed.tv_sec, 7);
    EXPECT_EQ(accessed.tv_nsec, 8'000);
    EXPECT_EQ(changed.tv_sec, c.seconds);
    EXPECT_EQ(changed.tv_nsec, c.nanoseconds);
  }
  EXPECT_EQ(osal_setTimes(bytes(missing), 1, 2), -1);
  EXPECT_THAT(newLines(), ElementsAre(text("OSAL:ERR Cannot change aTime & mTime (", ENOENT,
                                           ") at path : ", quoted(missing))));
}

TEST_F(OsalPathTest, MktempMakesANewEmptyFile) {
  const std::ptrdiff_t before = openDescriptors();
  const std::string start = folder / "new.";
  std::string first = start + "XXXXXX.cfg";
  std::string second = start + "XXXXXX.cfg";
  EXPECT_EQ(osal_mktemp(reinterpret_cast<unsigned char*>(first.data()), 4, false), 0);
  EXPECT_EQ(osal_mktemp(reinterpret_cast<unsigned char*>(second.data()), 4, true), 0);
  EXPECT_NE(first, second);
  for (const std::string& name : {first, second}) {
    EXPECT_TRUE(name.starts_with(start) && name.ends_with(".cfg")) << name;
    EXPECT_EQ(fs::file_size(name), 0U);
    EXPECT_EQ(fs::status(name).permissions(), fs::perms(0600));
  }
  for (const int wrong : {3, 5, 4096, -1, INT_MIN}) {
    std::string pattern = start + "XXXXXX.cfg";
    EXPECT_EQ(osal_mktemp(reinterpret_cast<unsigned char*>(pattern.data()), wrong, false), -1);
  }
  EXPECT_EQ(osal_mktemp(nullptr, 0, false), -1);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(OsalPathTest, FreeSpace) {
  unsigned long long freeBytes = 0;
  const std::string where = folder.path();
  EXPECT_EQ(osal_getFSFreeSpace(bytes(where), &freeBytes), 0);
  EXPECT_GT(freeBytes, 0U);
  EXPECT_LE(freeBytes, fs::space(where).capacity);
  EXPECT_THAT(newLines(), ElementsAre(text("OSAL:DBG OSAL_FSGetFreeSpace : get free space = ",
                                           freeBytes, " on FS of directory (", where, ")")));
  EXPECT_EQ(osal_getFSFreeSpace(bytes(where), nullptr), 0);
  log.clear();
  freeBytes = 1;
  EXPECT_EQ(osal_getFSFreeSpace(nullptr, &freeBytes), -1);
  EXPECT_EQ(osal_getFSFreeSpace(bytes(""), &freeBytes), -1);
  EXPECT_EQ(osal_getFSFreeSpace(bytes(missing), &freeBytes), -1);
  EXPECT_EQ(freeBytes, 1U);
  EXPECT_THAT(newLines(), ElementsAre("OSAL:WRN osal_FSGetFreeSpace : Invalid path",
                                      "OSAL:WRN osal_FSGetFreeSpace : Invalid path",
                                      text("OSAL:WRN OSAL_FSGetFreeSpace : Cannot get fstatfs (",
                                           ENOENT, ") on directory (", missing, ")")));
}

TEST_F(OsalPathTest, RealPath) {
  writeFile(file, "");
  fs::create_symlink(file, folder / "link");
  unsigned char resolved[PATH_MAX] = "dirty";
  EXPECT_EQ(osal_getRealPath(bytes(folder / "./../link/../nothing"), nullptr), -1);
  log.clear();
  EXPECT_EQ(osal_getRealPath(bytes(folder / ".//link"), resolved), 0);
  EXPECT_EQ(reinterpret_cast<char*>(resolved), fs::canonical(file).string());
  EXPECT_EQ(osal_getRealPath(bytes(folder / "link"), nullptr), 0);
  EXPECT_THAT(newLines(), IsEmpty());

  EXPECT_EQ(osal_getRealPath(bytes(missing), resolved), -1);
  const std::string unresolved = reinterpret_cast<char*>(resolved);
  EXPECT_THAT(newLines(), ElementsAre(text("OSAL:ERR osal_getRealPath failed (",
                                           unresolved.empty() ? "(root)" : unresolved,
                                           ") on path: ", missing)));
  for (const char* const wrong : {"", static_cast<const char*>(nullptr)}) {
    resolved[0] = 'x';
    EXPECT_EQ(osal_getRealPath(bytes(wrong), resolved), -1);
    EXPECT_EQ(resolved[0], '\0');
  }
  EXPECT_THAT(newLines(), ElementsAre("OSAL:ERR osal_getRealPath failed ((root)) on path: (root)",
                                      "OSAL:ERR osal_getRealPath failed ((root)) on path: (null)"));
}

TEST_F(OsalPathTest, ANullPathIsTheSystemsBadAddress) {
  const std::string code = text("(", EFAULT, ")");
  EXPECT_EQ(osal_getFileType(nullptr, nullptr, false), -1);
  EXPECT_EQ(osal_mkdir(nullptr, nullptr, false), -1);
  EXPECT_EQ(osal_rmdir(nullptr, nullptr), -1);
  EXPECT_EQ(osal_rmfile(nullptr, nullptr, false), -1);
  EXPECT_EQ(osal_rename(bytes("a"), nullptr, false), -1);
  EXPECT_EQ(osal_rename(nullptr, bytes("b"), false), -1);
  EXPECT_EQ(osal_setAllRights(nullptr, false), -1);
  EXPECT_EQ(osal_setTimes(nullptr, 0, 0), -1);
  EXPECT_THAT(
      newLines(),
      ElementsAre(
          "OSAL:ERR Cannot get file type " + code + " for path :\"(null)\"",
          "OSAL:ERR osal_mkdir : cannot create directory " + code + " at path \"(null)\"",
          "OSAL:ERR osal_rmdir : cannot remove directory " + code + " at path \"(null)\"",
          "OSAL:ERR osal_rmfile : cannot remove file " + code + " at path \"(null)\"",
          "OSAL:ERR osal_rename : cannot rename file " + code + " at path \"a\" to \"(null)\"",
          "OSAL:ERR osal_rename : cannot rename file " + code + " at path \"(null)\" to \"b\"",
          "OSAL:ERR Cannot make chmod/0777 " + code + " at path : \"(null)\"",
          "OSAL:ERR Cannot change aTime & mTime " + code + " at path : \"(null)\""));
}

TEST_F(OsalPathTest, UmountRunsTheCommandOnWholePathsOnly) {
  // A command of this name that writes down what it was asked.
  fs::create_directory(folder / "bin");
  writeFile(folder / "bin/umount", "#!/bin/sh\nprintf '%s:%s' $# \"$1\" >'" + path + "'; exit 1\n");
  fs::permissions(folder / "bin/umount", fs::perms(0700));
  const std::string formerPath = ::getenv("PATH");
  ::setenv("PATH", (folder / "bin:" + formerPath).c_str(), 1);
  constexpr std::size_t kRoom = 1023 - (sizeof "umount '' 2>/dev/null >/dev/null" - 1);
  const struct {
    std::string mountPoint;
    bool runs;
  } kCases[] = {
      {"/mnt/disk", true},
      {"/mnt/with  two blanks", true},
      {"/mnt/it's; touch " + missing + " '", true},
      {"$(touch " + missing + ")", true},
      {"", true},
      {std::string(kRoom, 'x'), true},
      {std::string(kRoom + 1, 'x'), false},
      {std::string(kRoom - 4, 'x') + "'", true},
      {std::string(kRoom - 3, 'x') + "'", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.mountPoint);
    fs::remove(path);
    EXPECT_EQ(osal_umount(c.mountPoint.c_str()), 0);
    EXPECT_EQ(content(path), c.runs ? "1:" + c.mountPoint : "");
    EXPECT_FALSE(fs::exists(missing));
  }
  EXPECT_EQ(osal_umount(nullptr), 0);
  ::setenv("PATH", formerPath.c_str(), 1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(OsalPathTest, WhatTheseSystemsDoNotOffer) {
  EXPECT_EQ(osal_getFSInfo(nullptr), -1);
  EXPECT_EQ(osal_getFSInfo(bytes("/"), nullptr), -2);
  EXPECT_EQ(osal_is_mounted("/"), -1);
  EXPECT_EQ(osal_mount_cifs("/", "//server/share"), -1);
  EXPECT_EQ(osal_mount_nfs("/", "server:/export"), -1);
  EXPECT_THAT(newLines(), IsEmpty());
}

}  // namespace
