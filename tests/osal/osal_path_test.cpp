#include "osal/osal_path.h"

#include "FolderTest.h"

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

}  // namespace
