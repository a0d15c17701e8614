#include "osal/osal_path.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include "ExpectCall.h"
#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"
#include "osal/osal_fs.h"

namespace {

namespace fs = std::filesystem;

class OsalPathTest : public testing::Test {
 protected:
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
  QDFileType type{};
  for (const auto& c : kCases) {
    expectCall(log, osal_getFileType(bytes(c.path), &type, false), 0);
    EXPECT_EQ(type, c.type) << c.path;
  }
  expectCall(log, osal_getFileType(bytes(file), nullptr, false), 0);
  expectCall(log, osal_getFileType(bytes(missing), &type, true), -1);
  expectCall(log, osal_getFileType(bytes(missing), &type, false), -1,
             {"OSAL:ERR Cannot get file type " + code(ENOENT) + " for path :" + quoted(missing)});
  EXPECT_EQ(type, QD_FILETYPE_UNKNOWN);
}

TEST_F(OsalPathTest, ExistsAnswersOrFails) {
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
    const std::string what =
        c.error != 0
            ? "OSAL:ERR osal_exists : cannot check file " + code(c.error)
            : text("OSAL:DBG osal_exists : check file (", c.exists ? "" : "not ", "exists)");
    bool exists = !c.exists;
    expectCall(log, osal_exists(bytes(c.path), &exists, false), c.error == 0 ? 0 : -1,
               {what + " at path " + quoted(c.path.empty() ? "(root)" : c.path)});
    EXPECT_EQ(exists, c.error == 0 ? c.exists : !c.exists);
    expectCall(log, osal_exists(bytes(c.path), nullptr, true), c.error == 0 ? 0 : -1);
  }
  expectCall(log, osal_exists(nullptr, nullptr, false), -1, {"OSAL:ERR osal_exists : NULL arg"});
  expectCall(log, osal_exists(nullptr, nullptr, true), -1);
}

TEST_F(OsalPathTest, MkdirTakesWhateverIsThereForSuccess) {
  writeFile(file, "");
  const std::string orphan = missing + "/child";
  const mode_t former = ::umask(027);
  bool existed = true;
  expectCall(log, osal_mkdir(bytes(path), &existed, false), 0,
             {"OSAL:INF osal_mkdir : directory created at path " + quoted(path)});
  ::umask(former);
  EXPECT_FALSE(existed);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0750));
  for (const std::string& there : {path, file}) {
    existed = false;
    expectCall(log, osal_mkdir(bytes(there), &existed, false), 0,
               {"OSAL:DBG osal_mkdir : directory already exists at path " + quoted(there)});
    EXPECT_TRUE(existed);
    expectCall(log, osal_mkdir(bytes(there), nullptr, true), 0);
  }
  const std::string failure = "OSAL:ERR osal_mkdir : cannot create directory " + code(ENOENT);
  expectCall(log, osal_mkdir(bytes(orphan), nullptr, false), -1,
             {failure + " at path " + quoted(orphan)});
  expectCall(log, osal_mkdir(bytes(""), nullptr, false), -1, {failure + " at path \"(root)\""});
  expectCall(log, osal_mkdir(bytes(orphan), nullptr, true), -1);
}

TEST_F(OsalPathTest, RmdirTakesAMissingDirectoryForSuccess) {
  fs::create_directories(path + "/child");
  bool wasMissing = true;
  expectCall(log, osal_rmdir(bytes(path), &wasMissing), -1,
             {"OSAL:ERR osal_rmdir : cannot remove directory " + code(ENOTEMPTY) + " at path " +
              quoted(path)});
  EXPECT_TRUE(wasMissing);
  fs::remove(path + "/child");
  expectCall(log, osal_rmdir(bytes(path), &wasMissing), 0,
             {"OSAL:INF osal_rmdir : directory removed at path " + quoted(path)});
  EXPECT_FALSE(wasMissing);
  expectCall(log, osal_rmdir(bytes(path), &wasMissing), 0,
             {"OSAL:DBG osal_rmdir : directory not exists at path " + quoted(path)});
  EXPECT_TRUE(wasMissing);
}

TEST_F(OsalPathTest, RmfileTellsWhetherAFileWasRemoved) {
  writeFile(file, "");
  const std::string below = file + "/below";
  bool removed = true;
  expectCall(
      log, osal_rmfile(bytes(below), &removed, false), -1,
      {"OSAL:ERR osal_rmfile : cannot remove file " + code(ENOTDIR) + " at path " + quoted(below)});
  expectCall(log, osal_rmfile(bytes(below), &removed, true), -1);
  EXPECT_TRUE(removed);
  removed = false;
  expectCall(log, osal_rmfile(bytes(file), &removed, false), 0,
             {"OSAL:INF osal_rmfile : file removed at path " + quoted(file)});
  EXPECT_TRUE(removed);
  EXPECT_FALSE(fs::exists(file));
  expectCall(log, osal_rmfile(bytes(file), &removed, false), 0,
             {"OSAL:INF osal_rmfile : file not exists at path " + quoted(file)});
  EXPECT_FALSE(removed);
  expectCall(log, osal_rmfile(bytes(file), nullptr, true), 0);
}

TEST_F(OsalPathTest, RenameReplacesTheTarget) {
  writeFile(file, "new");
  writeFile(path, "old");
  expectCall(
      log, osal_rename(bytes(file), bytes(path), false), 0,
      {"OSAL:INF osal_rename : file at path " + quoted(file) + " renamed to " + quoted(path)});
  EXPECT_EQ(content(path), "new");
  expectCall(log, osal_rename(bytes(file), bytes(path), false), -1,
             {"OSAL:ERR osal_rename : cannot rename file " + code(ENOENT) + " at path " +
              quoted(file) + " to " + quoted(path)});
  EXPECT_EQ(content(path), "new");
  expectCall(log, osal_rename(bytes(path), bytes(file), true), 0);
  expectCall(log, osal_rename(bytes(path), bytes(file), true), -1);
}

TEST_F(OsalPathTest, SetAllRights) {
  writeFile(file, "");
  fs::permissions(file, fs::perms(0400));
  expectCall(log, osal_setAllRights(bytes(file), false), 0,
             {"OSAL:INF chmod/0777 at path : " + quoted(file)});
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0777));
  expectCall(log, osal_setAllRights(bytes(missing), false), -1,
             {"OSAL:ERR Cannot make chmod/0777 " + code(ENOENT) + " at path : " + quoted(missing)});
  expectCall(log, osal_setAllRights(bytes(file), true), 0);
  expectCall(log, osal_setAllRights(bytes(missing), true), -1);
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
    expectCall(
        log, osal_setTimes(bytes(file), 7'000'008'000, c.given), 0,
        {text("OSAL:INF Set aTime = 7000008000 ; mTime = ", c.given, " at path : ", quoted(file))});
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
    EXPECT_EQ(changed.tv_sec, c.seconds) << c.given;
    EXPECT_EQ(changed.tv_nsec, c.nanoseconds) << c.given;
  }
  expectCall(
      log, osal_setTimes(bytes(missing), 1, 2), -1,
      {"OSAL:ERR Cannot change aTime & mTime " + code(ENOENT) + " at path : " + quoted(missing)});
}

TEST_F(OsalPathTest, MktempMakesANewEmptyFile) {
  const std::ptrdiff_t before = openDescriptors();
  const std::string start = folder / "new.";
  std::string names[2];
  for (std::string& name : names) {
    name = start + "XXXXXX.cfg";
    expectCall(log, osal_mktemp(reinterpret_cast<unsigned char*>(name.data()), 4, false), 0);
    EXPECT_TRUE(name.starts_with(start) && name.ends_with(".cfg")) << name;
    EXPECT_EQ(fs::file_size(name), 0U);
    EXPECT_EQ(fs::status(name).permissions(), fs::perms(0600));
  }
  EXPECT_NE(names[0], names[1]);
  for (const int wrong : {3, 5, 4096, -1, INT_MIN}) {
    std::string pattern = start + "XXXXXX.cfg";
    expectCall(log, osal_mktemp(reinterpret_cast<unsigned char*>(pattern.data()), wrong, false),
               -1);
  }
  expectCall(log, osal_mktemp(nullptr, 0, false), -1);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(OsalPathTest, FreeSpace) {
  unsigned long long freeBytes = 1;
  const std::string where = folder.path();
  const std::string invalid = "OSAL:WRN osal_FSGetFreeSpace : Invalid path";
  expectCall(log, osal_getFSFreeSpace(nullptr, &freeBytes), -1, {invalid});
  expectCall(log, osal_getFSFreeSpace(bytes(""), &freeBytes), -1, {invalid});
  expectCall(log, osal_getFSFreeSpace(bytes(missing), &freeBytes), -1,
             {"OSAL:WRN OSAL_FSGetFreeSpace : Cannot get fstatfs " + code(ENOENT) +
              " on directory (" + missing + ")"});
  EXPECT_EQ(freeBytes, 1U);
  EXPECT_EQ(osal_getFSFreeSpace(bytes(where), nullptr), 0);
  log.clear();
  const int result = osal_getFSFreeSpace(bytes(where), &freeBytes);
  expectCall(log, result, 0,
             {text("OSAL:DBG OSAL_FSGetFreeSpace : get free space = ", freeBytes,
                   " on FS of directory (", where, ")")});
  EXPECT_GT(freeBytes, 1U);
  EXPECT_LE(freeBytes, fs::space(where).capacity);
}

TEST_F(OsalPathTest, RealPath) {
  writeFile(file, "");
  fs::create_symlink(file, folder / "link");
  unsigned char resolved[PATH_MAX] = "dirty";
  const auto* const resolvedText = reinterpret_cast<const char*>(resolved);
  expectCall(log, osal_getRealPath(bytes(folder / ".//link"), resolved), 0);
  EXPECT_EQ(resolvedText, fs::canonical(file).string());
  expectCall(log, osal_getRealPath(bytes(file), nullptr), 0);
  const int result = osal_getRealPath(bytes(missing), resolved);
  expectCall(log, result, -1,
             {text("OSAL:ERR osal_getRealPath failed (", *resolved == 0 ? "(root)" : resolvedText,
                   ") on path: ", missing)});
  for (const char* const wrong : {"", static_cast<const char*>(nullptr)}) {
    resolved[0] = 'x';
    expectCall(log, osal_getRealPath(bytes(wrong), resolved), -1,
               {text("OSAL:ERR osal_getRealPath failed ((root)) on path: ",
                     wrong == nullptr ? "(null)" : "(root)")});
    EXPECT_EQ(resolved[0], '\0');
  }
}

TEST_F(OsalPathTest, ANullPathIsTheSystemsBadAddress) {
  const auto failure = [](const std::string& what, const std::string& where) {
    return std::vector{"OSAL:ERR " + what + " " + code(EFAULT) + where};
  };
  const std::string null = " at path \"(null)\"";
  expectCall(log, osal_getFileType(nullptr, nullptr, false), -1,
             failure("Cannot get file type", " for path :\"(null)\""));
  expectCall(log, osal_mkdir(nullptr, nullptr, false), -1,
             failure("osal_mkdir : cannot create directory", null));
  expectCall(log, osal_rmdir(nullptr, nullptr), -1,
             failure("osal_rmdir : cannot remove directory", null));
  expectCall(log, osal_rmfile(nullptr, nullptr, false), -1,
             failure("osal_rmfile : cannot remove file", null));
  expectCall(log, osal_rename(bytes("a"), nullptr, false), -1,
             failure("osal_rename : cannot rename file", " at path \"a\" to \"(null)\""));
  expectCall(log, osal_rename(nullptr, bytes("b"), false), -1,
             failure("osal_rename : cannot rename file", null + " to \"b\""));
  expectCall(log, osal_setAllRights(nullptr, false), -1,
             failure("Cannot make chmod/0777", " at path : \"(null)\""));
  expectCall(log, osal_setTimes(nullptr, 0, 0), -1,
             failure("Cannot change aTime & mTime", " at path : \"(null)\""));
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
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(OsalPathTest, WhatTheseSystemsDoNotOffer) {
  expectCall(log, osal_getFSInfo(nullptr), -1);
  expectCall(log, osal_getFSInfo(bytes("/"), nullptr), -2);
  expectCall(log, osal_is_mounted("/"), -1);
  expectCall(log, osal_mount_cifs("/", "//server/share"), -1);
  expectCall(log, osal_mount_nfs("/", "server:/export"), -1);
}

}  // namespace
