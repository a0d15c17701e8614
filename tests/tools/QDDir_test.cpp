// Directories: making and removing them, also while somebody changes them.

#include "tools/QDDir.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>

#include "FolderTest.h"
#include "Limits.h"
#include "SystemHooks.h"
#include "ground/osal_scoped.h"

namespace {

class QDDirTest : public FolderTest {
 protected:
  /// Removes what is there, and returns what refused it, or "nothing".
  static std::string remove(const std::string& path) {
    return refusal([&] { EXPECT_TRUE(QDDir::removeRec(bytes(path))); });
  }

  const std::string tree = folder / "tree";
};

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
  fs::create_directory(tree);
  makeDeep(tree, "a directory's name", 10'000, "file");
  makeDeep(tree, "second branch", 100, "file");
  const Limit descriptors(RLIMIT_NOFILE, static_cast<rlim_t>(before) + 64);
  const Limit stack(RLIMIT_STACK, 1 << 20);
  EXPECT_EQ(remove(tree), "nothing");
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

/// What a walk hands over, at most so many.
struct Items : QSDir_cbArgBrowse {
  bool processItem(const unsigned char* path, QDFileType type) override {
    all.push_back(reinterpret_cast<const char*>(path) + (':' + std::to_string(type)));
    return all.size() < most;
  }
  std::size_t most = 99;
  std::vector<std::string> all;
};

TEST_F(QDDirTest, IsWalkedInTheOrderAskedForUntilToldToStop) {
  QDDir::creates(bytes((folder / "a/b") + ";;" + (folder / "a,y")), true, nullptr);
  fs::create_symlink("..", folder / "a/b/up");
  fs::create_symlink(".", folder / "a,y/self");
  const std::string all = root() + ":2";
  using testing::UnorderedElementsAre;
  for (const bool childrenFirst : {false, true}) {
    Items items;
    EXPECT_TRUE(QDDir::browse(bytes(root()), true, true, childrenFirst, items, true, false));
    EXPECT_EQ(childrenFirst ? items.all.back() : items.all.front(), all);
    EXPECT_THAT(items.all,
                UnorderedElementsAre(all, "a:2", "a/b:2", "a/b/up:2", "a,y:2", "a,y/self:2"));
    Items first;
    first.most = 1;
    EXPECT_FALSE(QDDir::browse(bytes(root()), true, false, childrenFirst, first, true, false));
    EXPECT_EQ(first.all.size(), 1U);
  }
}

TEST_F(QDDirTest, RemovalEndsAtTheFirstThingThatCannotBeRemoved) {
  fs::create_directories(tree + "/sub/deeper");
  writeFile(tree + "/sub/stubborn", "x");
  std::string failing = "stubborn";
  SystemHooks hooks;
  hooks.before = [&failing](const std::string& call, const std::string& name) {
    return call == "unlinkat" && name == failing ? EPERM : 0;
  };
  EXPECT_EQ(remove(tree), refused("Cannot remove file: " + quoted("tree/sub/stubborn")));
  EXPECT_EQ(hooks.pauses.size(), 4U);
  failing = "sub";
  EXPECT_EQ(remove(tree), refused("Cannot remove directory : " + quoted("tree/sub")));
}

TEST_F(QDDirTest, WhatVanishesOrBecomesAFolderMeanwhileGoesToo) {
  for (const bool becomesFolder : {false, true}) {
    fs::create_directory(tree);
    writeFile(tree + "/a", "");
    writeFile(tree + "/b", "");
    SystemHooks hooks;
    hooks.before = [&](const std::string& call, const std::string& name) {
      if (call != "unlinkat") return 0;
      hooks.before = nullptr;
      const std::string other = tree + (name == "a" ? "/b" : "/a");
      fs::remove_all(becomesFolder ? other : tree);
      if (becomesFolder) fs::create_directories(other + "/inside");
      return 0;
    };
    EXPECT_EQ(remove(tree), "nothing");
    EXPECT_FALSE(fs::exists(tree));
  }
}

TEST_F(QDDirTest, ADirectoryMovedElsewhereDoesNotLeadTheRemovalThere) {
  // Ten levels down, which is far above what is still open when the deepest file is removed.
  const std::string parent = tree + "/d/d/d/d/d/d/d/d/d";
  fs::create_directory(tree);
  fs::create_directory(folder / "outside");
  makeDeep(tree, "d", 60, "deepest");
  SystemHooks hooks;
  hooks.before = [&](const std::string& call, const std::string& name) {
    if (call == "unlinkat" && name == "deepest") fs::rename(parent + "/d", folder / "outside/d");
    return 0;
  };
  EXPECT_EQ(remove(tree), refused("Cannot open directory \"" + parent + "/\""));
  EXPECT_TRUE(fs::exists(folder / "outside/d"));
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
    SystemHooks hooks;
    hooks.before = [&](const std::string&, const std::string&) {
      if (++calls == moment) {
        ::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, (tree + "/sub").c_str(), RENAME_EXCHANGE);
      }
      return 0;
    };
    EXPECT_THAT(remove(tree), testing::AnyOf("nothing", refused("Cannot remove directory : " +
                                                                quoted("tree/sub"))))
        << moment;
    EXPECT_EQ(content(outside + "/file") + content(outside + "/sub/file"), "canarycanary")
        << moment;
  }
  EXPECT_GT(calls, 10);
}

}  // namespace
