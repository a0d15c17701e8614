#include "osal/osal_path.h"

#include <fcntl.h>
#include <limits.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>

#include "FolderTest.h"
#include "osal/osal_dir.h"

namespace {

class OsalPathTest : public SaidTest {};

// In their order: each call meets what the former ones left.
TEST_F(OsalPathTest, EachOperationTellsWhatItDidOrNot) {
  writeFile(path, "new");
  fs::create_symlink("loop", folder / "loop");
  const std::string child = folder / "new/child";
  const std::string other = folder / "new";
  const std::string below = path + "/below";
  using Call = std::function<int(const unsigned char* at, bool* flag, bool silent)>;
  const Call make = osal_mkdir;
  const Call removeFile = osal_rmfile;
  const Call exists = osal_exists;
  const Call type = [](auto at, bool*, bool s) { return osal_getFileType(at, nullptr, s); };
  const Call rights = [](auto at, bool*, bool s) { return osal_setAllRights(at, s); };
  const Call remove = [](auto at, bool* flag, bool) { return osal_rmdir(at, flag); };
  const Call rename = [&](auto at, bool*, bool s) { return osal_rename(at, bytes(other), s); };
  const struct {
    Call call;
    std::string at;  // in messages "~" is the folder
    std::string said;
    bool flag = false;
  } kCalls[] = {
      {make, child, "-1 ERR osal_mkdir : cannot create directory (2) at path \"~/new/child\""},
      {make, other, "0 INF osal_mkdir : directory created at path \"~/new\""},
      {make, child, "0 INF osal_mkdir : directory created at path \"~/new/child\""},
      {make, path, "0 DBG osal_mkdir : directory already exists at path \"~/file\"", true},
      {remove, other,
       text("-1 ERR osal_rmdir : cannot remove directory (", ENOTEMPTY, ") at path \"~/new\"")},
      {rename, path,
       "-1 ERR osal_rename : cannot rename file (21) at path \"~/file\" to \"~/new\""},
      {remove, child, "0 INF osal_rmdir : directory removed at path \"~/new/child\""},
      {remove, child, "0 DBG osal_rmdir : directory not exists at path \"~/new/child\"", true},
      {remove, other, "0 INF osal_rmdir : directory removed at path \"~/new\""},
      {type, other, "-1 ERR Cannot get file type (2) for path :\"~/new\""},
      {rights, other, "-1 ERR Cannot make chmod/0777 (2) at path : \"~/new\""},
      {rights, path, "0 INF chmod/0777 at path : \"~/file\""},
      {removeFile, below, "-1 ERR osal_rmfile : cannot remove file (20) at path \"~/file/below\""},
      {exists, path, "0 DBG osal_exists : check file (exists) at path \"~/file\"", true},
      {exists, below, "0 DBG osal_exists : check file (not exists) at path \"~/file/below\""},
      {rename, path, "0 INF osal_rename : file at path \"~/file\" renamed to \"~/new\""},
      {removeFile, other, "0 INF osal_rmfile : file removed at path \"~/new\"", true},
      {removeFile, other, "0 INF osal_rmfile : file not exists at path \"~/new\""},
  };
  for (const auto& c : kCalls) {
    bool flag = false;
    EXPECT_EQ(said(c.call(bytes(c.at), &flag, false)), c.said);
    EXPECT_EQ(flag, c.flag) << c.said;
    if (c.said[0] != '-' || c.said.starts_with("-1 ERR osal_rmdir")) continue;
    EXPECT_EQ(said(c.call(bytes(c.at), nullptr, true)), "-1");
  }
  bool unknown = true;
  EXPECT_EQ(said(osal_exists(bytes(folder / "loop"), &unknown, true)), "-1");
  EXPECT_TRUE(unknown) << "nothing is written";
}

TEST_F(OsalPathTest, TimesTemporaryFilesSpaceAndRealPaths) {
  std::string name = folder / "new.XXXXXX.cfg";
  auto* const pattern = reinterpret_cast<unsigned char*>(name.data());
  EXPECT_EQ(osal_mktemp(pattern, 3, false), -1);
  EXPECT_EQ(osal_mktemp(pattern, 4, false), 0);
  EXPECT_EQ(permissionsOf(name), 0600);
  EXPECT_EQ(osal_setTimes(pattern, 1, 1'500'000'000'999'999'999), 0);
  const auto since1970 = std::chrono::file_clock::to_sys(fs::last_write_time(name));
  EXPECT_TRUE(since1970.time_since_epoch() == std::chrono::nanoseconds(1'500'000'000'999'999'000));
  unsigned long long freeBytes = 0;
  EXPECT_EQ(osal_getFSFreeSpace(bytes(root()), &freeBytes), 0);
  EXPECT_GT(freeBytes, 0U);
  EXPECT_LE(freeBytes, fs::space(folder.path()).capacity);
  fs::create_symlink(name, folder / "link");
  unsigned char resolved[PATH_MAX];
  EXPECT_EQ(osal_getRealPath(bytes(folder / ".//link"), resolved), 0);
  EXPECT_EQ(reinterpret_cast<char*>(resolved), fs::canonical(name).string());
  said.clear();
  EXPECT_EQ(said(osal_getRealPath(bytes(""), nullptr)),
            "-1 ERR osal_getRealPath failed ((root)) on path: (root)");
}

TEST_F(OsalPathTest, UmountRunsTheCommandOnWholePathsOnly) {
  // A command of this name that writes down what it was asked.
  fs::create_directory(folder / "bin");
  writeFile(folder / "bin/umount", "#!/bin/sh\nprintf '%s:%s' $# \"$1\" >'" + path + "'; exit 1\n");
  fs::permissions(folder / "bin/umount", fs::perms(0700));
  const std::string formerPath = std::getenv("PATH");
  ::setenv("PATH", (folder / "bin:" + formerPath).c_str(), 1);
  constexpr std::size_t kRoom = 1023 - (sizeof "umount '' 2>/dev/null >/dev/null" - 1);
  const std::pair<std::string, bool> kCases[] = {{"/mnt/it's  $(two) blanks", true},
                                                 {std::string(kRoom, 'x'), true},
                                                 {std::string(kRoom + 1, 'x'), false},
                                                 {std::string(kRoom - 3, 'x') + "'", false}};
  for (const auto& [mountPoint, runs] : kCases) {
    fs::remove(path);
    EXPECT_EQ(osal_umount(mountPoint.c_str()), 0);
    EXPECT_EQ(content(path), runs ? "1:" + mountPoint : "");
  }
  ::setenv("PATH", formerPath.c_str(), 1);
}

class OSAL_DirTest : public SaidTest {
 protected:
  /// The path of the folder with as many slashes at its end as make it `length` long.
  [[nodiscard]] std::string padded(std::size_t length) const {
    return root() + std::string(length - root().size(), '/');
  }
  /// Reads the whole of it into buffers of `size`.
  std::map<std::string, QDFileType> entriesOf(const std::string& where, unsigned int size) {
    std::map<std::string, QDFileType> entries;
    EXPECT_EQ(dir.openDir(bytes(where), false), 0);
    QDFileType type{};
    while (dir.readDir(name, size, &type, false) == 0 && *name != '\0') entries[name] = type;
    EXPECT_EQ(dir.closeDir(true, false), 0);
    return entries;
  }

  char name[256] = "";
  OSAL_Dir dir;
};

TEST_F(OSAL_DirTest, ReadsEveryEntryWithItsTypeWhereNamesAndPathsFit) {
  fs::create_symlink("nothing", folder / "dangling");
  fs::create_symlink(".", folder / "link");
  writeFile(path, "");
  const auto all = entriesOf(root(), sizeof name);
  EXPECT_EQ(all, (std::map<std::string, QDFileType>{{".", QD_FILETYPE_DIR},
                                                    {"..", QD_FILETYPE_DIR},
                                                    {"file", QD_FILETYPE_REG},
                                                    {"link", QD_FILETYPE_DIR},
                                                    {"dangling", QD_FILETYPE_UNKNOWN}}));
  EXPECT_TRUE(said().ends_with("INF Read directory (@) -> done | INF Directory closed (@)"));
  fs::remove(folder / "dangling");
  EXPECT_EQ(entriesOf(root(), 5).size(), 4U);
  said.clear();
  entriesOf(root(), 4);
  EXPECT_STREQ(name, "");
  EXPECT_NE(said().find("ERR Buffer too short to read directory (@) -> "), std::string::npos);
#if PATH_MAX >= 4096
  for (const std::size_t length : {4095U, 4096U, 4100U}) {  // the last is in the longest folder
    EXPECT_EQ(entriesOf(padded(length - 5), 5)["file"],
              length == 4095 ? QD_FILETYPE_REG : QD_FILETYPE_UNKNOWN);
  }
#endif
}

TEST_F(OSAL_DirTest, TellsWhatFails) {
  for (const bool warnOnly : {false, true}) {
    const std::string level = warnOnly ? "-1 WRN " : "-1 ERR ";
    EXPECT_EQ(said(dir.openDir(bytes(missing), warnOnly)),
              level + "Cannot open (2) directory \"~/missing\"");
    EXPECT_TRUE(said(dir.openDir(bytes(padded(4096)), warnOnly))
                    .starts_with(level + "Path too long : \"~/"));
    ASSERT_EQ(said(dir.openDir(bytes(root()), warnOnly)), "0 INF Directory opened (@) -> \"~\"");
    EXPECT_EQ(said(dir.openDir(bytes("/"), warnOnly)),
              "-1 ERR Cannot open (handle already in use) directory : \"/\"");
    EXPECT_EQ(::fcntl(::dirfd(dir.dir), F_GETFD), FD_CLOEXEC);
    ::close(::dirfd(dir.dir));
    EXPECT_EQ(said(dir.readDir(name, sizeof name, nullptr, warnOnly)),
              level + "Read directory (@) -> error (9)");
    EXPECT_EQ(said(dir.closeDir(true, warnOnly)), level + "Cannot close (9) directory (@)");
  }
}

}  // namespace
