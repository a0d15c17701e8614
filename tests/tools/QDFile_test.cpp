// Files: open ones, their copies, and what is done to paths with retries.

#include "tools/QDFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SystemHooks.h"
#include "ToolsTest.h"
#include "tools/QDDir.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class QDFileTest : public ToolsFolder {
 protected:
  static std::string copy(const std::string& from, const std::string& to, bool keepBackup) {
    return refusal([&] { QDFile::copy(bytes(from), bytes(to), keepBackup); });
  }
  /// What stands at target and backup, as "new+old"; nothing at all for what is not there.
  [[nodiscard]] std::string targetAndBackup() const {
    return content(target) + '+' + content(backup);
  }

  const std::string source = folder / "source";
  const std::string target = folder / "target";
  const std::string backup = folder / "target.bak";
};

TEST_F(QDFileTest, ReadsAndWrites) {
  QDFile file;
  char text[10] = {};
  file.open(bytes(target), QD_OPENMODE_RWNOTEXISTING, 0);
  file.writeFix("0123456789", 10);
  EXPECT_EQ(file.getSize(), 10U);
  file.seekSet(8);
  EXPECT_EQ(file.read(text, 9), 2U);
  EXPECT_STREQ(text, "89");
  file.truncate(3);
  file.sync();
  file.reset();
  EXPECT_EQ(refusal([&] { file.readFix(text, 4); }), refused("Read size (3) != asked size (4)"));
  file.reset();
  file.readFix(text, 3);
  EXPECT_STREQ(text, "012");

  writeFile(source, "other");
  const LogCapture log("OSAL:3;EXCP:5;");
  file.open(bytes(source), QD_OPENMODE_RDONLY, 0);
  EXPECT_EQ(file.getSize(), 5U);
  file.close();
  file.close();
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:ERR File handle already in use, close it",
                          "OSAL:ERR Invalid handle (close)", "OSAL:EL2 Cannot close file !"));
}

TEST_F(QDFileTest, CreatesParentsOnlyWhereItMayCreateAndIsAskedTo) {
  constexpr unsigned short kParents = QDFILE_OPEN_PARENTS;
  const struct {
    QDOpenMode mode;
    unsigned short options;
    bool creates;
  } kCases[] = {{QD_OPENMODE_RWCANCREATE, kParents, true},
                {QD_OPENMODE_RWNOTEXISTING, kParents | OSAL_OPEN_LOCK, true},
                {QD_OPENMODE_RWCANCREATE, 0, false},
                {QD_OPENMODE_RWEXISTING, kParents, false},
                {QD_OPENMODE_RDONLY, kParents, false}};
  for (const auto& [mode, options, creates] : kCases) {
    QDFile file;
    EXPECT_EQ(refusal([&, m = mode, o = options] { file.open(bytes(folder / "d1/d2/f"), m, o); }),
              creates ? "nothing" : refused("Cannot open file " + quoted("d1/d2/f")));
    EXPECT_EQ(fs::exists(folder / "d1"), creates) << mode << options;
    if (creates) file.close();
    fs::remove_all(folder / "d1");
  }
  fs::create_directory(target);  // the first of two attempts is silent
  const LogCapture log("OSAL:4;EXCP:5;");
  QDFile file;
  EXPECT_THROW(file.open(bytes(target), QD_OPENMODE_RWNOTEXISTING, kParents), QDException);
  EXPECT_THAT(
      maskAddresses(log.lines()),
      ElementsAre("OSAL:ERR Cannot open (17) file " + quoted("target"),
                  "EXCP:ERR NET: Cannot open file " + quoted("target"), "EXCP:ERR ECT - @"));
}

TEST_F(QDFileTest, TellsWhatCouldNotBeDone) {
  writeFile(source, "text");
  fs::create_symlink("loop", folder / "loop");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  const std::string loop = folder / "loop/x";
  const std::string missing = folder / "missing";
  QDFile closed;
  QDFile readOnly;
  readOnly.open(bytes(source), QD_OPENMODE_RDONLY, 0);
  QDFile directory;
  directory.open(bytes(folder.path()), QD_OPENMODE_RDONLY, 0);
  QDFile fifo;
  fifo.open(bytes(folder / "fifo"), QD_OPENMODE_RWEXISTING, 0);
  char c = 0;
  const struct {
    std::function<void()> operation;
    std::string text;
  } kCases[] = {
      {[&] { closed.read(&c, 1); }, "File not opened (read)"},
      {[&] { closed.readFix(&c, 1); }, "File not opened (readFix)"},
      {[&] { closed.writeFix(&c, 1); }, "File not opened (writeFix)"},
      {[&] { closed.truncate(0); }, "File not opened (truncate)"},
      {[&] { closed.reset(); }, "File not opened (reset)"},
      {[&] { closed.seekSet(0); }, "File not opened (seekSet)"},
      {[&] { closed.sync(); }, "File not opened (sync)"},
      {[&] { closed.getSize(); }, "File not opened (getSize)"},
      {[&] { directory.read(&c, 1); }, "Cannot read file"},
      {[&] { readOnly.writeFix("x", 1); }, "Cannot write to file"},
      {[&] { readOnly.truncate(1); }, "Cannot truncate file"},
      {[&] { fifo.reset(); }, "Cannot go to beginning of file"},
      {[&] { fifo.seekSet(1); }, "Cannot make seekSet"},
      {[&] { fifo.sync(); }, "Cannot sync"},
      {[&] { QDFile::createEmpty(bytes(loop)); },
       "Cannot check if file exists : " + quoted("loop/x")},
      {[] { QDFile::exists(nullptr); }, "Cannot check if file exists : \"(null)\""},
      {[] { QDFile::getType(bytes("")); }, "Cannot get type of path : \"(root)\""},
      {[&] { QDFile::setAllRights(bytes(missing), true); },
       "Cannot set all rights at path : " + quoted("missing")},
      {[&] { QDFile::setTimes(bytes(missing), 1, 1); }, "Cannot set times"},
      {[] { QDFile().open(nullptr, QD_OPENMODE_RWCANCREATE, QDFILE_OPEN_PARENTS); },
       "Cannot open file \"(null)\""},
  };
  for (const auto& [operation, text] : kCases) EXPECT_EQ(refusal(operation), refused(text));
}

TEST_F(QDFileTest, CreatesAndChangesWhatIsAtAPath) {
  const std::string path = folder / "a/b/file";
  EXPECT_TRUE(QDFile::createEmpty(bytes(path)));
  writeFile(path, "kept");
  EXPECT_FALSE(QDFile::createEmpty(bytes(path)));
  EXPECT_EQ(content(path), "kept");
  EXPECT_EQ(QDFile::getType(bytes(folder / "a")), QD_FILETYPE_DIR);
  QDFile::setAllRights(bytes(path), false);
  QDFile::setTimes(bytes(path), 1'500'000'000'123'456'789, 1'600'000'000'000'001'999);
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0777U);
  EXPECT_EQ(info.st_mtime, 1'600'000'000);
}

TEST_F(QDFileTest, CleansPathsUp) {
  std::string longest = "/";
  while (longest.size() < 4096) longest += longest.back() == '/' ? 'a' : '/';
  longest.back() = 'a';
  const struct {
    std::string in;
    std::string out;  // without a slash in front: the message
  } kCases[] = {
      {"/", "/"},
      {"///", "/"},
      {"//a///b/", "/a/b"},
      {"/./a/../b//", "/./a/../b"},
      {"//" + longest + "////", longest},
      {longest + "a", "Path too long: \"" + longest + "a\""},
      {"a/b", "Not an absolute path: \"a/b\""},
  };
  for (const auto& [in, out] : kCases) {
    std::vector<unsigned char> buffer(4098, '#');
    std::string inPlace = in + std::string(10, '\0');
    auto* const place = reinterpret_cast<unsigned char*>(inPlace.data());
    const std::string said = refusal([&, i = in] { QDFile::cleanupPath(bytes(i), buffer.data()); });
    const bool cleaned = said == "nothing";
    EXPECT_EQ(cleaned ? reinterpret_cast<char*>(buffer.data()) : said,
              cleaned ? out : refused(out));
    EXPECT_EQ(buffer[4097], '#');
    if (cleaned) {
      EXPECT_EQ(QDFile::cleanupPath(place, place), place);
    }
    if (cleaned) {
      EXPECT_EQ(inPlace.c_str(), out);
    }
  }
  unsigned char untouched = '#';
  EXPECT_EQ(QDFile::cleanupPath(nullptr, &untouched), nullptr);
  EXPECT_EQ(*QDFile::cleanupPath(bytes(""), &untouched), '\0');
  EXPECT_EQ(untouched, '#');
}

TEST_F(QDFileTest, RemovesAndRenamesWithFourTriesAndAPauseAfterEach) {
  fs::create_directories(folder / "full/entry");
  const std::string full = folder / "full";
  const std::string paths = quoted("missing") + " -> path " + quoted("full");
  const struct {
    std::function<void()> operation;
    std::string code;   // what the OS layer says
    std::string retry;  // what each attempt says
    std::string last;
    std::string reason;
  } kCases[] = {
      {[&] { QDFile::remove(bytes(full)); },
       "osal_rmfile : cannot remove file (21) at path " + quoted("full"),
       "Cannot remove file: " + quoted("full"), "Cannot remove file: " + quoted("full"),
       "QDFile::remove failure -> pause before retry"},
      {[&] { QDDir::remove(bytes(full)); },
       "osal_rmdir : cannot remove directory (39) at path " + quoted("full"),
       "Cannot remove directory: " + quoted("full"), "Cannot remove directory : " + quoted("full"),
       "QDDir::remove failure -> pause before retry"},
      {[&] { QDFile::rename(bytes(folder / "missing"), bytes(full)); },
       "osal_rename : cannot rename file (2) at path " + quoted("missing") + " to " +
           quoted("full"),
       "Cannot rename path " + paths, "Cannot rename path " + paths,
       "QDFile::rename failure -> pause before retry"},
  };
  for (const auto& [operation, code, retry, last, reason] : kCases) {
    std::vector<std::string> expected;
    for (int attempt = 0; attempt < 4; ++attempt) {
      expected.insert(expected.end(), {"OSAL:ERR " + code, "OSAL:ERR " + retry,
                                       "IDLE:INF sleep 1 s : \"" + reason + '"',
                                       "IDLE:INF sleep 1000 ms : \"" + reason + '"'});
    }
    expected.insert(expected.end(), {"EXCP:ERR NET: " + last, "EXCP:ERR ECT - @"});
    const LogCapture log("IDLE:9;");
    const SystemHooks hooks;
    EXPECT_THROW(operation(), QDException);
    EXPECT_EQ(maskAddresses(log.lines()), expected);
    EXPECT_THAT(hooks.pauses, ElementsAre(1000, 1000, 1000, 1000));
  }
  SystemHooks hooks;
  writeFile(target, "");
  hooks.removing = [left = std::make_shared<int>(3)](const std::string&) {
    return (*left)-- > 0 ? EBUSY : 0;
  };
  EXPECT_TRUE(QDFile::remove(bytes(target)));
  EXPECT_EQ(hooks.pauses.size(), 3U);
  EXPECT_FALSE(QDFile::remove(bytes(target)));
  QDDir::remove(bytes(target));
  EXPECT_EQ(hooks.pauses.size(), 3U) << "what is missing is removed";
}

TEST_F(QDFileTest, CopiesContentAndPermissionsAndKeepsOneBackup) {
  for (const std::size_t size : {0U, 1U, 32767U, 32768U, 32769U, 65536U, 100000U}) {
    writeFile(source, pattern(size));
    EXPECT_EQ(copy(source, target, true), "nothing");
    EXPECT_EQ(content(target), pattern(size)) << size;
  }
  for (const mode_t mode : {0600U, 0777U, 04755U}) {
    fs::remove(target);
    ASSERT_EQ(::chmod(source.c_str(), mode), 0);
    EXPECT_EQ(copy(source, target, false), "nothing");
    struct stat info {};
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, mode & 0777U);
  }
  writeFile(source, "new");
  writeFile(target, "old");
  writeFile(backup, "older");
  EXPECT_EQ(copy(source, target, false), refused("Something exists at path : " + quoted("target")));
  EXPECT_EQ(targetAndBackup(), "old+older");
  EXPECT_EQ(copy(source, target, true), "nothing");
  EXPECT_EQ(targetAndBackup(), "new+old");
}

TEST_F(QDFileTest, CopiesNeitherOntoItselfNorOverItsOwnBackupNorWhatIsNoFile) {
  fs::create_directory(folder / "directory");
  writeFile(backup, "precious");
  writeFile(target, "old");
  fs::create_hard_link(backup, folder / "twin");
  fs::create_symlink(backup, folder / "link");
  const std::string roundabout =
      folder.path().string() + "/../" + folder.path().filename().string() + "/target.bak";
  const struct {
    std::string from;
    std::string to;
    std::string text;
  } kCases[] = {
      {backup, backup, "Something exists at path : \"" + backup + '"'},
      {backup, folder / "twin", "Something exists at path : " + quoted("twin")},
      {folder / "link", backup, "Something exists at path : \"" + backup + '"'},
      {backup, roundabout, "Something exists at path : \"" + roundabout + '"'},
      {backup, target, "Something exists at path : " + quoted("target")},
      {folder / "directory", target, "Not a regular file : " + quoted("directory")},
      {"/dev/null", target, "Not a regular file : \"/dev/null\""},
      {folder / "missing", target, "Cannot get type of path : " + quoted("missing")},
  };
  for (const auto& [from, to, text] : kCases) {
    EXPECT_EQ(copy(from, to, true), refused(text));
    EXPECT_EQ(targetAndBackup(), "old+precious") << text;
  }
}

TEST_F(QDFileTest, ABackupNameMayBeTooLong) {
  writeFile(source, "new");
  writeFile(target, "old");
  const auto targetOfLength = [&](std::size_t length) {
    const std::string start = folder.path();
    return start + std::string(length - start.size() - 6, '/') + "target";
  };
  const SystemHooks hooks;
  EXPECT_EQ(copy(source, targetOfLength(4093), true),
            refused("Cannot create .bak (path too long), and something exists at path : \"" +
                    targetOfLength(4093) + '"'));
  // Here the system's own limit for paths stops the backup.
  EXPECT_EQ(copy(source, targetOfLength(4092), true),
            refused("Cannot remove file: \"" + targetOfLength(4092) + ".bak\""));
  EXPECT_EQ(targetAndBackup(), "old+");
  EXPECT_EQ(copy(source, targetOfLength(4091), true), "nothing");
  EXPECT_EQ(targetAndBackup(), "new+old");
}

TEST_F(QDFileTest, ACopyThatFailsLeavesThingsAsTheyWere) {
  const std::string shorter = "/sys/class/net/lo/mtu";  // says 4,096 bytes and has a few
  const std::string cannotOpen = "Cannot open file ";
  const struct {
    std::string from;
    int refusedLock;  // which of the two, if any
    rlim_t most;      // bytes of a file
    std::string text;
  } kCases[] = {
      {source, 1, RLIM_INFINITY, cannotOpen + quoted("source")},
      {source, 2, RLIM_INFINITY, cannotOpen + quoted("target")},
      {source, 0, 50000, "Cannot write to file"},
      {shorter, 0, RLIM_INFINITY, "Read size \\([0-9]+\\) != asked size \\(4096\\)"},
  };
  writeFile(source, std::string(100000, 'n'));
  for (const auto& [from, refusedLock, most, text] : kCases) {
    if (!fs::exists(from)) continue;
    for (const bool replaces : {false, true}) {
      if (replaces) writeFile(target, "old");
      SystemHooks hooks;
      hooks.locking = failAt(refusedLock, ENOLCK);
      const Limit limit(RLIMIT_FSIZE, most);
      EXPECT_THAT(copy(from, target, true), testing::MatchesRegex(refused(text)));
      EXPECT_EQ(fs::exists(target), replaces) << text;
      EXPECT_EQ(targetAndBackup(), replaces ? "old+" : "+") << text;
      fs::remove(target);
    }
  }
}

}  // namespace
