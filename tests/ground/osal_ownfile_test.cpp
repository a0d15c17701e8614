#include "ground/osal_ownfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>

#include "FolderTest.h"

namespace {

class OwnFile : public FolderTest {};

TEST_F(OwnFile, NeverTouchesWhatSomebodyPutInTheWay) {
  const std::string victim = folder / "victim";
  writeFile(victim, "precious");
  const auto make = [&](mode_t mode, uid_t owner) {
    writeFile(path, "x");
    fs::permissions(path, fs::perms(mode));
    EXPECT_EQ(::geteuid() == 0 ? ::chown(path.c_str(), owner, owner) : 0, 0);
  };
  const struct {
    const char* what;
    std::function<void()> prepare;
    int read;   // what reading gives: 0, or an errno
    int write;  // what writing gives
    bool kept;  // it is the file that is written to, not a new one
  } kThings[] = {
      {"nothing", [] {}, ENOENT, 0, false},
      {"a file of our own", [&] { make(0644, ::geteuid()); }, 0, 0, true},
      {"a link", [&] { fs::create_symlink(victim, path); }, ENOENT, 0, false},
      {"a hard link", [&] { fs::create_hard_link(victim, path); }, 0, 0, false},
      {"a FIFO", [&] { ::mkfifo(path.c_str(), 0666); }, ENOENT, 0, false},
      {"a directory", [&] { fs::create_directory(path); }, EISDIR, EISDIR, false},
      {"one that others may write to", [&] { make(0666, ::geteuid()); }, 0, 0, false},
      {"another user's", [&] { make(0644, 65534); }, 0, 0, ::geteuid() != 0},
  };
  for (const auto& [what, prepare, read, write, kept] : kThings) {
    for (const OwnFileUse use : {OwnFileUse::Read, OwnFileUse::Append, OwnFileUse::Overwrite}) {
      SCOPED_TRACE(text(what, ", use ", static_cast<int>(use)));
      fs::remove(path);
      prepare();
      struct stat former {};
      struct stat now {};
      ::lstat(path.c_str(), &former);
      ScopedFd fd;
      EXPECT_EQ(osal_openOwnFile(path.c_str(), use, 0600, fd),
                use == OwnFileUse::Read ? read : write);
      if (fd && use != OwnFileUse::Read) {
        EXPECT_EQ(::write(fd.get(), "y", 1), 1);
        EXPECT_EQ(::lstat(path.c_str(), &now), 0);
        EXPECT_TRUE(S_ISREG(now.st_mode) && (now.st_mode & 0022) == 0);
        EXPECT_EQ(now.st_ino == former.st_ino && now.st_uid == former.st_uid, kept);
        EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
      }
      EXPECT_EQ(content(victim), "precious");
    }
  }
}

}  // namespace
