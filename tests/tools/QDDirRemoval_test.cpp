#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "EntryHooks.h"
#include "FakePauses.h"
#include "Files.h"
#include "Limits.h"
#include "LogCapture.h"
#include "MaskAddresses.h"
#include "Refusal.h"
#include "TempFolder.h"
#include "osal/osal_scoped.h"
#include "tools/QDDir.h"
#include "tools/QDDirRemoveCb.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAreArray;

class QDDirRemovalTest : public testing::Test {
 protected:
  ~QDDirRemovalTest() override { EXPECT_EQ(openDescriptors(), before); }

  std::string quoted(const std::string& name) const { return '"' + (folder / name) + '"'; }
  std::string remove(const std::string& path) const {
    return refusal([&] { EXPECT_TRUE(QDDir::removeRec(bytes(path))); });
  }

  const TempFolder folder{cheapBase()};
  const std::string tree = folder / "tree";
  const std::ptrdiff_t before = openDescriptors();
};

void makeSocket(const std::string& path) {
  const ScopedFd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("bind " + path);
  }
}

/// Makes `depth` directories, one in the other, each with this name. Returns the last.
ScopedFd makeDeep(const std::string& path, const std::string& name, int depth) {
  ScopedFd deepest(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int level = 0; level < depth; ++level) {
    if (::mkdirat(deepest.get(), name.c_str(), 0700) != 0) throw std::runtime_error("mkdirat");
    deepest.reset(::openat(deepest.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  return deepest;
}

void touchAt(const ScopedFd& directory, const std::string& name) {
  const ScopedFd file(::openat(directory.get(), name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  if (!file) throw std::runtime_error("openat " + name);
}

TEST_F(QDDirRemovalTest, RemovesAllKindsOfThingsAndFollowsNoLink) {
  fs::create_directories(folder / "outside/sub");
  writeFile(folder / "outside/file", "canary");
  fs::create_directories(tree + "/a/b/c");
  writeFile(tree + "/file", "x");
  writeFile(tree + "/a/b/file", "x");
  ASSERT_EQ(::mkfifo((tree + "/a/fifo").c_str(), 0600), 0);
  makeSocket(tree + "/a/socket");
  fs::create_symlink(folder / "outside", tree + "/a/directory link");
  fs::create_symlink("../outside/file", tree + "/file link");
  fs::create_symlink("nowhere", tree + "/dangling");
  fs::create_symlink(".", tree + "/a/self");
  fs::create_symlink("..", tree + "/a/b/up");
  fs::create_hard_link(folder / "outside/file", tree + "/hard link");
  const LogCapture log("OSAL:3;EXCP:5;SCAN:5;");
  EXPECT_TRUE(QDDir::removeRec(bytes(tree)));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(fs::exists(fs::symlink_status(tree)));
  EXPECT_EQ(content(folder / "outside/file"), "canary");
  EXPECT_TRUE(fs::is_directory(folder / "outside/sub"));
}

TEST_F(QDDirRemovalTest, SaysWhetherThereWasSomething) {
  EXPECT_FALSE(QDDir::removeRec(bytes(tree)));
  fs::create_directory(tree);
  EXPECT_TRUE(QDDir::removeRec(bytes(tree + "//")));
  EXPECT_FALSE(QDDir::removeRec(bytes(tree)));
}

TEST_F(QDDirRemovalTest, TheRootIsADirectoryAndNoLink) {
  fs::create_directories(folder / "outside");
  writeFile(folder / "outside/file", "canary");
  fs::create_directory_symlink(folder / "outside", folder / "link");
  writeFile(folder / "file", "x");
  const std::string text = "Exists and is not a directory : ";
  EXPECT_EQ(remove(folder / "file"), refused(text + quoted("file")));
  EXPECT_EQ(remove(folder / "link"), refused(text + quoted("link")));
  EXPECT_EQ(remove(folder / "link/"), refused(text + quoted("link")));
  EXPECT_EQ(content(folder / "outside/file"), "canary");
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
}

TEST_F(QDDirRemovalTest, ARelativeNameOfOneCharacterTakesNoNeighbourAlong) {
  fs::create_directories(folder / "t/a");
  fs::create_directories(folder / "ta");
  const fs::path former = fs::current_path();
  fs::current_path(folder.path());
  EXPECT_TRUE(QDDir::removeRec(bytes("t")));
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

  EntryHooks hooks;
  hooks.removing = [](const std::string& name) { return name == "stubborn" ? EPERM : 0; };
  const FakePauses pauses;
  const LogCapture log("OSAL:3;EXCP:5;");
  EXPECT_THROW(QDDir::removeRec(bytes(tree)), QDException);
  EXPECT_THAT(maskAddresses(log.lines()), ElementsAreArray(expected));
  EXPECT_TRUE(fs::exists(tree + "/sub/stubborn"));
}

TEST_F(QDDirRemovalTest, TellsWhichDirectoryStays) {
  fs::create_directories(tree + "/sub");
  EntryHooks hooks;
  hooks.removing = [](const std::string& name) { return name == "sub" ? EBUSY : 0; };
  EXPECT_EQ(remove(tree), refused("Cannot remove directory : " + quoted("tree/sub")));
}

TEST_F(QDDirRemovalTest, RemovesWhatItReadOfADirectory) {
  fs::create_directory(tree);
  writeFile(tree + "/x", "");
  EntryHooks hooks;
  int readings = 0;
  hooks.reading = [&] { return ++readings == 4 ? EIO : 0; };  // after ".", ".." and "x"
  const LogCapture log("OSAL:2;EXCP:5;SCAN:5;");
  EXPECT_TRUE(QDDir::removeRec(bytes(tree)));
  const std::vector<std::string> lines = maskAddresses(log.lines());
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(lines[0], testing::MatchesRegex("OSAL:ERR Read directory .* error \\(5\\)"));
  EXPECT_EQ(lines[1], "EXCP:ERR NET: Cannot read directory");
  EXPECT_EQ(lines[4], "SCAN:ERR Error reading directory : " + quoted("tree"));
}

TEST_F(QDDirRemovalTest, WhatVanishesMeanwhileIsGone) {
  fs::create_directories(tree + "/sub/deeper");
  writeFile(tree + "/file", "");
  EntryHooks hooks;
  hooks.removing = [&](const std::string&) {
    hooks.removing = nullptr;
    fs::remove_all(tree);
    return 0;
  };
  EXPECT_EQ(remove(tree), "nothing");
}

TEST_F(QDDirRemovalTest, RefusesUnknownTypes) {
  QSDirRemoveRecCb callback;
  for (const QDFileType type : {QD_FILETYPE_UNKNOWN, QD_FILETYPE_NOTEXISTS, QD_FILETYPE_RAWDISK}) {
    EXPECT_EQ(refusal([&] { callback.processItem(bytes("/x"), type); }),
              refused("Cannot remove file (unknown type " + std::to_string(type) + ") : \"/x\""));
  }
}

TEST_F(QDDirRemovalTest, NeedsNeitherStackNorDescriptorsNorShortPathsForDepth) {
  fs::create_directory(tree);
  touchAt(makeDeep(tree, "a directory's name", 1000), "file");
  touchAt(makeDeep(tree, "second branch", 100), "file");
  const DescriptorLimit limit(static_cast<rlim_t>(before) + 64);
  std::string answer;
  runOnSmallStack([&] { answer = remove(tree); });
  EXPECT_EQ(answer, "nothing");
  EXPECT_FALSE(fs::exists(tree));
}

TEST_F(QDDirRemovalTest, RemovesManyEntries) {
  fs::create_directory(tree);
  const ScopedFd directory(::open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 0; i < 100'000; ++i) {
    ASSERT_EQ(::symlinkat("x", directory.get(), std::to_string(i).c_str()), 0);
  }
  EXPECT_EQ(remove(tree), "nothing");
  EXPECT_FALSE(fs::exists(tree));
}

TEST_F(QDDirRemovalTest, ADirectoryMovedElsewhereDoesNotLeadItThere) {
  constexpr int kDepth = 60;
  constexpr int kMoved = 10;  // far above what is still open when the deepest file is removed
  fs::create_directory(tree);
  fs::create_directory(folder / "outside");
  std::string moved = tree;
  for (int level = 0; level < kMoved; ++level) moved += "/d";
  touchAt(makeDeep(tree, "d", kDepth), "deepest");
  // Where ".." leads after the move there are the names that are still to be removed.
  for (int i = 0; i < 20; ++i) {
    const std::string name = "/file" + std::to_string(i);
    writeFile(fs::path(moved).parent_path().string() + name, "x");
    writeFile((folder / "outside") + name, "canary");
  }
  EntryHooks hooks;
  hooks.removing = [&](const std::string& name) {
    if (name == "deepest") fs::rename(moved, folder / "outside/d");
    return 0;
  };
  EXPECT_EQ(remove(tree),
            refused("Cannot open directory \"" + fs::path(moved).parent_path().string() + "/\""));
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(content((folder / "outside/file") + std::to_string(i)), "canary");
  }
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
    EXPECT_EQ(content(victim + "/file"), "canary");
    EXPECT_EQ(content(victim + "/sub/file"), "canary");
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
  EntryHooks hooks;
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
    SCOPED_TRACE(when);
    layOut();
    EntryHooks hooks;
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
    EXPECT_EQ(remove(tree), refused("Cannot remove directory : " + quoted("tree/sub")));
    EXPECT_TRUE(fs::is_empty(link));
  }
}

TEST_F(SwappedFolderTest, StaysInsideWhileAnotherThreadSwaps) {
  constexpr int kRounds = 500;
  std::atomic<bool> done = false;
  std::atomic<int> swaps = 0;
  std::thread swapper([&] {
    while (!done) swaps += swap() ? 1 : 0;
  });
  for (int round = 0; round < kRounds; ++round) {
    const FakePauses pauses;
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
