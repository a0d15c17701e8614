#include "osal/osal_path.h"

#include <limits.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <map>

#include "FilesTest.h"
#include "osal/osal_dir.h"

namespace {

class OsalPathTest : public FilesTest {};

TEST_F(OsalPathTest, ExistsAnswersOrFails) {
  writeFile(path, "");
  fs::create_symlink(missing, folder / "dangling");
  fs::create_symlink("loop", folder / "loop");
  const std::string there = "0 DBG osal_exists : check file (exists) at path ";
  const std::string notThere = "0 DBG osal_exists : check file (not exists) at path ";
  const std::string loop = "-1 ERR osal_exists : cannot check file " + code(ELOOP) + " at path ";
  const struct {
    std::string path;
    std::string said;
  } kCases[] = {{path, there + "\"~/file\""},
                {missing, notThere + "\"~/missing\""},
                {"", notThere + "\"(root)\""},
                {path + "/below", notThere + "\"~/file/below\""},
                {folder / "dangling", notThere + "\"~/dangling\""},
                {folder / "loop", loop + "\"~/loop\""}};
  for (const auto& c : kCases) {
    const bool fails = c.said.starts_with("-1");
    const bool answer = c.said.starts_with(there);
    bool exists = !answer;
    EXPECT_EQ(said(osal_exists(bytes(c.path), &exists, false)), c.said);
    EXPECT_EQ(exists, fails ? !answer : answer) << c.said;
    EXPECT_EQ(said(osal_exists(bytes(c.path), nullptr, true)), fails ? "-1" : "0");
  }
}

// In their order: each call meets what the former ones left.
TEST_F(OsalPathTest, EachOperationTellsWhatItDidOrNot) {
  writeFile(folder / "plain", "new");
  fs::create_directories(folder / "full/child");
  bool flag = false;
  std::string whole;
  const auto at = [&](const char* name) {
    whole = folder / name;
    return bytes(whole);
  };
  const std::string other = folder / "target";
  const auto* const target = bytes(other);
  // What a call says when it is not silent, and that it says nothing when it is.
  const auto expect = [&](const std::function<int(bool)>& call, const std::string& expected) {
    EXPECT_EQ(said(call(false)), expected);
    EXPECT_EQ(said(call(true)), expected[0] == '-' ? "-1" : "0");
  };
  EXPECT_EQ(said(osal_mkdir(at("new"), &flag, false)),
            "0 INF osal_mkdir : directory created at path \"~/new\"");
  EXPECT_FALSE(flag);
  expect([&](bool s) { return osal_mkdir(at("plain"), &flag, s); },
         "0 DBG osal_mkdir : directory already exists at path \"~/plain\"");
  EXPECT_TRUE(flag);
  expect([&](bool s) { return osal_mkdir(at("no/child"), &flag, s); },
         "-1 ERR osal_mkdir : cannot create directory (2) at path \"~/no/child\"");
  expect([&](bool s) { return osal_mkdir(nullptr, &flag, s); },
         "-1 ERR osal_mkdir : cannot create directory (14) at path \"(null)\"");
  EXPECT_EQ(said(osal_rmdir(at("full"), &flag)), "-1 ERR osal_rmdir : cannot remove directory " +
                                                     code(ENOTEMPTY) + " at path \"~/full\"");
  EXPECT_TRUE(flag);
  EXPECT_EQ(said(osal_rmdir(at("new"), &flag)),
            "0 INF osal_rmdir : directory removed at path \"~/new\"");
  EXPECT_FALSE(flag);
  EXPECT_EQ(said(osal_rmdir(at("new"), &flag)),
            "0 DBG osal_rmdir : directory not exists at path \"~/new\"");
  EXPECT_TRUE(flag);
  EXPECT_EQ(said(osal_rmdir(nullptr, &flag)),
            "-1 ERR osal_rmdir : cannot remove directory (14) at path \"(null)\"");
  expect([&](bool s) { return osal_getFileType(at("no"), nullptr, s); },
         "-1 ERR Cannot get file type (2) for path :\"~/no\"");
  expect([&](bool s) { return osal_setAllRights(at("no"), s); },
         "-1 ERR Cannot make chmod/0777 (2) at path : \"~/no\"");
  fs::permissions(folder / "plain", fs::perms(0400));
  expect([&](bool s) { return osal_setAllRights(at("plain"), s); },
         "0 INF chmod/0777 at path : \"~/plain\"");
  EXPECT_EQ(permissionsOf(folder / "plain"), 0777);
  EXPECT_EQ(said(osal_rename(at("plain"), target, false)),
            "0 INF osal_rename : file at path \"~/plain\" renamed to \"~/target\"");
  expect([&](bool s) { return osal_rename(at("plain"), target, s); },
         "-1 ERR osal_rename : cannot rename file (2) at path \"~/plain\" to \"~/target\"");
  expect([&](bool s) { return osal_rename(target, nullptr, s); },
         "-1 ERR osal_rename : cannot rename file (14) at path \"~/target\" to \"(null)\"");
  EXPECT_EQ(content(other), "new");
  expect([&](bool s) { return osal_rmfile(at("target/below"), &flag, s); },
         "-1 ERR osal_rmfile : cannot remove file (20) at path \"~/target/below\"");
  expect([&](bool s) { return osal_rmfile(nullptr, &flag, s); },
         "-1 ERR osal_rmfile : cannot remove file (14) at path \"(null)\"");
  flag = false;
  EXPECT_EQ(said(osal_rmfile(target, &flag, false)),
            "0 INF osal_rmfile : file removed at path \"~/target\"");
  EXPECT_TRUE(flag);
  EXPECT_EQ(said(osal_rmfile(target, &flag, false)),
            "0 INF osal_rmfile : file not exists at path \"~/target\"");
  EXPECT_FALSE(flag);
  EXPECT_FALSE(fs::exists(other));
  expect([&](bool s) { return osal_exists(nullptr, nullptr, s); }, "-1 ERR osal_exists : NULL arg");
  EXPECT_EQ(said(osal_setTimes(at("no"), 1, 2)),
            "-1 ERR Cannot change aTime & mTime (2) at path : \"~/no\"");
  EXPECT_EQ(said(osal_getFSFreeSpace(nullptr, nullptr)),
            "-1 WRN osal_FSGetFreeSpace : Invalid path");
  EXPECT_EQ(said(osal_getFSFreeSpace(bytes(""), nullptr)),
            "-1 WRN osal_FSGetFreeSpace : Invalid path");
  EXPECT_EQ(said(osal_getFSFreeSpace(at("no"), nullptr)),
            "-1 WRN OSAL_FSGetFreeSpace : Cannot get fstatfs (2) on directory (~/no)");
  EXPECT_EQ(said(osal_getRealPath(bytes(""), nullptr)),
            "-1 ERR osal_getRealPath failed ((root)) on path: (root)");
  EXPECT_EQ(said(osal_getRealPath(nullptr, nullptr)),
            "-1 ERR osal_getRealPath failed ((root)) on path: (null)");
  EXPECT_EQ(said(osal_getFSInfo(bytes("/"), nullptr)), "-2");
}

TEST_F(OsalPathTest, SetTimesKeepsMicroseconds) {
  writeFile(path, "");
  constexpr struct {
    unsigned long long given;
    long long seconds;
    long long nanoseconds;
  } kCases[] = {{0, 0, 0},
                {1'500'000'000'999'999'999, 1'500'000'000, 999'999'000},
                {1'500'000'001'000'001'000, 1'500'000'001, 1'000}};
  for (const auto& c : kCases) {
    EXPECT_EQ(said(osal_setTimes(bytes(path), 7'000'008'000, c.given)),
              text("0 INF Set aTime = 7000008000 ; mTime = ", c.given, " at path : \"~/file\""));
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
#if defined(__APPLE__)
    const timespec times[] = {info.st_atimespec, info.st_mtimespec};
#else
    const timespec times[] = {info.st_atim, info.st_mtim};
#endif
    EXPECT_EQ(times[0].tv_sec, 7);
    EXPECT_EQ(times[0].tv_nsec, 8'000);
    EXPECT_EQ(times[1].tv_sec, c.seconds);
    EXPECT_EQ(times[1].tv_nsec, c.nanoseconds);
  }
}

TEST_F(OsalPathTest, MktempMakesANewEmptyFile) {
  const std::string start = folder / "new.";
  for (const int suffix : {4, 3, 5, 4096, -1, INT_MIN}) {
    std::string name = start + "XXXXXX.cfg";
    auto* const pattern = reinterpret_cast<unsigned char*>(name.data());
    EXPECT_EQ(said(osal_mktemp(pattern, suffix, false)), suffix == 4 ? "0" : "-1");
    if (suffix != 4) continue;
    EXPECT_TRUE(name.starts_with(start) && name.ends_with(".cfg")) << name;
    EXPECT_EQ(fs::file_size(name), 0U);
    EXPECT_EQ(permissionsOf(name), 0600);
  }
  EXPECT_EQ(osal_mktemp(nullptr, 0, false), -1);
}

TEST_F(OsalPathTest, FreeSpaceAndRealPath) {
  unsigned long long freeBytes = 0;
  const int result = osal_getFSFreeSpace(bytes(folder.path().string()), &freeBytes);
  EXPECT_EQ(said(result), text("0 DBG OSAL_FSGetFreeSpace : get free space = ", freeBytes,
                               " on FS of directory (~)"));
  EXPECT_GT(freeBytes, 0U);
  EXPECT_LE(freeBytes, fs::space(folder.path()).capacity);

  writeFile(path, "");
  fs::create_symlink(path, folder / "link");
  unsigned char resolved[PATH_MAX];
  EXPECT_EQ(said(osal_getRealPath(bytes(folder / ".//link"), resolved)), "0");
  EXPECT_EQ(reinterpret_cast<char*>(resolved), fs::canonical(path).string());
  EXPECT_EQ(osal_getRealPath(bytes(""), resolved), -1);
  EXPECT_EQ(*resolved, '\0');
}

TEST_F(OsalPathTest, UmountRunsTheCommandOnWholePathsOnly) {
  // A command of this name that writes down what it was asked.
  fs::create_directory(folder / "bin");
  writeFile(folder / "bin/umount", "#!/bin/sh\nprintf '%s:%s' $# \"$1\" >'" + path + "'; exit 1\n");
  fs::permissions(folder / "bin/umount", fs::perms(0700));
  const std::string formerPath = std::getenv("PATH");
  ::setenv("PATH", (folder / "bin:" + formerPath).c_str(), 1);
  constexpr std::size_t kRoom = 1023 - (sizeof "umount '' 2>/dev/null >/dev/null" - 1);
  const std::pair<std::string, bool> kCases[] = {
      {"/mnt/with  two blanks", true},           {"/mnt/it's; touch " + missing + " '", true},
      {"$(touch " + missing + ")", true},        {"", true},
      {std::string(kRoom, 'x'), true},           {std::string(kRoom + 1, 'x'), false},
      {std::string(kRoom - 3, 'x') + "'", false}};
  for (const auto& [mountPoint, runs] : kCases) {
    SCOPED_TRACE(mountPoint);
    fs::remove(path);
    EXPECT_EQ(osal_umount(mountPoint.c_str()), 0);
    EXPECT_EQ(content(path), runs ? "1:" + mountPoint : "");
    EXPECT_FALSE(fs::exists(missing));
  }
  EXPECT_EQ(said(osal_umount(nullptr)), "0");
  ::setenv("PATH", formerPath.c_str(), 1);
}

class OSAL_DirTest : public FilesTest {
 protected:
  int open(const std::string& where) {
    const int result = dir.openDir(bytes(where), false);
    said.clear();
    return result;
  }
  /// Reads on to the first entry that is not "." or "..", without a record of the others.
  int readEntry(unsigned int size, QDFileType* type, bool warnOnly = false) {
    for (;;) {
      said.clear();
      const int result = dir.readDir(name, size, type, warnOnly);
      if (result != 0 || (std::string(name) != "." && std::string(name) != "..")) return result;
    }
  }
  /// The path of the folder with as many slashes at its end as make it `length` long.
  std::string padded(std::size_t length) const {
    const std::string start = folder.path();
    return start + std::string(length - start.size(), '/');
  }

  char name[256] = "";
  OSAL_Dir dir;
};

TEST_F(OSAL_DirTest, ReadsEveryEntryWithItsType) {
  writeFile(path, "");
  fs::create_directory(folder / "folder");
  fs::create_symlink("file", folder / "to file");
  fs::create_symlink("folder", folder / "to folder");
  fs::create_symlink("nothing", folder / "dangling");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);

  EXPECT_EQ(said(dir.openDir(bytes(folder.path().string()), false)),
            "0 INF Directory opened (@) -> \"~\"");
  EXPECT_EQ(::fcntl(::dirfd(dir.dir), F_GETFD), FD_CLOEXEC);
  std::map<std::string, QDFileType> entries;
  std::string last;
  do {
    QDFileType type{};
    last = said(dir.readDir(name, sizeof name, &type, false));
    if (*name != '\0') entries[name] = type;
    if (std::string(name) == "dangling") {
      EXPECT_EQ(last,
                "0 ERR Cannot get file type (2) for path :\"~/dangling\" | "
                "INF Read directory (@) -> dangling");
    }
  } while (*name != '\0');
  EXPECT_EQ(last, "0 INF Read directory (@) -> done");
  EXPECT_EQ(entries, (std::map<std::string, QDFileType>{{".", QD_FILETYPE_DIR},
                                                        {"..", QD_FILETYPE_DIR},
                                                        {"file", QD_FILETYPE_REG},
                                                        {"folder", QD_FILETYPE_DIR},
                                                        {"to file", QD_FILETYPE_REG},
                                                        {"to folder", QD_FILETYPE_DIR},
                                                        {"dangling", QD_FILETYPE_UNKNOWN},
                                                        {"fifo", QD_FILETYPE_UNKNOWN}}));
  EXPECT_EQ(said(dir.closeDir(true, false)), "0 INF Directory closed (@)");
  EXPECT_EQ(open(folder.path()), 0);  // is closed with the object
}

TEST_F(OSAL_DirTest, ANameNeedsRoomForItsTerminator) {
  fs::create_symlink("nothing", folder / "abcd");  // whose type nobody wants here
  for (const bool warnOnly : {false, true}) {
    ASSERT_EQ(open(folder.path()), 0);
    EXPECT_EQ(said(readEntry(4, nullptr, warnOnly)),
              text("-1 ", warnOnly ? "WRN" : "ERR", " Buffer too short to read directory (@) -> "));
    EXPECT_STREQ(name, "");
    EXPECT_EQ(dir.closeDir(true, false), 0);
    ASSERT_EQ(open(folder.path()), 0);
    EXPECT_EQ(said(readEntry(5, nullptr, warnOnly)), "0 INF Read directory (@) -> abcd");
    EXPECT_STREQ(name, "abcd");
    EXPECT_EQ(dir.closeDir(true, false), 0);
  }
}

TEST_F(OSAL_DirTest, TellsWhatFails) {
  const std::string longName = "/" + std::string(256, 'x');
  for (const bool warnOnly : {false, true}) {
    const std::string level = warnOnly ? "-1 WRN " : "-1 ERR ";
    const std::pair<std::string, std::string> kWrong[] = {
        {missing, "Cannot open (2) directory \"~/missing\""},
        {"/dev/null", "Cannot open (20) directory \"/dev/null\""},
        {"", "Cannot open (2) directory \"(root)\""},
        {longName, "Cannot open " + code(ENAMETOOLONG) + " directory " + quoted(longName)},
        {padded(4096),
         "Path too long : \"~" + padded(4096).substr(folder.path().string().size()) + "\""},
    };
    for (const auto& [where, failure] : kWrong) {
      EXPECT_EQ(said(dir.openDir(bytes(where), warnOnly)), level + failure);
      EXPECT_EQ(said(dir.closeDir(false, warnOnly)), "0");
    }
    EXPECT_EQ(said(dir.openDir(nullptr, warnOnly)), "-1 ERR Arguments error");
    EXPECT_EQ(said(dir.readDir(nullptr, 1, nullptr, warnOnly)), "-1 ERR Arguments error");
    EXPECT_EQ(said(dir.readDir(name, 0, nullptr, warnOnly)), "-1 ERR Arguments error");
    EXPECT_EQ(said(dir.readDir(name, 1, nullptr, warnOnly)), "-1 ERR Invalid handle (readDir)");
    EXPECT_EQ(said(dir.closeDir(true, warnOnly)), "-1 ERR Invalid handle (closeDir)");
    ASSERT_EQ(open(folder.path()), 0);
    EXPECT_EQ(said(dir.openDir(bytes("/"), warnOnly)),
              "-1 ERR Cannot open (handle already in use) directory : \"/\"");
    const int noDirectory = ::open("/dev/null", O_RDONLY);
    ::dup2(noDirectory, ::dirfd(dir.dir));
    ::close(noDirectory);
    EXPECT_EQ(said(dir.readDir(name, sizeof name, nullptr, warnOnly)),
              level + "Read directory (@) -> error (20)");
    ::close(::dirfd(dir.dir));
    EXPECT_EQ(said(dir.closeDir(true, warnOnly)), level + "Cannot close (9) directory (@)");
    EXPECT_EQ(dir.dir, nullptr);
  }
}

#if PATH_MAX >= 4096
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
      {4099, QD_FILETYPE_UNKNOWN, false},  // in the longest folder
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.entryPath);
    ASSERT_EQ(open(padded(c.entryPath - 4)), 0);
    QDFileType type{};
    const std::string records = said(readEntry(sizeof name, &type));
    EXPECT_STREQ(name, "abc");
    EXPECT_EQ(type, c.expected);
    EXPECT_EQ(records.starts_with("0 ERR Cannot get file type"), c.asked);
    EXPECT_TRUE(records.ends_with("INF Read directory (@) -> abc"));
    EXPECT_EQ(dir.closeDir(true, false), 0);
  }
}
#endif

}  // namespace
