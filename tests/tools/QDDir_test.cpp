// Directories: making, walking through and removing them, also while somebody changes them.

#include "tools/QDDir.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "SystemHooks.h"
#include "ToolsTest.h"
#include "ground/osal_scoped.h"

namespace {

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

class QDDirTest : public FolderTest {
 protected:
  /// Removes what is there, and returns what refused it, or "nothing".
  static std::string remove(const std::string& path) {
    return refusal([&] { EXPECT_TRUE(QDDir::removeRec(bytes(path))); });
  }

  const std::string tree = folder / "tree";
};

TEST_F(QDDirTest, IsCreatedWithItsParents) {
  const auto create = [&](const std::string& list, bool parents) {
    return refusal([&] { QDDir::creates(bytes(list), parents, nullptr); });
  };
  writeFile(path, "");
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
  const std::pair<How, std::vector<std::string>> kCases[] = {
      {{.recursive = false, .childrenFirst = true}, {"a:2"}},
      {{.childrenFirst = true}, {"a/b:2", "a:2"}},
      {{.includeRoot = true}, {all, "a:2", "a/b:2"}},
      {{.relativePaths = false}, {folder / "a:2", folder / "a/b:2"}}};
  for (const auto& [how, items] : kCases) {
    Items found;
    EXPECT_TRUE(browse(root(), found, how));
    EXPECT_EQ(found.all, items);
    Items first(1);
    EXPECT_FALSE(browse(root(), first, how));
    EXPECT_EQ(first.all.size(), 1U);
  }
}

TEST_F(QDDirTest, IsWalkedThroughLinksButNotInCircles) {
  fs::create_directories(tree + "/sub");
  writeFile(path, "");
  fs::create_symlink(".", tree + "/self");
  fs::create_symlink("..", tree + "/sub/up");
  fs::create_symlink(path, tree + "/link");
  Items items;
  EXPECT_EQ(refusal([&] { browse(path, items, {.warnOnly = true}); }),
            tolerated("Exists and is not a directory : " + quoted("file")));
  EXPECT_TRUE(browse(tree, items));
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

/// Makes `depth` directories of this name, one in the other, and a file in the last.
void makeDeep(const std::string& path, const std::string& name, int depth, const char* file) {
  ScopedFd deepest(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(::mkdirat(deepest.get(), name.c_str(), 0700), 0);
    deepest.reset(::openat(deepest.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  ASSERT_TRUE(ScopedFd(::openat(deepest.get(), file, O_CREAT | O_RDWR | O_CLOEXEC, 0600)));
}

TEST_F(QDDirTest, NeedsNeitherStackNorDescriptorsForDepth) {
  makeDeep(root(), "d", 400, "file");
  fs::create_directory(tree);
  makeDeep(tree, "a directory's name", 1000, "file");
  makeDeep(tree, "second branch", 100, "file");
  Items items;
  const Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(before) + 64);
  runOnSmallStack([&] { EXPECT_TRUE(browse(folder / "d", items, {.childrenFirst = true})); });
  EXPECT_EQ(items.all.size(), 400U);
  runOnSmallStack([&] { EXPECT_EQ(remove(tree), "nothing"); });
  EXPECT_FALSE(fs::exists(tree));
}

TEST_F(QDDirTest, RemovesAllKindsOfThingsAndFollowsNoLink) {
  fs::create_directories(folder / "outside/sub");
  writeFile(folder / "outside/file", "canary");
  fs::create_directories(tree + "/a/b/c");
  writeFile(tree + "/a/b/file", "x");
  ASSERT_EQ(::mkfifo((tree + "/a/fifo").c_str(), 0600), 0);
  fs::create_symlink(folder / "outside", tree + "/a/directory link");
  fs::create_symlink("../outside/file", tree + "/file link");
  fs::create_symlink("..", tree + "/a/b/up");
  fs::create_hard_link(folder / "outside/file", tree + "/hard link");
  const LogCapture log("OSAL:3;EXCP:5;SCAN:5;");
  EXPECT_TRUE(QDDir::removeRec(bytes(tree + "//")));
  EXPECT_FALSE(QDDir::removeRec(bytes(tree)));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(content(folder / "outside/file"), "canary");
  EXPECT_TRUE(fs::is_directory(folder / "outside/sub"));
  fs::create_symlink("outside", folder / "link");
  EXPECT_EQ(remove(folder / "link/"), refused("Exists and is not a directory : " + quoted("link")));
}

TEST_F(QDDirTest, RemovalEndsAtTheFirstThingThatCannotBeRemoved) {
  fs::create_directories(tree + "/sub");
  writeFile(tree + "/sub/stubborn", "x");
  SystemHooks hooks;
  hooks.removing = [](const std::string& name) { return name == "stubborn" ? EPERM : 0; };
  EXPECT_EQ(remove(tree), refused("Cannot remove file: " + quoted("tree/sub/stubborn")));
  EXPECT_EQ(hooks.pauses.size(), 4U);
  hooks.removing = [](const std::string& name) { return name == "sub" ? EBUSY : 0; };
  EXPECT_EQ(remove(tree), refused("Cannot remove directory : " + quoted("tree/sub")));
  hooks.removing = [&](const std::string&) {
    hooks.removing = nullptr;
    fs::remove_all(tree);
    return 0;
  };
  EXPECT_EQ(remove(tree), "nothing") << "what vanishes meanwhile is gone";
}

TEST_F(QDDirTest, AFileThatBecomesAFolderMeanwhileGoesToo) {
  fs::create_directory(tree);
  writeFile(tree + "/a", "");
  writeFile(tree + "/b", "");
  SystemHooks hooks;
  hooks.removing = [&](const std::string& name) {
    const std::string other = tree + (name == "a" ? "/b" : "/a");
    hooks.removing = nullptr;
    fs::remove(other);
    fs::create_directories(other + "/inside");
    return 0;
  };
  EXPECT_EQ(remove(tree), "nothing");
  EXPECT_FALSE(fs::exists(tree));
}

TEST_F(QDDirTest, ADirectoryMovedElsewhereDoesNotLeadTheRemovalThere) {
  // Ten levels down, which is far above what is still open when the deepest file is removed.
  const std::string parent = tree + "/d/d/d/d/d/d/d/d/d";
  fs::create_directory(tree);
  fs::create_directory(folder / "outside");
  makeDeep(tree, "d", 60, "deepest");
  // Where ".." leads after the move there are the names that are still to be removed.
  for (const char name : std::string("abcefghijklmnopqrst")) {
    writeFile(parent + "/" + name, "x");
    writeFile(folder / ("outside/" + std::string(1, name)), "canary");
  }
  SystemHooks hooks;
  hooks.removing = [&](const std::string& name) {
    if (name == "deepest") fs::rename(parent + "/d", folder / "outside/d");
    return 0;
  };
  EXPECT_EQ(remove(tree), refused("Cannot open directory \"" + parent + "/\""));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "outside"), {}), 20);
}

TEST_F(QDDirTest, AFolderSwappedWithALinkAtAnyMomentLeadsTheRemovalNowhereElse) {
  const std::string outside = folder / "outside";
  const std::string link = folder / "link";
  fs::create_directories(outside + "/sub");
  writeFile(outside + "/file", "canary");
  writeFile(outside + "/sub/file", "canary");
  int calls = 0;
  for (int moment = 1; calls >= moment - 1; ++moment) {  // at last behind the end
    fs::remove_all(tree);
    fs::remove_all(link);
    fs::create_directory_symlink(outside, link);
    fs::create_directories(tree + "/sub/sub");
    for (const char* const name : {"/sub/file", "/sub/sub/file", "/file"}) {
      writeFile(tree + name, "x");
    }
    calls = 0;
    const auto swap = [&] {
      if (++calls == moment) {
        ::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, (tree + "/sub").c_str(), RENAME_EXCHANGE);
      }
      return 0;
    };
    SystemHooks hooks;
    hooks.opening = hooks.removing = [&](const std::string&) { return swap(); };
    hooks.reading = swap;
    EXPECT_THAT(remove(tree), testing::AnyOf("nothing", refused("Cannot remove directory : " +
                                                                quoted("tree/sub"))))
        << moment;
    EXPECT_EQ(content(outside + "/file") + content(outside + "/sub/file"), "canarycanary")
        << moment;
  }
  EXPECT_GT(calls, 10);
}

}  // namespace
