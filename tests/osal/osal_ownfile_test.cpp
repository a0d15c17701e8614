#include "ground/osal_ownfile.h"

#include <sys/stat.h>

#include <functional>

#include "FilesTest.h"

namespace {

constexpr uid_t kNobody = 65534;

class OwnFile : public FilesTest {};

TEST_F(OwnFile, NeverTouchesWhatSomebodyPutInTheWay) {
  const std::string victim = folder / "victim";
  writeFile(victim, "precious");
  const struct {
    const char* what;
    std::function<void()> prepare;
    int read;   // what reading gives: 0, or an errno
    int write;  // what writing gives
  } kThings[] = {{"nothing", [] {}, ENOENT, 0},
                 {"a file of our own", [&] { writeFile(path, "x"); }, 0, 0},
                 {"a link", [&] { fs::create_symlink(victim, path); }, ENOENT, 0},
                 {"a hard link", [&] { fs::create_hard_link(victim, path); }, 0, 0},
                 {"a FIFO", [&] { ::mkfifo(path.c_str(), 0666); }, ENOENT, 0},
                 {"a directory", [&] { fs::create_directory(path); }, EISDIR, EISDIR},
                 {"a file that others may write to",
                  [&] {
                    writeFile(path, "x");
                    fs::permissions(path, fs::perms(0666));
                  },
                  0, 0}};
  for (const auto& [what, prepare, read, write] : kThings) {
    for (const OwnFileUse use : {OwnFileUse::Read, OwnFileUse::Append, OwnFileUse::Overwrite}) {
      SCOPED_TRACE(text(what, ", use ", static_cast<int>(use)));
      fs::remove(path);
      prepare();
      ScopedFd fd;
      EXPECT_EQ(osal_openOwnFile(path.c_str(), use, 0600, fd),
                use == OwnFileUse::Read ? read : write);
      if (fd && use != OwnFileUse::Read) {
        EXPECT_EQ(::write(fd.get(), "y", 1), 1);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
        EXPECT_EQ(permissionsOf(path) & 0022, 0);
        EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
      }
      EXPECT_EQ(content(victim), "precious");
    }
  }
}

TEST_F(OwnFile, AForeignFileIsReadButNeverWritten) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can prepare another user's file";
  writeFile(path, "theirs");
  ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  ScopedFd fd;
  EXPECT_EQ(osal_openOwnFile(path.c_str(), OwnFileUse::Read, 0600, fd), 0);
  EXPECT_EQ(osal_openOwnFile(path.c_str(), OwnFileUse::Overwrite, 0600, fd), 0);
  ASSERT_EQ(::fstat(fd.get(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);
  EXPECT_EQ(after.st_uid, 0U);
}

TEST_F(OwnFile, LinksAreFollowedOnlyInFoldersThatNobodyShares) {
  fs::create_symlink(folder / "target", path);
  constexpr std::pair<unsigned int, bool> kCases[] = {
      {0700, false}, {0755, false}, {0775, true}, {01777, true}};
  for (const auto& [mode, shared] : kCases) {
    fs::permissions(folder.path(), fs::perms(mode));
    EXPECT_EQ(osal_folderIsShared(folder.path().c_str()), shared) << mode;
    ScopedFd fd;
    EXPECT_EQ(osal_openFixedFile(path.c_str(), OwnFileUse::Append, 0600, fd), 0);
    EXPECT_EQ(fs::is_symlink(fs::symlink_status(path)), !shared);
    EXPECT_TRUE(fs::exists(folder / "target"));
  }
  EXPECT_TRUE(osal_folderIsShared("/nowhere"));
}

}  // namespace
