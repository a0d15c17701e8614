// Recursive removal, also of trees that somebody changes meanwhile.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "SystemHooks.h"
#include "ToolsTest.h"
#include "osal/osal_scoped.h"
#include "tools/QDDir.h"
#include "tools/QDDirRemoveCb.h"

namespace {

namespace fs = std::filesystem;

class QDDirRemovalTest : public ToolsFolder {
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
    if (::mkdirat(deepest.get(), name.c_str(), 0700) != 0) throw std::runtime_error("mkdirat");
    deepest.reset(::openat(deepest.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  const ScopedFd made(::openat(deepest.get(), file, O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  if (!made) throw std::runtime_error("openat");
}

TEST_F(QDDirRemovalTest, RemovesAllKindsOfThingsAndFollowsNoLink) {
  fs::create_directories(folder / "outside/sub");
  writeFile(folder / "outside/file", "canary");
  fs::create_directories(tree + "/a/b/c");
  writeFile(tree + "/a/b/file", "x");
  ASSERT_EQ(::mkfifo((tree + "/a/fifo").c_str(), 0600), 0);
  fs::create_symlink(folder / "outside", tree + "/a/directory link");
  fs::create_symlink("../outside/file", tree + "/file link");
  fs::create_symlink("nowhere", tree + "/dangling");
  fs::create_symlink("..", tree + "/a/b/up");
  fs::create_hard_link(folder / "outside/file", tree + "/hard link");
  const LogCapture log("OSAL:3;EXCP:5;SCAN:5;");
  EXPECT_TRUE(QDDir::removeRec(bytes(tree + "//")));
  EXPECT_FALSE(QDDir::removeRec(bytes(tree)));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(content(folder / "outside/file"), "canary");
  EXPECT_TRUE(fs::is_directory(folder / "outside/sub"));
}

TEST_F(QDDirRemovalTest, TheRootIsADirectoryAndNoLinkAndNoNeighbour) {
  fs::create_directories(folder / "outside");
  writeFile(folder / "outside/file", "canary");
  fs::create_directory_symlink(folder / "outside", folder / "link");
  const std::string text = "Exists and is not a directory : ";
  EXPECT_EQ(remove(folder / "outside/file"), refused(text + quoted("outside/file")));
  EXPECT_EQ(remove(folder / "link"), refused(text + quoted("link")));
  EXPECT_EQ(remove(folder / "link/"), refused(text + quoted("link")));
  EXPECT_EQ(content(folder / "link/file"), "canary");

  fs::create_directories(folder / "t/a");
  fs::create_directories(folder / "ta");
  const fs::path former = fs::current_path();
  fs::current_path(folder.path());
  EXPECT_EQ(remove("t"), "nothing");
  fs::current_path(former);
  EXPECT_FALSE(fs::exists(folder / "t"));
  EXPECT_TRUE(fs::exists(folder / "ta"));
}

TEST_F(QDDirRemovalTest, EndsAtTheFirstThingThatCannotBeRemoved) {
  fs::create_directories(tree + "/sub");
  writeFile(tree + "/sub/stubborn", "x");
  const std::string path = quoted("tree/sub/stubborn");
  std::vector<std::string> expected;
  for (int attempt = 0; attempt < 4; ++attempt) {
    expected.push_back("OSAL:ERR osal_rmfile : cannot remove file (1) at path " + path);
    expected.push_back("OSAL:ERR Cannot remove file: " + path);
  }
  expected.insert(
      expected.end(),
      {"EXCP:ERR NET: Cannot remove file: " + path, "EXCP:ERR ECT - @", "EXCP:ERR ECSP - @",
       "OSAL:ERR Cannot remove file of type QD_FILETYPE_REG : " + path, "EXCP:ERR ECT - @"});
  SystemHooks hooks;
  hooks.removing = [](const std::string& name) { return name == "stubborn" ? EPERM : 0; };
  {
    const LogCapture log("OSAL:3;EXCP:5;");
    EXPECT_THROW(QDDir::removeRec(bytes(tree)), QDException);
    EXPECT_EQ(maskAddresses(log.lines()), expected);
  }
  hooks.removing = [](const std::string& name) { return name == "sub" ? EBUSY : 0; };
  EXPECT_EQ(remove(tree), refused("Cannot remove directory : " + quoted("tree/sub")));
  EXPECT_EQ(refusal([] { QSDirRemoveRecCb().processItem(bytes("/x"), QD_FILETYPE_RAWDISK); }),
            refused("Cannot remove file (unknown type 401) : \"/x\""));
}

TEST_F(QDDirRemovalTest, RemovesWhatItReadOfADirectory) {
  fs::create_directory(tree);
  writeFile(tree + "/x", "");
  SystemHooks hooks;
  hooks.reading = failAt(4, EIO);  // after ".", ".." and "x"
  const LogCapture log("OSAL:2;EXCP:5;SCAN:5;");
  EXPECT_TRUE(QDDir::removeRec(bytes(tree)));
  EXPECT_THAT(log.lines(), testing::IsSupersetOf(std::vector<std::string>{
                               "EXCP:ERR NET: Cannot read directory",
                               "SCAN:ERR Error reading directory : " + quoted("tree")}));
}

TEST_F(QDDirRemovalTest, WhatVanishesMeanwhileIsGone) {
  fs::create_directories(tree + "/sub/deeper");
  writeFile(tree + "/file", "");
  SystemHooks hooks;
  hooks.removing = [&](const std::string&) {
    hooks.removing = nullptr;
    fs::remove_all(tree);
    return 0;
  };
  EXPECT_EQ(remove(tree), "nothing");
}

TEST_F(QDDirRemovalTest, NeedsNeitherStackNorDescriptorsNorShortPathsForDepth) {
  fs::create_directory(tree);
  makeDeep(tree, "a directory's name", 1000, "file");
  makeDeep(tree, "second branch", 100, "file");
  const Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(before) + 64);
  runOnSmallStack([&] { EXPECT_EQ(remove(tree), "nothing"); });
  EXPECT_FALSE(fs::exists(tree));
}

TEST_F(QDDirRemovalTest, ADirectoryMovedElsewhereDoesNotLeadItThere) {
  // Ten levels down, which is far above what is still open when the deepest file is removed.
  const std::string parent = tree + "/d/d/d/d/d/d/d/d/d";
  fs::create_directory(tree);
  fs::create_directory(folder / "outside");
  makeDeep(tree, "d", 60, "deepest");
  // Where ".." leads after the move there are the names that are still to be removed.
  for (char name = 'a'; name < 'a' + 20; ++name) {
    if (name == 'd') continue;
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

/// A tree whose folder "sub" can be exchanged with a link out of the tree.
class SwappedFolderTest : public QDDirRemovalTest {
 protected:
  SwappedFolderTest() {
    fs::create_directories(victim + "/sub");
    writeFile(victim + "/file", "canary");
    writeFile(victim + "/sub/file", "canary");
    layOut();
  }
  ~SwappedFolderTest() override {
    EXPECT_EQ(content(victim + "/file") + content(victim + "/sub/file"), "canarycanary");
  }

  /// Makes tree and link anew, where nobody looks, and puts them in their places.
  void layOut() {
    std::error_code ignored;
    fs::rename(tree, folder / "old", ignored);
    fs::remove_all(folder / "old");
    fs::remove_all(link);
    fs::create_directory_symlink(victim, link);
    fs::create_directories(folder / "new/sub/sub");
    for (const char* const name : {"new/sub/file", "new/sub/sub/file", "new/file"}) {
      writeFile(folder / name, "x");
    }
    fs::rename(folder / "new", tree);
  }

  bool swap() const {
    return ::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, (tree + "/sub").c_str(),
                       RENAME_EXCHANGE) == 0;
  }

  const std::string victim = folder / "victim";
  const std::string link = folder / "link";
};

TEST_F(SwappedFolderTest, ALinkInThePlaceOfAFolderIsRemovedAsOne) {
  SystemHooks hooks;
  hooks.opening = [&](const std::string& name) {
    if (name != "sub") return 0;
    hooks.opening = nullptr;
    EXPECT_TRUE(swap());
    return 0;
  };
  EXPECT_EQ(remove(tree), "nothing");
  EXPECT_FALSE(fs::exists(tree));
  EXPECT_TRUE(fs::exists(link + "/sub/file"));  // the folder, where it is now
}

TEST_F(SwappedFolderTest, TheFolderThatWasEnteredIsTheOneThatIsEmptied) {
  for (const std::string when : {"file", "sub"}) {
    layOut();
    SystemHooks hooks;
    bool entered = false;
    hooks.opening = [&](const std::string& name) {
      entered = entered || name == "sub";
      return 0;
    };
    hooks.removing = [&](const std::string& name) {
      if (!entered || name != when) return 0;
      hooks.removing = nullptr;
      EXPECT_TRUE(swap());
      return 0;
    };
    EXPECT_EQ(remove(tree), refused("Cannot remove directory : " + quoted("tree/sub"))) << when;
    EXPECT_TRUE(fs::is_empty(link));
  }
}

TEST_F(SwappedFolderTest, StaysInsideWhileAnotherThreadSwaps) {
  std::atomic<bool> done = false;
  std::atomic<int> swaps = 0;
  std::thread swapper([&] {
    while (!done) swaps += swap() ? 1 : 0;
  });
  for (int round = 0; round < 500; ++round) {
    const SystemHooks hooks;
    const LogCapture quiet("OSAL:0;EXCP:0;");
    layOut();
    try {
      QDDir::removeRec(bytes(tree));
    } catch (const QDException&) {
      // What was swapped at the wrong moment may stay; what is outside must.
    }
  }
  done = true;
  swapper.join();
  EXPECT_GT(swaps, 0);
}

}  // namespace
