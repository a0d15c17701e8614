#include "osal/osal_path.h"

#include <cstdlib>

#include "FolderTest.h"
#include "osal/osal_dir.h"

namespace {

class OsalPathTest : public SaidTest {};

// In their order: each call meets what the former ones left.
TEST_F(OsalPathTest, EachOperationTellsWhatItDidOrNot) {
  writeFile(path, "new");
  fs::create_symlink("loop", folder / "loop");
  const std::string other = folder / "new";
  bool flag = false;
  EXPECT_EQ(said(osal_mkdir(bytes(path), &flag, false)),
            "0 DBG osal_mkdir : directory already exists at path \"~/file\"");
  EXPECT_TRUE(flag);
  EXPECT_EQ(said(osal_mkdir(bytes(other), &flag, false)),
            "0 INF osal_mkdir : directory created at path \"~/new\"");
  EXPECT_FALSE(flag);
  EXPECT_EQ(said(osal_rename(bytes(path), bytes(other), false)),
            "-1 ERR osal_rename : cannot rename file (21) at path \"~/file\" to \"~/new\"");
  EXPECT_EQ(said(osal_rmdir(bytes(other), &flag)),
            "0 INF osal_rmdir : directory removed at path \"~/new\"");
  EXPECT_EQ(said(osal_rmdir(bytes(other), &flag)),
            "0 DBG osal_rmdir : directory not exists at path \"~/new\"");
  EXPECT_EQ(said(osal_rename(bytes(path), bytes(other), false)),
            "0 INF osal_rename : file at path \"~/file\" renamed to \"~/new\"");
  EXPECT_EQ(said(osal_exists(bytes(other + "/below"), &flag, false)),
            "0 DBG osal_exists : check file (not exists) at path \"~/new/below\"");
  EXPECT_FALSE(flag);
  EXPECT_EQ(osal_exists(bytes(folder / "loop"), &flag, true), -1);
  EXPECT_EQ(said(osal_rmfile(bytes(other), &flag, false)),
            "0 INF osal_rmfile : file removed at path \"~/new\"");
  EXPECT_TRUE(flag);
}

TEST_F(OsalPathTest, TimesAreSetToTheMicrosecond) {
  writeFile(path, "");
  EXPECT_EQ(osal_setTimes(bytes(path), 1, 1'500'000'000'999'999'999), 0);
  const auto since1970 = std::chrono::file_clock::to_sys(fs::last_write_time(path));
  EXPECT_EQ(since1970.time_since_epoch(), std::chrono::nanoseconds(1'500'000'000'999'999'000));
}

TEST_F(OsalPathTest, UnmountsAPathWithAnyCharacterInIt) {
  writeProgram(folder / "umount", "printf '%s:%s' $# \"$1\" >'" + path + "'");
  const std::string former = std::getenv("PATH");
  ::setenv("PATH", (root() + ":" + former).c_str(), 1);
  EXPECT_EQ(osal_umount("/mnt/it's  $(two)"), 0);
  ::setenv("PATH", former.c_str(), 1);
  EXPECT_EQ(content(path), "1:/mnt/it's  $(two)");
}

TEST_F(OsalPathTest, FoldersAndNamesAreReadUpToTheirLimits) {
  OSAL_Dir dir;
  const std::string tooLong = root() + std::string(4096 - root().size(), '/');
  EXPECT_TRUE(said(dir.openDir(bytes(tooLong), false)).starts_with("-1 ERR Path too long"));
  dir.closeDir(false, true);
  writeFile(folder / "abcd", "");
  for (const unsigned int size : {4U, 5U}) {
    int result = dir.openDir(bytes(root()), false);
    std::string name(6, '.');
    while (name.front() == '.' && result == 0) {
      result = dir.readDir(name.data(), size, nullptr, true);
    }
    EXPECT_EQ(result, size == 5 ? 0 : -1);
    EXPECT_STREQ(name.c_str(), size == 5 ? "abcd" : "");
    EXPECT_EQ(dir.closeDir(true, false), 0);
  }
}

}  // namespace
