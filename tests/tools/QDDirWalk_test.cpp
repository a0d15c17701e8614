#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "EntryHooks.h"
#include "Files.h"
#include "Limits.h"
#include "LogCapture.h"
#include "MaskAddresses.h"
#include "Refusal.h"
#include "TempFolder.h"
#include "tools/QDDir.h"

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
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

bool browse(const std::string& path, Items& items, How how) {
  return QDDir::browse(bytes(path), how.recursive, how.includeRoot, how.childrenFirst, items,
                       how.relativePaths, how.warnOnly);
}

class QDDirWalkTest : public testing::Test {
 protected:
  ~QDDirWalkTest() override { EXPECT_EQ(openDescriptors(), before); }

  std::string quoted(const std::string& name) const { return '"' + (folder / name) + '"'; }
  std::string root() const { return folder.path().string(); }

  const TempFolder folder{cheapBase()};
  const std::ptrdiff_t before = openDescriptors();
};

TEST_F(QDDirWalkTest, HandsOverInTheOrderAskedFor) {
  fs::create_directories(folder / "a/b/c");
  const struct {
    How how;
    std::vector<std::string> items;
  } kCases[] = {
      {{.recursive = true}, {"a:2", "a/b:2", "a/b/c:2"}},
      {{.recursive = false}, {"a:2"}},
      {{.recursive = false, .childrenFirst = true}, {"a:2"}},
      {{.childrenFirst = true}, {"a/b/c:2", "a/b:2", "a:2"}},
      {{.includeRoot = true}, {root() + ":2", "a:2", "a/b:2", "a/b/c:2"}},
      {{.includeRoot = true, .childrenFirst = true}, {"a/b/c:2", "a/b:2", "a:2", root() + ":2"}},
      {{.relativePaths = false}, {folder / "a:2", folder / "a/b:2", folder / "a/b/c:2"}},
  };
  for (const auto& [how, items] : kCases) {
    SCOPED_TRACE(testing::PrintToString(items));
    Items found;
    EXPECT_TRUE(browse(root(), found, how));
    EXPECT_EQ(found.all, items);
    for (std::size_t most = 1; most <= items.size(); ++most) {
      Items first(most);
      EXPECT_FALSE(browse(root(), first, how));
      EXPECT_EQ(first.all, std::vector<std::string>(
                               items.begin(), items.begin() + static_cast<std::ptrdiff_t>(most)));
    }
  }
}

TEST_F(QDDirWalkTest, VisitsEverythingOnce) {
  fs::create_directories(folder / "a/b");
  fs::create_directories(folder / "c");
  writeFile(folder / "a/1", "");
  writeFile(folder / "a/b/2", "");
  writeFile(folder / "3", "");
  Items items;
  EXPECT_TRUE(browse(root(), items, {}));
  EXPECT_THAT(items.all, UnorderedElementsAre("a:2", "a/b:2", "c:2", "a/1:1", "a/b/2:1", "3:1"));
}

TEST_F(QDDirWalkTest, PathsStartBehindTheRootHoweverItIsWritten) {
  fs::create_directories(folder / "t/a");
  fs::create_directories(folder / "ta");
  const fs::path former = fs::current_path();
  fs::current_path(folder.path());
  for (const char* const path : {"t", "t/", "./t", "t//"}) {
    SCOPED_TRACE(path);
    Items relative;
    EXPECT_TRUE(browse(path, relative, {}));
    EXPECT_THAT(relative.all, ElementsAre("a:2"));
    Items full;
    EXPECT_TRUE(browse(path, full, {.relativePaths = false}));
    EXPECT_THAT(full.all, ElementsAre(path + std::string(path[std::string(path).size() - 1] == '/'
                                                             ? "a:2"
                                                             : "/a:2")));
  }
  fs::current_path(former);

  Items top;
  EXPECT_TRUE(browse("/", top, {.recursive = false}));
  EXPECT_THAT(top.all, Contains("dev:2"));
  Items fullTop;
  EXPECT_TRUE(browse("/", fullTop, {.recursive = false, .relativePaths = false}));
  EXPECT_THAT(fullTop.all, Contains("/dev:2"));
}

TEST_F(QDDirWalkTest, FollowsLinksButNotInCircles) {
  fs::create_directories(folder / "tree/sub");
  writeFile(folder / "file", "");
  fs::create_symlink(".", folder / "tree/self");
  fs::create_symlink("..", folder / "tree/sub/up");
  fs::create_symlink(folder / "file", folder / "tree/link");
  fs::create_symlink("nowhere", folder / "tree/dangling");
  fs::create_symlink("sub", folder / "tree/again");
  Items items;
  EXPECT_TRUE(browse(folder / "tree", items, {}));
  EXPECT_THAT(items.all, UnorderedElementsAre("sub:2", "sub/up:2", "self:2", "link:1",
                                              "dangling:50", "again:2", "again/up:2"));
}

TEST_F(QDDirWalkTest, RefusesWhatIsNoDirectory) {
  writeFile(folder / "file", "");
  fs::create_symlink("loop", folder / "loop");
  const struct {
    const char* name;
    const char* text;
  } kCases[] = {
      {"missing", "Not exists : "},
      {"file", "Exists and is not a directory : "},
      {"loop/x", "Cannot check if directory exists : "},
  };
  for (const auto& [name, text] : kCases) {
    SCOPED_TRACE(name);
    Items items;
    const std::string path = folder / name;
    const std::string line = text + quoted(name);
    EXPECT_EQ(refusal([&] { browse(path, items, {}); }), refused(line));
    EXPECT_EQ(refusal([&] { browse(path, items, {.warnOnly = true}); }), tolerated(line));
    EXPECT_TRUE(items.all.empty());
  }
}

TEST_F(QDDirWalkTest, GoesOnBehindADirectoryThatCannotBeRead) {
  fs::create_directories(folder / "a");
  writeFile(folder / "a/x", "");
  EntryHooks hooks;
  int readings = 0;
  hooks.reading = [&] { return ++readings == 4 ? EIO : 0; };  // after ".", ".." and "a" or its end
  const LogCapture log("EXCP:5;SCAN:5;OSAL:0;");
  Items items;
  EXPECT_TRUE(browse(root(), items, {.includeRoot = true, .childrenFirst = true}));
  EXPECT_EQ(items.all.back(), root() + ":2");
  EXPECT_THAT(items.all, Contains("a/x:1"));
  EXPECT_THAT(
      maskAddresses(log.lines()),
      ElementsAre("EXCP:ERR NET: Cannot read directory", "EXCP:ERR ECT - @", "EXCP:ERR ECSP - @",
                  "SCAN:ERR Error reading directory : \"" + root() + '"'));
}

TEST_F(QDDirWalkTest, NeedsNeitherStackNorDescriptorsForDepth) {
  constexpr std::size_t kDepth = 400;
  std::string path = root();
  for (std::size_t level = 0; level < kDepth; ++level) {
    path += "/deeper";
    fs::create_directory(path);
  }
  const DescriptorLimit limit(static_cast<rlim_t>(before) + 8);
  Items items;
  bool result = false;
  runOnSmallStack([&] { result = browse(root(), items, {.childrenFirst = true}); });
  EXPECT_TRUE(result);
  EXPECT_EQ(items.all.size(), kDepth);
}

}  // namespace
