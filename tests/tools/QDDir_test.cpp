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
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// Remembers which directories were created, in their order.
class Created : public QSDir_cbArgCreateDirs {
 public:
  void dirCreated(const unsigned char* path) override {
    paths.emplace_back(reinterpret_cast<const char*>(path));
  }
  std::vector<std::string> paths;
};

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

TEST_F(QDDirTest, ReportsFailuresAsItIsToldTo) {
  for (const bool tolerant : {false, true}) {
    const auto line = [&](const std::string& text) {
      return tolerant ? tolerated(text) : refused(text);
    };
    QDDir dir(tolerant);
    EXPECT_EQ(refusal([&] { dir.read(nullptr); }), line("Directory not opened"));
    const std::string tooLong = root() + std::string(4096 - root().size(), '/');
    for (const std::string& path : {folder / "missing", tooLong}) {
      EXPECT_EQ(refusal([&] { dir._open(bytes(path)); }),
                line("Cannot open directory \"" + path + '"'));
    }
    dir._open(bytes(tooLong.substr(0, 4095)));
    {
      SystemHooks hooks;
      hooks.reading = [] { return EIO; };
      EXPECT_EQ(refusal([&] { dir.read(nullptr); }), line("Cannot read directory"));
    }
    const LogCapture log("OSAL:3;EXCP:5;");
    dir._open(bytes(root()));
    dir._close();
    dir._close();
    EXPECT_THAT(log.lines(), ElementsAre(std::string(tolerant ? "OSAL:WRN" : "OSAL:ERR") +
                                             " Directory handle already in use, close it",
                                         "OSAL:ERR Invalid handle (closeDir)",
                                         "OSAL:EL2 Cannot close directory !"));
  }
}

TEST_F(QDDirTest, IsRemovedOnlyIfItIsEmpty) {
  fs::create_directories(folder / "full/empty");
  writeFile(folder / "file", "");
  fs::create_directory_symlink(folder / "full", folder / "link");
  fs::create_symlink("loop", folder / "loop");
  const struct {
    const char* name;
    bool exists;
    bool removed;
    std::string answer;
  } kCases[] = {
      {"missing", false, false, "nothing"},
      {"full", true, false, "nothing"},
      {"full/empty", true, true, "nothing"},
      {"full", true, true, "nothing"},
      {"file", false, false, refused("Exists and is not a directory : " + quoted("file"))},
  };
  {
    const LogCapture log("OSAL:4;EXCP:5;");
    QDDir::removeIfEmpty(bytes(folder / "full"), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
  for (const auto& [name, exists, removed, answer] : kCases) {
    bool wasRemoved = !removed;
    EXPECT_EQ(QDDir::exists(bytes(folder / name)), exists) << name;
    EXPECT_EQ(refusal([&, n = name] { QDDir::removeIfEmpty(bytes(folder / n), &wasRemoved); }),
              answer);
    if (answer == "nothing") {
      EXPECT_EQ(wasRemoved, removed) << name;
    }
  }
  fs::create_directory(folder / "full");
  EXPECT_EQ(refusal([&] { QDDir::removeIfEmpty(bytes(folder / "link"), nullptr); }),
            refused("Cannot remove directory : " + quoted("link")));
  EXPECT_EQ(refusal([&] { QDDir::exists(bytes(folder / "loop/x")); }),
            refused("Cannot check if directory exists : " + quoted("loop/x")));
}

TEST_F(QDDirTest, IsCreatedWithItsParents) {
  Created created;
  const auto create = [&](const std::string& list, bool parents) {
    bool existed = false;
    const std::string said =
        refusal([&] { existed = QDDir::creates(bytes(list), parents, &created); });
    return said == "nothing" ? (existed ? "existed" : "created") : said;
  };
  writeFile(folder / "file", "");
  const std::string cannot = "Cannot create directory : ";
  EXPECT_EQ(create(folder / "a/b/c", false), refused(cannot + quoted("a/b/c")));
  EXPECT_EQ(create(folder / "file/x/y", true), refused(cannot + quoted("file/x")));
  EXPECT_EQ(create((folder / "p/q") + ";" + (folder / "later"), false),
            refused(cannot + quoted("p/q")));
  EXPECT_THAT(created.paths, IsEmpty());
  EXPECT_EQ(create(folder / "a/b/c", true), "created");
  EXPECT_EQ(create((folder / "a/b/c") + ";" + (folder / "y/z"), true), "created");
  EXPECT_EQ(create((folder / "y/z") + ";;", false), "existed");
  EXPECT_TRUE(QDDir::create(bytes(folder / "a"), false, nullptr));
  EXPECT_THAT(created.paths, ElementsAre(folder / "a", folder / "a/b", folder / "a/b/c",
                                         folder / "y", folder / "y/z"));
  created.paths.clear();
  for (const std::string& path : {folder / "a/m/n/file", folder / "a/m/n/file", folder / "s//t//f",
                                  std::string("/file"), std::string("file"), std::string()}) {
    QDDir::createParentsOfPath(bytes(path), &created);
  }
  EXPECT_EQ(created.paths.size(), 4U) << "a/m, a/m/n, s and s/t";
  EXPECT_FALSE(fs::exists(folder / "a/m/n/file"));
  EXPECT_TRUE(fs::is_directory(folder / "s/t"));
}

TEST_F(QDDirTest, IsWalkedInTheOrderAskedForUntilToldToStop) {
  fs::create_directories(folder / "a/b/c");
  const struct {
    How how;
    std::vector<std::string> items;
  } kCases[] = {
      {{.recursive = true}, {"a:2", "a/b:2", "a/b/c:2"}},
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
      EXPECT_EQ(first.all.size(), most);
    }
  }
}

TEST_F(QDDirTest, IsWalkedFromBehindItsPathHoweverItIsWritten) {
  fs::create_directories(folder / "t/a");
  fs::create_directories(folder / "ta");
  const fs::path former = fs::current_path();
  fs::current_path(folder.path());
  for (const std::string path : {"t", "t/", "./t", "t//"}) {
    Items relative;
    Items full;
    EXPECT_TRUE(browse(path, relative) && browse(path, full, {.relativePaths = false}));
    EXPECT_THAT(relative.all, ElementsAre("a:2")) << path;
    EXPECT_THAT(full.all, ElementsAre(path + (path.back() == '/' ? "a:2" : "/a:2")));
  }
  fs::current_path(former);
  Items relative;
  Items full;
  EXPECT_TRUE(browse("/", relative, {.recursive = false}));
  EXPECT_TRUE(browse("/", full, {.recursive = false, .relativePaths = false}));
  EXPECT_THAT(relative.all, Contains("dev:2"));
  EXPECT_THAT(full.all, Contains("/dev:2"));
}

TEST_F(QDDirTest, IsWalkedThroughLinksButNotInCircles) {
  fs::create_directories(folder / "tree/sub");
  writeFile(folder / "file", "");
  fs::create_symlink(".", folder / "tree/self");
  fs::create_symlink("..", folder / "tree/sub/up");
  fs::create_symlink(folder / "file", folder / "tree/link");
  fs::create_symlink("nowhere", folder / "tree/dangling");
  fs::create_symlink("sub", folder / "tree/again");
  Items items;
  EXPECT_TRUE(browse(folder / "tree", items));
  EXPECT_THAT(items.all, UnorderedElementsAre("sub:2", "sub/up:2", "self:2", "link:1",
                                              "dangling:50", "again:2", "again/up:2"));
}

TEST_F(QDDirTest, IsNotWalkedWhereThereIsNone) {
  writeFile(folder / "file", "");
  fs::create_symlink("loop", folder / "loop");
  constexpr struct {
    const char* name;
    const char* text;
  } kCases[] = {{"missing", "Not exists : "},
                {"file", "Exists and is not a directory : "},
                {"loop/x", "Cannot check if directory exists : "}};
  for (const auto& [name, text] : kCases) {
    Items items;
    const std::string line = text + quoted(name);
    EXPECT_EQ(refusal([&, n = name] { browse(folder / n, items); }), refused(line));
    EXPECT_EQ(refusal([&, n = name] { browse(folder / n, items, {.warnOnly = true}); }),
              tolerated(line));
    EXPECT_THAT(items.all, IsEmpty());
  }
}

TEST_F(QDDirTest, IsWalkedOnBehindWhatCannotBeRead) {
  fs::create_directories(folder / "a");
  writeFile(folder / "a/x", "");
  SystemHooks hooks;
  hooks.reading = failAt(4, EIO);  // after ".", ".." and "a" or its end
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

TEST_F(QDDirTest, NeedsNeitherStackNorDescriptorsForTheDepthOfAWalk) {
  std::string path = root();
  for (int level = 0; level < 400; ++level) fs::create_directory(path += "/deeper");
  const Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(before) + 8);
  Items items;
  runOnSmallStack([&] { EXPECT_TRUE(browse(root(), items, {.childrenFirst = true})); });
  EXPECT_EQ(items.all.size(), 400U);
}

}  // namespace
