// Files: open ones, their copies, and what is done to paths with retries.

#include "tools/QDFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FolderTest.h"
#include "Limits.h"
#include "SystemHooks.h"

namespace {

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

TEST_F(QDFileTest, RemovesAndRenamesWithFourTriesAndAPauseAfterEach) {
  const std::string full = folder / "full";
  fs::create_directories(full + "/entry");
  const std::vector<long> pauses(4, 1000);
  SystemHooks hooks;
  EXPECT_EQ(refusal([&] { QDFile::remove(bytes(full)); }),
            refused("Cannot remove file: " + quoted("full")));
  EXPECT_EQ(std::exchange(hooks.pauses, {}), pauses);
  EXPECT_EQ(refusal([&] { QDFile::rename(bytes(source), bytes(full)); }),
            refused("Cannot rename path " + quoted("source") + " -> path " + quoted("full")));
  EXPECT_EQ(std::exchange(hooks.pauses, {}), pauses);
  writeFile(target, "");
  hooks.before = [left = std::make_shared<int>(3)](const std::string& call, const std::string&) {
    return call == "unlinkat" && (*left)-- > 0 ? EBUSY : 0;
  };
  EXPECT_TRUE(QDFile::remove(bytes(target)));
  EXPECT_FALSE(QDFile::remove(bytes(target)));
  EXPECT_EQ(hooks.pauses.size(), 3U) << "what is missing is removed";
}

TEST_F(QDFileTest, CleansPathsUpInPlace) {
  const std::string longest = "/" + std::string(4095, 'a');
  for (const auto& [in, out] : std::initializer_list<std::pair<std::string, std::string>>{
           {"///", "/"}, {"//a///./../b//", "/a/./../b"}, {"//" + longest + "//", longest}}) {
    std::string text = in;
    auto* const place = reinterpret_cast<unsigned char*>(text.data());
    EXPECT_EQ(QDFile::cleanupPath(place, place), place);
    EXPECT_EQ(text.c_str(), out);
  }
}

TEST_F(QDFileTest, CopiesContentAndPermissionsAndKeepsOneBackupButNotOntoItself) {
  writeFile(source, pattern(100000));
  ASSERT_EQ(::chmod(source.c_str(), 04755), 0);
  writeFile(target, "old");
  writeFile(backup, "older");
  EXPECT_EQ(copy(source, target, false), refused("Something exists at path : " + quoted("target")));
  EXPECT_EQ(targetAndBackup(), "old+older");
  EXPECT_EQ(copy(source, target, true), "nothing");
  EXPECT_EQ(targetAndBackup(), pattern(100000) + "+old");
  EXPECT_EQ(copy(backup, target, true), refused("Something exists at path : " + quoted("target")));
  EXPECT_EQ(copy(target, target, true), refused("Something exists at path : " + quoted("target")));
  EXPECT_EQ(targetAndBackup(), pattern(100000) + "+old");
  fs::remove(target);
  EXPECT_EQ(copy(source, target, false), "nothing");
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0755));
}

TEST_F(QDFileTest, ACopyThatFailsLeavesThingsAsTheyWere) {
  writeFile(source, std::string(100000, 'n'));
  for (const bool replaces : {false, true}) {
    if (replaces) writeFile(target, "old");
    const Limit limit(RLIMIT_FSIZE, 50000);
    EXPECT_EQ(copy(source, target, true), refused("Cannot write to file"));
    EXPECT_EQ(fs::exists(target), replaces);
    EXPECT_EQ(targetAndBackup(), replaces ? "old+" : "+");
  }
}

}  // namespace
