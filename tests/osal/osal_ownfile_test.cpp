#include "osal/osal_ownfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "TempFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

struct InTheWay {
  const char* what;
  void (*prepare)(const std::string& path, const std::string& victim);
  int read;   // what reading gives: 0, or an errno
  int write;  // what writing gives
};

const InTheWay kThings[] = {
    {"nothing", [](const std::string&, const std::string&) {}, ENOENT, 0},
    {"a file of our own", [](const std::string& p, const std::string&) { std::ofstream(p) << "x"; },
     0, 0},
    {"a link", [](const std::string& p, const std::string& v) { fs::create_symlink(v, p); }, ENOENT,
     0},
    {"a dangling link",
     [](const std::string& p, const std::string&) { fs::create_symlink("/nowhere/x", p); }, ENOENT,
     0},
    {"a hard link", [](const std::string& p, const std::string& v) { fs::create_hard_link(v, p); },
     0, 0},
    {"a FIFO", [](const std::string& p, const std::string&) { ::mkfifo(p.c_str(), 0666); }, ENOENT,
     0},
    {"a directory", [](const std::string& p, const std::string&) { fs::create_directory(p); },
     EISDIR, EISDIR},
    {"a file that others may write to",
     [](const std::string& p, const std::string&) {
       std::ofstream(p) << "x";
       fs::permissions(p, fs::perms(0666));
     },
     0, 0},
};

TEST(OwnFile, NeverTouchesWhatSomebodyPutInTheWay) {
  const TempFolder folder;
  const std::string path = folder / "name";
  const std::string victim = folder / "victim";
  std::ofstream(victim) << "precious";
  for (const auto& [what, prepare, read, write] : kThings) {
    for (const OwnFileUse use : {OwnFileUse::Read, OwnFileUse::Append, OwnFileUse::Overwrite}) {
      SCOPED_TRACE(std::string(what) + ", use " + std::to_string(static_cast<int>(use)));
      fs::remove(path);
      prepare(path, victim);
      ScopedFd fd;
      EXPECT_EQ(osal_openOwnFile(path.c_str(), use, 0600, fd),
                use == OwnFileUse::Read ? read : write);
      EXPECT_EQ(fs::file_size(victim), 8U);
      if (!fd || use == OwnFileUse::Read) continue;
      EXPECT_EQ(::write(fd.get(), "y", 1), 1);
      EXPECT_EQ(fs::file_size(victim), 8U);
      EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
      EXPECT_EQ(fs::status(path).permissions() & fs::perms(0022), fs::perms(0));
      EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
      EXPECT_EQ(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
    }
  }
}

TEST(OwnFile, AForeignFileIsReadButNeverWritten) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can prepare another user's file";
  const TempFolder folder;
  const std::string path = folder / "name";
  std::ofstream(path) << "theirs";
  ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);
  struct stat before {};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);

  ScopedFd fd;
  EXPECT_EQ(osal_openOwnFile(path.c_str(), OwnFileUse::Read, 0600, fd), 0);
  EXPECT_EQ(osal_openOwnFile(path.c_str(), OwnFileUse::Overwrite, 0600, fd), 0);
  struct stat after {};
  ASSERT_EQ(::fstat(fd.get(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);
  EXPECT_EQ(after.st_uid, 0U);
}

TEST(OwnFile, TellsSharedFolders) {
  const TempFolder folder;
  const auto shared = [&](unsigned int mode) {
    fs::permissions(folder.path(), fs::perms(mode));
    return osal_folderIsShared(folder.path().c_str());
  };
  EXPECT_FALSE(shared(0700));
  EXPECT_FALSE(shared(0755));
  EXPECT_TRUE(shared(0775));
  EXPECT_TRUE(shared(01777));
  EXPECT_TRUE(osal_folderIsShared("/nowhere"));
  fs::permissions(folder.path(), fs::perms(0700));
}

TEST(OwnFile, InAFolderThatNobodySharesAFixedFileIsAnOrdinaryOne) {
  const TempFolder folder;
  fs::create_symlink(folder / "target", folder / "name");
  ScopedFd fd;
  EXPECT_EQ(osal_openFixedFile((folder / "name").c_str(), OwnFileUse::Append, 0600, fd), 0);
  EXPECT_TRUE(fs::exists(folder / "target"));
  fs::permissions(folder.path(), fs::perms(0777));
  EXPECT_EQ(osal_openFixedFile((folder / "name").c_str(), OwnFileUse::Append, 0600, fd), 0);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "name")));
}

}  // namespace
