// Directories: reading, making and walking through them.

#include "tools/QDDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "SystemHooks.h"
#include "ToolsTest.h"

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

/// Remembers what it gets, as path and type, and ends the walk after so many items.
class Items : public QSDir_cbArgBrowse {
 public:
  explicit Items(std::size_t most = 1'000'000) : most_(most) {}
  bool processItem(const unsigned char* path, QDFileType type) override {
    all.push_back(reinterpret_cast<const char*>(path) + (":" + std::to_string(type)));
    return all.size() < most_;
  }
  std::vector<std::string> all;

 private:
  std::size_t most_;
};

struct How {
  bool recursive = true;
  bool includeRoot = false;
  bool childrenFirst = false;
  bool relativePaths = true;
  bool warnOnly = false;
};

bool browse(const std::string& path, Items& items, How how = {}) {
  return QDDir::browse(bytes(path), how.recursive, how.includeRoot, how.childrenFirst, items,
                       how.relativePaths, how.warnOnly);
}

class QDDirTest : public ToolsFolder {};

TEST_F(QDDirTest, IsCreatedWithItsParents) {
  const auto create = [&](const std::string& list, bool parents) {
    return refusal([&] { QDDir::creates(bytes(list), parents, nullptr); });
  };
  writeFile(folder / "file", "");
  const std::string cannot = "Cannot create directory : ";
  EXPECT_EQ(create(folder / "a/b", false), refused(cannot + quoted("a/b")));
  EXPECT_EQ(create(folder / "file/x/y", true), refused(cannot + quoted("file/x")));
  EXPECT_EQ(create((folder / "a/b") + ";;" + (folder / "a") + ";" + (folder / "y"), true),
            "nothing");
  EXPECT_TRUE(fs::is_directory(folder / "a/b") && fs::is_directory(folder / "y"));
  QDDir::createParentsOfPath(bytes(folder / "s//t//f"), nullptr);
  EXPECT_TRUE(fs::is_directory(folder / "s/t"));
}

TEST_F(QDDirTest, IsWalkedInTheOrderAskedForUntilToldToStop) {
  fs::create_directories(folder / "a/b");
  const std::string all = root() + ":2";
  const struct {
    How how;
    std::vector<std::string> items;
  } kCases[] = {
      {{.recursive = false, .childrenFirst = true}, {"a:2"}},
      {{.childrenFirst = true}, {"a/b:2", "a:2"}},
      {{.includeRoot = true}, {all, "a:2", "a/b:2"}},
      {{.relativePaths = false}, {folder / "a:2", folder / "a/b:2"}},
  };
  for (const auto& [how, items] : kCases) {
    SCOPED_TRACE(testing::PrintToString(items));
    Items found;
    EXPECT_TRUE(browse(root(), found, how));
    EXPECT_EQ(found.all, items);
    Items first(1);
    EXPECT_FALSE(browse(root(), first, how));
    EXPECT_EQ(first.all.size(), 1U);
  }
}

TEST_F(QDDirTest, IsWalkedThroughLinksButNotInCircles) {
  fs::create_directories(folder / "tree/sub");
  writeFile(folder / "file", "");
  fs::create_symlink(".", folder / "tree/self");
  fs::create_symlink("..", folder / "tree/sub/up");
  fs::create_symlink(folder / "file", folder / "tree/link");
  Items items;
  EXPECT_EQ(refusal([&] { browse(folder / "file", items, {.warnOnly = true}); }),
            tolerated("Exists and is not a directory : " + quoted("file")));
  EXPECT_TRUE(browse(folder / "tree", items));
  EXPECT_THAT(items.all, UnorderedElementsAre("sub:2", "sub/up:2", "self:2", "link:1"));
}

TEST_F(QDDirTest, IsWalkedOnBehindWhatCannotBeRead) {
  fs::create_directories(folder / "a");
  writeFile(folder / "a/x", "");
  SystemHooks hooks;
  hooks.reading = failAt(4, EIO);  // after ".", ".." and "a" or its end
  const LogCapture log("EXCP:0;SCAN:5;OSAL:0;");
  Items items;
  EXPECT_TRUE(browse(root(), items, {.includeRoot = true, .childrenFirst = true}));
  EXPECT_EQ(items.all.back(), root() + ":2");
  EXPECT_THAT(items.all, Contains("a/x:1"));
  EXPECT_THAT(log.lines(), ElementsAre("SCAN:ERR Error reading directory : \"" + root() + '"'));
}

TEST_F(QDDirTest, NeedsNeitherStackNorDescriptorsForTheDepthOfAWalk) {
  std::string path = root();
  for (int level = 0; level < 400; ++level) fs::create_directory(path += "/deeper");
  const Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(before) + 8);
  Items items;
  runOnSmallStack([&] { EXPECT_TRUE(browse(root(), items, {.childrenFirst = true})); });
  EXPECT_EQ(items.all.size(), 400U);
}

}  // namespace
