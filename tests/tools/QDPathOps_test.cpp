#include "tools/QDPathOps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "EntryHooks.h"
#include "FakePauses.h"
#include "Files.h"
#include "LogCapture.h"
#include "MaskAddresses.h"
#include "Refusal.h"
#include "TempFolder.h"
#include "tools/QDDir.h"
#include "tools/QDFile.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class QDPathOpsTest : public testing::Test {
 protected:
  std::string quoted(const std::string& name) const { return '"' + (folder / name) + '"'; }

  const TempFolder folder;
};

TEST_F(QDPathOpsTest, TriesFourTimesWithAPauseAfterEach) {
  fs::create_directories(folder / "full/entry");
  const std::string full = folder / "full";
  const std::string missing = folder / "missing";
  const struct {
    std::function<void()> operation;
    std::string code;  // what the OS layer says
    std::string retry;
    std::string final;
    std::string reason;
  } kCases[] = {
      {[&] { QDFile::remove(bytes(full)); },
       "osal_rmfile : cannot remove file (21) at path " + quoted("full"),
       "Cannot remove file: " + quoted("full"), "Cannot remove file: " + quoted("full"),
       "QDFile::remove failure -> pause before retry"},
      {[&] { QDDir::remove(bytes(full)); },
       "osal_rmdir : cannot remove directory (39) at path " + quoted("full"),
       "Cannot remove directory: " + quoted("full"), "Cannot remove directory : " + quoted("full"),
       "QDDir::remove failure -> pause before retry"},
      {[&] { QDFile::rename(bytes(missing), bytes(full)); },
       "osal_rename : cannot rename file (2) at path " + quoted("missing") + " to " +
           quoted("full"),
       "Cannot rename path " + quoted("missing") + " -> path " + quoted("full"),
       "Cannot rename path " + quoted("missing") + " -> path " + quoted("full"),
       "QDFile::rename failure -> pause before retry"},
  };
  for (const auto& [operation, code, retry, final, reason] : kCases) {
    SCOPED_TRACE(retry);
    std::vector<std::string> expected;
    for (int attempt = 0; attempt < 4; ++attempt) {
      expected.insert(expected.end(), {"OSAL:ERR " + code, "OSAL:ERR " + retry,
                                       "IDLE:INF sleep 1 s : \"" + reason + '"',
                                       "IDLE:INF sleep 1000 ms : \"" + reason + '"'});
    }
    expected.insert(expected.end(), {"EXCP:ERR NET: " + final, "EXCP:ERR ECT - @"});

    const LogCapture log("IDLE:9;");
    const FakePauses pauses;
    EXPECT_THROW(operation(), QDException);
    EXPECT_THAT(maskAddresses(log.lines()), ElementsAreArray(expected));
    EXPECT_THAT(pauses.ms(), ElementsAre(1000, 1000, 1000, 1000));
  }
}

TEST_F(QDPathOpsTest, SucceedsAsSoonAsTheObstacleIsGone) {
  const std::string path = folder / "obstacle";
  for (int failures = 1; failures <= 3; ++failures) {
    writeFile(path, "");
    EntryHooks hooks;
    int left = failures;
    hooks.removing = [&](const std::string&) { return left-- > 0 ? EBUSY : 0; };
    const FakePauses pauses;
    EXPECT_TRUE(QDFile::remove(bytes(path)));
    EXPECT_EQ(pauses.ms().size(), static_cast<std::size_t>(failures));
    EXPECT_FALSE(fs::exists(path));
  }
}

TEST_F(QDPathOpsTest, ReallyPauses) {
  writeFile(folder / "file", "");
  EntryHooks hooks;
  int left = 1;
  hooks.removing = [&](const std::string&) { return left-- > 0 ? EBUSY : 0; };
  const LogCapture log("OSAL:6;EXCP:0;");
  EXPECT_TRUE(QDFile::remove(bytes(folder / "file")));
  EXPECT_THAT(log.lines(), testing::Contains("OSAL:DBG Sleeping 1000 ms").Times(1));
}

TEST_F(QDPathOpsTest, TakesWhatIsMissingAsRemoved) {
  const FakePauses pauses;
  const LogCapture log("EXCP:5;");
  EXPECT_FALSE(QDFile::remove(bytes(folder / "missing")));
  QDDir::remove(bytes(folder / "missing"));
  EXPECT_THAT(pauses.ms(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QDPathOpsTest, RenamesAndRemovesAtOnce) {
  const FakePauses pauses;
  writeFile(folder / "from", "new");
  writeFile(folder / "to", "old");
  QDFile::rename(bytes(folder / "from"), bytes(folder / "to"));
  EXPECT_EQ(content(folder / "to"), "new");
  EXPECT_FALSE(fs::exists(folder / "from"));
  EXPECT_TRUE(QDFile::remove(bytes(folder / "to")));
  fs::create_directory(folder / "empty");
  QDDir::remove(bytes(folder / "empty"));
  EXPECT_TRUE(fs::is_empty(folder.path()));
  EXPECT_THAT(pauses.ms(), IsEmpty());
}

}  // namespace
