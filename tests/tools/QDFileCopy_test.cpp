#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "EntryHooks.h"
#include "FakePauses.h"
#include "Files.h"
#include "Limits.h"
#include "LogCapture.h"
#include "Refusal.h"
#include "TempFolder.h"
#include "osal/osal_scoped.h"
#include "tools/QDFile.h"

namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;

class QDFileCopyTest : public testing::Test {
 protected:
  ~QDFileCopyTest() override { EXPECT_EQ(openDescriptors(), before); }

  /// Copies, and returns what refused it, or "nothing".
  std::string copy(const std::string& from, const std::string& to, bool keepBackup) const {
    return refusal([&] { QDFile::copy(bytes(from), bytes(to), keepBackup); });
  }
  static std::string quoted(const std::string& path) { return '"' + path + '"'; }

  const TempFolder folder;
  const std::string source = folder / "source";
  const std::string target = folder / "target";
  const std::string backup = folder / "target.bak";
  const std::ptrdiff_t before = openDescriptors();
};

TEST_F(QDFileCopyTest, CopiesContentsOfEverySize) {
  for (const std::size_t size : {0U, 1U, 32767U, 32768U, 32769U, 65536U, 100000U}) {
    SCOPED_TRACE(size);
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>(i * i / 7);
    writeFile(source, data);
    EXPECT_EQ(copy(source, target, false), "nothing");
    EXPECT_EQ(content(target), data);
    EXPECT_FALSE(fs::exists(backup));
    fs::remove(target);
  }
}

TEST_F(QDFileCopyTest, CopiesPermissionBitsAndNoOthers) {
  writeFile(source, "secret");
  for (const mode_t mode : {0600U, 0640U, 0777U, 04755U}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(::chmod(source.c_str(), mode), 0);
    EXPECT_EQ(copy(source, target, false), "nothing");
    struct stat info {};
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, mode & 0777U);
    fs::remove(target);
  }
}

TEST_F(QDFileCopyTest, RefusesATargetThatExists) {
  writeFile(source, "new");
  writeFile(target, "old");
  EXPECT_EQ(copy(source, target, false), refused("Something exists at path : " + quoted(target)));
  EXPECT_EQ(content(target), "old");
}

TEST_F(QDFileCopyTest, KeepsOneBackup) {
  writeFile(source, "new");
  writeFile(target, "old");
  writeFile(backup, "older");
  EXPECT_EQ(copy(source, target, true), "nothing");
  EXPECT_EQ(content(target), "new");
  EXPECT_EQ(content(backup), "old");
  fs::remove(target);
  EXPECT_EQ(copy(source, target, true), "nothing");
  EXPECT_EQ(content(backup), "old");
}

TEST_F(QDFileCopyTest, RefusesWhatIsNoRegularFile) {
  fs::create_directory(folder / "directory");
  for (const std::string& path : {folder / "directory", std::string("/dev/null")}) {
    EXPECT_EQ(copy(path, target, false), refused("Not a regular file : " + quoted(path)));
  }
  EXPECT_EQ(copy(folder / "missing", target, false),
            refused("Cannot get type of path : " + quoted(folder / "missing")));
  EXPECT_FALSE(fs::exists(target));
}

TEST_F(QDFileCopyTest, RefusesABackupNameThatIsTooLong) {
  const FakePauses pauses;
  writeFile(source, "new");
  const auto targetOfLength = [&](std::size_t length) {
    return folder.path().string() + std::string(length - folder.path().string().size() - 6, '/') +
           "target";
  };
  writeFile(target, "old");
  const std::string tooLong = targetOfLength(4093);
  EXPECT_EQ(copy(source, tooLong, true),
            refused("Cannot create .bak (path too long), and something exists at path : " +
                    quoted(tooLong)));
  // Here the system's own limit for paths stops the backup.
  EXPECT_EQ(copy(source, targetOfLength(4092), true),
            refused("Cannot remove file: " + quoted(targetOfLength(4092) + ".bak")));
  EXPECT_EQ(content(target), "old");
  EXPECT_EQ(copy(source, targetOfLength(4091), true), "nothing");
  EXPECT_EQ(content(target), "new");
  EXPECT_EQ(content(backup), "old");
}

TEST_F(QDFileCopyTest, DoesNotTouchTheTargetWhileTheSourceIsLocked) {
  writeFile(source, "new");
  writeFile(target, "old");
  ScopedFd other(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  EXPECT_EQ(copy(source, target, true), refused("Cannot open file " + quoted(source)));
  EXPECT_EQ(content(target), "old");
  EXPECT_FALSE(fs::exists(backup));
  fs::remove(target);
  EXPECT_EQ(copy(source, target, false), refused("Cannot open file " + quoted(source)));
  EXPECT_FALSE(fs::exists(target));
}

TEST_F(QDFileCopyTest, RefusesToCopyAFileOntoItself) {
  writeFile(source, "precious");
  fs::create_hard_link(source, folder / "twin");
  fs::create_symlink(source, folder / "link");
  const std::string roundabout =
      folder.path().string() + "/../" + folder.path().filename().string() + "/source";
  for (const std::string& same : {source, folder / "twin", folder / "link", roundabout}) {
    SCOPED_TRACE(same);
    EXPECT_EQ(copy(source, same, true), refused("Something exists at path : " + quoted(same)));
    EXPECT_EQ(copy(same, source, true), refused("Something exists at path : " + quoted(source)));
    EXPECT_EQ(content(source), "precious");
    EXPECT_EQ(content(same), "precious");
  }
}

TEST_F(QDFileCopyTest, RefusesToRemoveItsSourceAsAnOlderBackup) {
  writeFile(backup, "precious");
  writeFile(target, "old");
  EXPECT_EQ(copy(backup, target, true), refused("Something exists at path : " + quoted(target)));
  EXPECT_EQ(content(backup), "precious");
  EXPECT_EQ(content(target), "old");
}

TEST_F(QDFileCopyTest, PutsTheBackupBackWhenItFails) {
  writeFile(source, std::string(100000, 'n'));
  writeFile(target, "old");
  {
    const FileSizeLimit limit(50000);
    EXPECT_EQ(copy(source, target, true), refused("Cannot write to file"));
  }
  EXPECT_EQ(content(target), "old");
  EXPECT_FALSE(fs::exists(backup));
}

TEST_F(QDFileCopyTest, ATargetThatCannotBeLockedLeavesThingsAsTheyWere) {
  writeFile(source, "new");
  for (const bool replaces : {false, true}) {
    SCOPED_TRACE(replaces);
    if (replaces) writeFile(target, "old");
    EntryHooks hooks;
    int locks = 0;
    hooks.locking = [&] { return ++locks == 2 ? ENOLCK : 0; };
    EXPECT_EQ(copy(source, target, true), refused("Cannot open file " + quoted(target)));
    EXPECT_EQ(content(target), replaces ? "old" : "");
    EXPECT_EQ(fs::exists(target), replaces);
    EXPECT_FALSE(fs::exists(backup));
  }
}

TEST_F(QDFileCopyTest, LeavesNoHalfOfACopy) {
  writeFile(source, std::string(100000, 'n'));
  {
    const FileSizeLimit limit(50000);
    EXPECT_EQ(copy(source, target, false), refused("Cannot write to file"));
  }
  EXPECT_FALSE(fs::exists(target));
}

TEST_F(QDFileCopyTest, ASourceShorterThanItSaidIsAFailure) {
  const std::string page = "/sys/class/net/lo/mtu";  // says 4,096 bytes and has a few
  if (!fs::exists(page)) GTEST_SKIP() << page << " is not there";
  EXPECT_THAT(copy(page, target, false),
              testing::MatchesRegex("EXCP:ERR NET: Read size \\([0-9]+\\) "
                                    "!= asked size \\(4096\\)"));
  EXPECT_FALSE(fs::exists(target));
}

}  // namespace
