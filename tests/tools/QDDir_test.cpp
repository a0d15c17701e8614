#include "tools/QDDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "EntryHooks.h"
#include "Files.h"
#include "LogCapture.h"
#include "MaskAddresses.h"
#include "Refusal.h"
#include "TempFolder.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class QDDirTest : public testing::Test {
 protected:
  ~QDDirTest() override { EXPECT_EQ(openDescriptors(), before); }

  std::string quoted(const std::string& name) const { return '"' + (folder / name) + '"'; }

  const TempFolder folder;
  const std::ptrdiff_t before = openDescriptors();
};

/// Remembers which directories were created, in their order.
class Created : public QSDir_cbArgCreateDirs {
 public:
  void dirCreated(const unsigned char* path) override {
    paths.emplace_back(reinterpret_cast<const char*>(path));
  }
  std::vector<std::string> paths;
};

TEST_F(QDDirTest, ListsADirectory) {
  writeFile(folder / "file", "");
  fs::create_directory(folder / "sub");
  QDDir dir;
  dir._open(bytes(folder.path().string()));
  std::set<std::string> entries;
  QDFileType type{};
  while (const unsigned char* const name = dir.read(&type)) {
    entries.insert(reinterpret_cast<const char*>(name) + std::to_string(type));
  }
  EXPECT_THAT(entries, ElementsAre("..2", ".2", "file1", "sub2"));
  dir._close();
}

TEST_F(QDDirTest, ReportsFailuresAsItIsToldTo) {
  const std::string missing = folder / "missing";
  for (const bool tolerant : {false, true}) {
    SCOPED_TRACE(tolerant);
    const auto line = [&](const std::string& text) {
      return tolerant ? tolerated(text) : refused(text);
    };
    QDDir dir(tolerant);
    EXPECT_EQ(refusal([&] { dir.read(nullptr); }), line("Directory not opened"));
    EXPECT_EQ(refusal([&] { dir._open(bytes(missing)); }),
              line("Cannot open directory " + quoted("missing")));
    dir._open(bytes(folder.path().string()));
    {
      EntryHooks hooks;
      hooks.reading = [] { return EIO; };
      EXPECT_EQ(refusal([&] { dir.read(nullptr); }), line("Cannot read directory"));
    }
    const LogCapture log("OSAL:3;EXCP:5;");
    dir._open(bytes(folder.path().string()));
    dir._close();
    dir._close();
    EXPECT_THAT(log.lines(), ElementsAre(std::string(tolerant ? "OSAL:WRN" : "OSAL:ERR") +
                                             " Directory handle already in use, close it",
                                         "OSAL:ERR Invalid handle (closeDir)",
                                         "OSAL:EL2 Cannot close directory !"));
  }
}

TEST_F(QDDirTest, APathThatIsTooLongLeavesNothingOpen) {
  const std::string start = folder.path().string();
  const std::string tooLong = start + std::string(4096 - start.size(), '/');
  QDDir dir;
  EXPECT_EQ(refusal([&] { dir._open(bytes(tooLong)); }),
            refused("Cannot open directory \"" + tooLong + '"'));
  dir._open(bytes(tooLong.substr(0, 4095)));
}

TEST_F(QDDirTest, TellsDirectoriesFromOtherThings) {
  writeFile(folder / "file", "");
  fs::create_directory_symlink(folder.path(), folder / "link");
  fs::create_symlink("loop", folder / "loop");
  EXPECT_TRUE(QDDir::exists(bytes(folder.path().string())));
  EXPECT_TRUE(QDDir::exists(bytes(folder / "link")));
  EXPECT_FALSE(QDDir::exists(bytes(folder / "file")));
  EXPECT_FALSE(QDDir::exists(bytes(folder / "missing")));
  EXPECT_EQ(refusal([&] { QDDir::exists(bytes(folder / "loop/x")); }),
            refused("Cannot check if directory exists : " + quoted("loop/x")));
}

TEST_F(QDDirTest, RemovesADirectoryIfItIsEmpty) {
  fs::create_directories(folder / "full/empty");
  writeFile(folder / "file", "");
  fs::create_directory_symlink(folder / "full", folder / "link");
  const LogCapture log("OSAL:4;EXCP:5;");
  bool removed = true;
  QDDir::removeIfEmpty(bytes(folder / "missing"), &removed);
  EXPECT_FALSE(removed);
  removed = true;
  QDDir::removeIfEmpty(bytes(folder / "full"), &removed);
  EXPECT_FALSE(removed);
  EXPECT_THAT(log.lines(), IsEmpty());
  QDDir::removeIfEmpty(bytes(folder / "full/empty"), &removed);
  EXPECT_TRUE(removed);
  EXPECT_FALSE(fs::exists(folder / "full/empty"));
  EXPECT_EQ(refusal([&] { QDDir::removeIfEmpty(bytes(folder / "file"), &removed); }),
            refused("Exists and is not a directory : " + quoted("file")));
  EXPECT_EQ(refusal([&] { QDDir::removeIfEmpty(bytes(folder / "link"), &removed); }),
            refused("Cannot remove directory : " + quoted("link")));
  QDDir::removeIfEmpty(bytes(folder / "full"), nullptr);
  EXPECT_FALSE(fs::exists(folder / "full"));
}

TEST_F(QDDirTest, CreatesDirectoriesWithTheirParents) {
  Created created;
  EXPECT_EQ(refusal([&] { QDDir::create(bytes(folder / "a/b/c"), false, &created); }),
            refused("Cannot create directory : " + quoted("a/b/c")));
  EXPECT_THAT(created.paths, IsEmpty());
  EXPECT_FALSE(QDDir::create(bytes(folder / "a/b/c"), true, &created));
  EXPECT_THAT(created.paths, ElementsAre(folder / "a", folder / "a/b", folder / "a/b/c"));
  EXPECT_TRUE(QDDir::create(bytes(folder / "a/b/c"), true, &created));
  EXPECT_TRUE(QDDir::create(bytes(folder / "a"), false, nullptr));
  EXPECT_EQ(created.paths.size(), 3U);
  writeFile(folder / "file", "");
  EXPECT_EQ(refusal([&] { QDDir::create(bytes(folder / "file/x/y"), true, &created); }),
            refused("Cannot create directory : " + quoted("file/x")));
}

TEST_F(QDDirTest, CreatesTheParentsOfAPathOnly) {
  fs::create_directory(folder / "a");
  Created created;
  QDDir::createParentsOfPath(bytes(folder / "a/b/c/file"), &created);
  EXPECT_THAT(created.paths, ElementsAre(folder / "a/b", folder / "a/b/c"));
  EXPECT_TRUE(fs::is_empty(folder / "a/b/c"));
  QDDir::createParentsOfPath(bytes(folder / "a/b/c/file"), &created);
  QDDir::createParentsOfPath(bytes("/file"), &created);
  QDDir::createParentsOfPath(bytes("file"), &created);
  QDDir::createParentsOfPath(bytes(""), &created);
  EXPECT_EQ(created.paths.size(), 2U);
  QDDir::createParentsOfPath(bytes(folder / "s//t//file"), &created);
  EXPECT_TRUE(fs::is_directory(folder / "s/t"));
  const fs::path former = fs::current_path();
  fs::current_path(folder.path());
  QDDir::createParentsOfPath(bytes("r/file"), nullptr);
  fs::current_path(former);
  EXPECT_TRUE(fs::is_directory(folder / "r"));
}

TEST_F(QDDirTest, CreatesEachDirectoryOfAList) {
  const std::string list = (folder / "x") + ";" + (folder / "y/z");
  Created created;
  EXPECT_FALSE(QDDir::creates(bytes(list), true, &created));
  EXPECT_THAT(created.paths, ElementsAre(folder / "x", folder / "y", folder / "y/z"));
  EXPECT_TRUE(QDDir::creates(bytes(list + ";"), true, &created));
  EXPECT_FALSE(QDDir::creates(bytes((folder / "x") + ";" + (folder / "new")), false, nullptr));
  EXPECT_EQ(refusal([&] {
              QDDir::creates(bytes((folder / "p/q") + ";" + (folder / "later")), false, nullptr);
            }),
            refused("Cannot create directory : " + quoted("p/q")));
  EXPECT_FALSE(fs::exists(folder / "later"));
}

}  // namespace
