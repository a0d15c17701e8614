#include "tuf/metadata.h"

#include <gtest/gtest.h>

#include <array>
#include <ctime>

#include "Files.h"
#include "tuf/Client.h"
#include "tuf/Error.h"
#include "tuf/signer.h"
#include "tuf/trustedSet.h"
#include "tufrepo/KeyRing.h"
#include "tufrepo/Repository.h"
#include "tufrepo/documents.h"
#include "tufrepo/rotation.h"

namespace {

TEST(TufCanonicalJson, IsTheSameForEverySpelling) {
  const struct {
    const char* text;
    const char* canonical;  // null: refused
  } kCases[] = {
      {" { } ", "{}"},
      {R"({"b":[1, -2,null,true ,[]],"a":{"z":"","B":0}})",
       R"({"a":{"B":0,"z":""},"b":[1,-2,null,true,[]]})"},
      {R"({"\u00e9":1,"z":2,"\ud83d\ude00":3})", "{\"z\":2,\"\u00e9\":1,\"\U0001F600\":3}"},
      {R"("\" \\ \/ \n \u0001")", "\"\\\" \\\\ / \n \x01\""},
      {"18446744073709551615", "18446744073709551615"},
      {"18446744073709551616", nullptr},
      {"1.0", nullptr},
      {R"({"a":1,"a":1})", nullptr},
      {R"({"a":1,"\u0061":2})", nullptr},
      {"{} {}", nullptr},
      {"\"\xff\"", nullptr},
      {"", nullptr},
  };
  for (const auto& [text, canonical] : kCases) {
    SCOPED_TRACE(text);
    try {
      EXPECT_EQ(tuf::canonicalJson(tuf::parseJson(text)),
                canonical == nullptr ? "refused" : canonical);
    } catch (const tuf::Error&) {
      EXPECT_EQ(canonical, nullptr);
    }
  }
  EXPECT_THROW((void)tuf::parseJson(std::string(100'000, '[')), tuf::Error);
  std::string many = "[0";
  for (int i = 0; i < 1'100'000; ++i) many += ",0";
  EXPECT_THROW((void)tuf::parseJson(many + ']'), tuf::Error);
}

const std::time_t kNow = std::time(nullptr);
using Files = std::array<std::string, 5>;  // two roots, timestamp, snapshot, targets

Files published(const TempFolder& folder) {
  std::map<std::string, tufrepo::FirstRole> roles;
  for (const std::string& role : tufrepo::topRoles()) {
    roles[role].keys = tufrepo::makeKeys(folder / "keys", role, 1, role == "root", "", nullptr);
  }
  tufrepo::KeyRing keys(nullptr);
  keys.addFolder(folder / "keys");
  const tuf::Json first = tufrepo::firstRoot(roles, tufrepo::defaultLives());
  tufrepo::Repository::create(folder / "repo", first, keys, kNow);
  tufrepo::Repository repository(folder / "repo");
  const std::string next =
      tuf::sign(tufrepo::nextRoot(repository, {"root", {}, {}, {}, {}}, kNow), {});
  repository.install(tufrepo::signRoot(next, repository.root(), keys), keys, kNow);
  Files files = {"1.root", "2.root", "timestamp", "1.snapshot", "1.targets"};
  for (std::string& file : files) file = content(folder / ("repo/metadata/" + file + ".json"));
  return files;
}

/// The files through all rules; the canonical forms of what was taken.
Files takeAll(const Files& files) {
  tuf::TrustedSet trusted(files[0], kNow);
  trusted.updateRoot(files[1]);
  trusted.updateTimestamp(files[2]);
  trusted.updateSnapshot(files[3]);
  trusted.updateTargets(files[4]);
  Files taken;
  for (std::size_t i = 0; i < files.size(); ++i) taken[i] = tuf::Envelope(files[i]).canonical;
  return taken;
}

TEST(TufTrustedSet, TakesNoFileWithAByteChanged) {
  const Files good = published(TempFolder());
  const Files expected = takeAll(good);
  int refused = 0;
  for (std::size_t file = 0; file < good.size(); ++file) {
    for (std::size_t at = 0; at < good[file].size(); ++at) {
      Files changed = good;
      changed[file][at] = static_cast<char>(changed[file][at] ^ 0x20);
      try {
        ASSERT_EQ(takeAll(changed), expected) << changed[file];
      } catch (const tuf::Error&) {
        ++refused;
      }
    }
  }
  EXPECT_GT(refused, 3000);
}

class FileFetcher : public tuf::Fetcher {
 public:
  int fetch(const std::string& url, std::uint64_t, const tuf::Sink& sink) override {
    sink(content(url));
    return 200;
  }
};

TEST(TufClient, TakesSoManyNewRootsAtMost) {
  const TempFolder folder;
  const Files files = published(folder);
  tuf::Folder trusted(folder / "trusted");
  tuf::Client::trust(trusted, files[0]);
  FileFetcher fetcher;
  tuf::Client(trusted, fetcher, folder / "repo/metadata", {.newRoots = 0}).refresh();
  EXPECT_EQ(trusted.read("root.json", 1 << 20), files[0]);
}

}  // namespace
