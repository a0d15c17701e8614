// Files: open ones, their copies, and what is done to paths with retries.

#include "tools/QDFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "SystemHooks.h"
#include "ToolsTest.h"
#include "tools/QDDir.h"

namespace {

using ::testing::ElementsAre;

class QDFileTest : public FolderTest {
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

TEST_F(QDFileTest, CreatesParentsOnlyWhereItMayCreateAndIsAskedTo) {
  const std::string deep = folder / "d1/d2/f";
  const auto open = [&](QDOpenMode mode, unsigned short options) {
    return refusal([&] { QDFile().open(bytes(deep), mode, options); });
  };
  const std::string cannot = refused("Cannot open file " + quoted("d1/d2/f"));
  EXPECT_EQ(open(QD_OPENMODE_RWCANCREATE, 0), cannot);
  EXPECT_EQ(open(QD_OPENMODE_RWEXISTING, QDFILE_OPEN_PARENTS), cannot);
  EXPECT_FALSE(fs::exists(folder / "d1"));
  EXPECT_EQ(open(QD_OPENMODE_RWCANCREATE, QDFILE_OPEN_PARENTS), "nothing");
  writeFile(deep, "kept");
  EXPECT_FALSE(QDFile::createEmpty(bytes(deep)));
  EXPECT_EQ(content(deep), "kept");
}

TEST_F(QDFileTest, CleansPathsUpInPlace) {
  std::string longest = "/";
  while (longest.size() < 4096) longest += longest.back() == '/' ? 'a' : '/';
  longest.back() = 'a';
  for (const auto& [in, out] : std::initializer_list<std::pair<std::string, std::string>>{
           {"///", "/"}, {"//a///./../b//", "/a/./../b"}, {"//" + longest + "//", longest}}) {
    std::string copied = in;
    auto* const place = reinterpret_cast<unsigned char*>(copied.data());
    EXPECT_EQ(QDFile::cleanupPath(place, place), place);
    EXPECT_EQ(copied.c_str(), out);
  }
  unsigned char out[4097];
  EXPECT_EQ(refusal([&] { QDFile::cleanupPath(bytes(longest + "a"), out); }),
            refused("Path too long: \"" + longest + "a\""));
  EXPECT_EQ(refusal([&] { QDFile::cleanupPath(bytes("a/b"), out); }),
            refused("Not an absolute path: \"a/b\""));
}

TEST_F(QDFileTest, RemovesAndRenamesWithFourTriesAndAPauseAfterEach) {
  fs::create_directories(folder / "full/entry");
  const std::string full = folder / "full";
  for (const auto& [operation, message] :
       std::initializer_list<std::pair<std::function<void()>, std::string>>{
           {[&] { QDFile::remove(bytes(full)); }, "Cannot remove file: " + quoted("full")},
           {[&] { QDDir::remove(bytes(full)); }, "Cannot remove directory : " + quoted("full")},
           {[&] { QDFile::rename(bytes(source), bytes(full)); },
            "Cannot rename path " + quoted("source") + " -> path " + quoted("full")}}) {
    const SystemHooks hooks;
    EXPECT_EQ(refusal(operation), refused(message));
    EXPECT_THAT(hooks.pauses, ElementsAre(1000, 1000, 1000, 1000));
  }
  SystemHooks hooks;
  writeFile(target, "");
  hooks.removing = [left = std::make_shared<int>(3)](const std::string&) {
    return (*left)-- > 0 ? EBUSY : 0;
  };
  EXPECT_TRUE(QDFile::remove(bytes(target)));
  EXPECT_FALSE(QDFile::remove(bytes(target)));
  EXPECT_EQ(hooks.pauses.size(), 3U) << "what is missing is removed";
}

TEST_F(QDFileTest, CopiesContentAndPermissionsAndKeepsOneBackup) {
  for (const std::size_t size : {0U, 32768U, 32769U, 100000U}) {
    writeFile(source, pattern(size));
    EXPECT_EQ(copy(source, target, true), "nothing");
    EXPECT_EQ(content(target), pattern(size)) << size;
  }
  fs::remove(target);
  ASSERT_EQ(::chmod(source.c_str(), 04755), 0);
  EXPECT_EQ(copy(source, target, false), "nothing");
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0755));
  writeFile(source, "new");
  writeFile(target, "old");
  writeFile(backup, "older");
  EXPECT_EQ(copy(source, target, false), refused("Something exists at path : " + quoted("target")));
  EXPECT_EQ(targetAndBackup(), "old+older");
  EXPECT_EQ(copy(source, target, true), "nothing");
  EXPECT_EQ(targetAndBackup(), "new+old");
}

TEST_F(QDFileTest, CopiesNeitherOntoItselfNorOverItsOwnBackupNorWhatIsNoFile) {
  writeFile(backup, "precious");
  writeFile(target, "old");
  fs::create_hard_link(backup, folder / "twin");
  const std::string something = "Something exists at path : ";
  const std::string tooLong = root() + std::string(4093 - 6 - root().size(), '/') + "target";
  for (const auto& [from, to, text] :
       std::initializer_list<std::tuple<std::string, std::string, std::string>>{
           {backup, backup, something + quoted("target.bak")},
           {backup, folder / "twin", something + quoted("twin")},
           {backup, target, something + quoted("target")},
           {backup, tooLong,
            "Cannot create .bak (path too long), and something exists at path : \"" + tooLong +
                '"'},
           {"/dev/null", target, "Not a regular file : \"/dev/null\""},
           {folder / "missing", target, "Cannot get type of path : " + quoted("missing")}}) {
    EXPECT_EQ(copy(from, to, true), refused(text));
    EXPECT_EQ(targetAndBackup(), "old+precious") << text;
  }
}

TEST_F(QDFileTest, ACopyThatFailsLeavesThingsAsTheyWere) {
  const std::string shorter = "/sys/class/net/lo/mtu";  // says 4,096 bytes and has a few
  const struct {
    std::string from;
    int refusedLock;  // which of the two, if any
    rlim_t most;      // bytes of a file
    std::string text;
  } kCases[] = {
      {source, 1, RLIM_INFINITY, "Cannot open file " + quoted("source")},
      {source, 2, RLIM_INFINITY, "Cannot open file " + quoted("target")},
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
