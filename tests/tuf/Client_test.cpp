#include "tuf/Client.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Files.h"
#include "TempFolder.h"
#include "TestRepository.h"
#include "tuf/Error.h"
#include "tuf/digest.h"

namespace {

using tuf::Json;

/// A machine that trusts the repository's first root. Each call of `run` is a run of its own.
class Machine {
 public:
  explicit Machine(TestRepository& repository) : repository_(repository) {
    tuf::Folder folder(folder_.path());
    tuf::Client::trust(folder, repository.files.at("r/1.root.json"));
  }

  /// Refreshes and, where there is a name, fetches the target. "ok" or why not, then what was
  /// asked.
  std::string run(const std::string& target = {}) {
    repository_.asked();
    std::string outcome = "ok";
    try {
      tuf::Folder folder(folder_.path());
      tuf::Client client(folder, repository_, "r", limits);
      client.refresh();
      std::string content;
      if (!target.empty()) {
        client.fetchTarget(client.findTarget(target), "t",
                           [&](std::string_view bytes) { content += bytes; });
        EXPECT_EQ(content, "content of " + target);
      }
    } catch (const tuf::Error& e) {
      constexpr const char* kKinds[] = {"Network",  "Size",    "Malformed", "Unsigned", "Rollback",
                                        "Mismatch", "Expired", "NotFound",  "Storage"};
      outcome = kKinds[static_cast<int>(e.kind())];
    }
    return outcome + ':' + repository_.asked();
  }

  /// What the folder holds, roles and versions.
  [[nodiscard]] std::string stored() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      const Json file = Json::parse(content(entry.path()));
      files.push_back(entry.path().stem().string() + ' ' + file["signed"]["version"].dump());
    }
    std::sort(files.begin(), files.end());
    std::string text;
    for (const std::string& file : files) text += (text.empty() ? "" : ", ") + file;
    return text;
  }

  std::string operator/(const std::string& name) const { return folder_ / name; }

  tuf::Limits limits{};

 private:
  TestRepository& repository_;
  TempFolder folder_{cheapBase()};
};

// What is asked, and what is there afterwards.
const std::string kTwo = " 2.root timestamp";
const std::string kThree = kTwo + " 6.snapshot";
const std::string kAll = kThree + " 6.targets";
const std::string kOld = "root 1, snapshot 5, targets 5, timestamp 5";
const std::string kStamped = "root 1, snapshot 5, targets 5, timestamp 6";
const std::string kAlmost = "root 1, snapshot 6, targets 5, timestamp 6";
const std::string kNew = "root 1, snapshot 6, targets 6, timestamp 6";

struct Case {
  const char* name;
  const char* script;  ///< what happens to the repository after a first run
  std::string outcome;
  std::string stored = kOld;
  const char* target = "";
};

const Case kCases[] = {
    // Not one request more than it takes.
    {"a release", "release", "ok:" + kAll, kNew},
    {"without lengths and hashes", "noHashes; release", "ok:" + kAll, kNew},
    {"what is missing is forbidden", "missing 403", "ok:" + kTwo},
    {"the same timestamp", "raise targets snapshot; publish", "ok:" + kTwo},
    {"unknown members", R"(set /timestamp/x {"ü":"\"\\\n","b":[1,-1,true,null]}; release)",
     "ok:" + kAll, kNew},
    {"names without versions",
     "set /root/consistent_snapshot false; publishRoot; noHashes; release;"
     "copy 6.snapshot snapshot; copy 6.targets targets",
     "Network: 2.root 3.root timestamp snapshot targets t/a",
     "root 2, snapshot 6, targets 6, timestamp 6", "a"},
    // Packages.
    {"endless package", "package content.of.a.", "Size:" + kTwo + " t/#.a", kOld, "a"},
    {"cut package", "package content.of", "Size:" + kTwo + " t/#.a", kOld, "a"},
    {"only unknown hashes", R"(set /targets/targets/a/hashes {"newer":"00"}; release)",
     "Mismatch:" + kAll, kNew, "a"},
    // Metadata.
    {"malicious mirror: root", "missing 500", "Network: 2.root"},
    {"malicious mirror: snapshot", "release; erase 6.snapshot", "Network:" + kThree, kStamped},
    {"rollback: timestamp", "set /timestamp/version 4; publish", "Rollback:" + kTwo},
    {"rollback: snapshot", "set /snapshot/version 4; raise timestamp; publish", "Rollback:" + kTwo},
    {"rollback: a role", "set /other/version 4; release", "Rollback:" + kThree, kStamped},
    {"a role vanishes", "drop other; release", "Rollback:" + kThree, kStamped},
    {"freeze: timestamp", "expire timestamp; release", "Expired:" + kTwo},
    {"freeze: snapshot", "expire snapshot; release", "Expired:" + kThree, kStamped},
    {"freeze: targets", "expire targets; release", "Expired:" + kAll, kAlmost},
    {"endless: length unknown", "pad timestamp 65536", "Size:" + kTwo},
    {"endless: length stated", "release; pad 6.snapshot 1", "Size:" + kThree, kStamped},
    {"extraneous file", R"(raise timestamp; set /timestamp/meta/x {"version":1}; resign timestamp)",
     "Malformed:" + kTwo},
    {"mix-and-match: hash",
     R"(release; set /targets/expires "2098-01-01T00:00:00Z"; resign targets 6.targets)",
     "Mismatch:" + kAll, kAlmost},
    {"mix-and-match: version", "noHashes; release; copy 5.targets 6.targets", "Mismatch:" + kAll,
     kAlmost},
    {"another type", R"(set /timestamp/_type "snapshot"; release)", "Malformed:" + kTwo},
    {"only unknown hashes of a role",
     R"(release; set /timestamp/meta/snapshot.json/hashes {"newer":"00"}; resign timestamp)",
     "Mismatch:" + kThree, kStamped},
    // Keys.
    {"below the threshold", "set /root/roles/targets/threshold 2; publishRoot; release",
     "Unsigned: 2.root 3.root timestamp 6.snapshot 6.targets",
     "root 2, snapshot 6, targets 5, timestamp 6"},
    {"another role's key", "use timestamp targets; release", "Unsigned:" + kTwo},
    {"one key, two ids", "again timestamp 2; publishRoot; release; sign again *",
     "Unsigned: 2.root 3.root timestamp", "root 2, snapshot 5, targets 5, timestamp 5"},
    {"one id twice", "release; sign unknown 00; sign unknown 00", "Malformed:" + kTwo},
    {"signatures that say nothing",
     "again timestamp 1; publishRoot; release; sign again 0g; sign unknown 00; sign empty -",
     "ok: 2.root 3.root timestamp 6.snapshot 6.targets",
     "root 2, snapshot 6, targets 6, timestamp 6"},
    // Roots.
    {"missed rotations",
     "rotate root; publishRoot; rotate targets; publishRoot; rotate root; publishRoot; release",
     "ok: 2.root 3.root 4.root 5.root timestamp 6.snapshot 6.targets",
     "root 4, snapshot 6, targets 6, timestamp 6"},
    {"not by the old keys", "rotate root; raise root; resign root 2.root", "Unsigned: 2.root"},
    {"not by its own keys", "set /root/roles/root/threshold 2; publishRoot", "Unsigned: 2.root"},
    {"a root left out", "set /root/version 3; resign root 2.root", "Rollback: 2.root"},
    {"the same root", "copy 1.root 2.root", "Rollback: 2.root"},
    {"expired root", "expire root; publishRoot", "Expired: 2.root 3.root",
     "root 2, snapshot 5, targets 5, timestamp 5"},
    {"expired root in between", "expire root; publishRoot; revive root; publishRoot",
     "ok: 2.root 3.root 4.root timestamp", "root 3, snapshot 5, targets 5, timestamp 5"},
};

TEST(TufClient, AnswersAttacks) {
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.name);
    TestRepository repository;
    Machine machine(repository);
    EXPECT_EQ(machine.run(), "ok:" + kTwo + " 5.snapshot 5.targets");
    repository.play(row.script);
    EXPECT_EQ(machine.run(row.target), row.outcome);
    EXPECT_EQ(machine.stored(), row.stored);
  }
}

/// With stolen keys the highest versions have been signed; new keys begin again. The change is
/// remembered although a run ends before it gets to the timestamp.
TEST(TufClient, RecoversFromFastForward) {
  for (const std::string role : {"timestamp", "snapshot"}) {
    SCOPED_TRACE(role);
    TestRepository repository;
    Machine machine(repository);
    repository.play("set /timestamp/version 99; set /snapshot/version 99; set /targets/version 99");
    repository.play("publish");
    EXPECT_EQ(machine.run(), "ok:" + kTwo + " 99.snapshot 99.targets");
    repository.play("rotate " + role + "; expire root; publishRoot");
    EXPECT_EQ(machine.run(), "Expired: 2.root 3.root");
    repository.play("revive root; publishRoot; set /timestamp/version 6; set /snapshot/version 6");
    repository.play("set /targets/version 6; publish");
    EXPECT_EQ(machine.run(), "ok: 3.root 4.root timestamp 6.snapshot 6.targets");
  }
}

TEST(TufClient, TrustsNoDamagedFile) {
  TestRepository repository;
  repository.publishRoot();
  Machine machine(repository);
  machine.limits.newRoots = 1;
  EXPECT_EQ(machine.run(), "ok:" + kTwo + " 5.snapshot 5.targets");
  for (const std::string name : {"timestamp", "snapshot", "targets"}) {
    const std::string good = content(machine / (name + ".json"));
    writeFile(machine / (name + ".json"), good.substr(1));
    EXPECT_EQ(machine.run(), "ok: 3.root timestamp" + (name == "timestamp" ? "" : " 5." + name));
    EXPECT_EQ(content(machine / (name + ".json")), good);
  }
  // With the timestamp lost, the snapshot still knows of a rollback.
  writeFile(machine / "timestamp.json", "");
  repository.play("set /snapshot/version 4; publish");
  EXPECT_EQ(machine.run(), "Rollback: 3.root timestamp 4.snapshot");
  std::string root = content(machine / "root.json");
  writeFile(machine / "root.json", root.replace(root.find("2099"), 4, "2100"));
  EXPECT_EQ(machine.run(), "Unsigned:");
  std::filesystem::remove(machine / "root.json");
  EXPECT_EQ(machine.run(), "Storage:");
}

struct SearchCase {
  const char* name;
  std::string script;
  std::string outcome;  ///< requests from the first delegated role on
  const char* target = "p/x";
};

const SearchCase kSearches[] = {
    {"the first that describes it", "to targets a b; add a p/x; add b p/x", "ok: 5.a t/p/#.x"},
    {"depth first", "to targets a b; to a c; add b p/x", "ok: 5.a 5.c 5.b t/p/#.x"},
    {"not behind a terminating one", "to targets a b; to a c; terminating a 0; add b p/x",
     "NotFound: 5.a 5.c"},
    {"behind a terminating one of other paths",
     R"(to targets c b; paths targets 1 ["p/*/x"]; terminating targets 1; add b p/x)",
     "ok: 5.b t/p/#.x"},
    {"all on the way must be trusted with it",
     R"(to targets a; to a b; paths a 0 ["q/*"]; add b p/x)", "NotFound: 5.a"},
    {"a cycle", "to targets a; to a b; to b a", "NotFound: 5.a 5.b"},
    {"two ways to one role", "to targets a b d; to a c; to b c; add d p/x",
     "ok: 5.a 5.c 5.b 5.d t/p/#.x"},
    {"two ways with different keys", "to targets a b d; to a c; rotate c; to b c; add d p/x",
     "Unsigned: 5.a 5.c"},
    {"hash prefixes",
     R"(to targets a b; prefixes targets 1 ["0e4da","b2"]; prefixes targets 2 ["00","e4d"];)"
     "add b p/x",
     "ok: 5.b t/p/#.x"},
    {"succinct roles",  // the name has the first five bits of the hash
     "to targets bins; to bins bin-1c; succinct bins; add bin-1c p/x",
     "ok: 5.bins 5.bin-1c t/p/#.x"},
    {"not in the snapshot", "to targets a; drop a", "NotFound:"},
    {"too many", "to targets a; to a b; to b c; to c d; to d e; to e f; add f p/x",
     "NotFound: 5.a 5.b 5.c 5.d 5.e"},
    {"names that would leave the folder",
     R"(to targets ../x; to ../x ?#; paths ../x 0 ["?/*"]; paths targets 1 ["*/*"]; add ?# d/ü?)",
     "ok: 5...%2Fx 5.%3F%23 t/d/#.%C3%BC%3F", "d/ü?"},
};

TEST(TufClient, SearchesDelegations) {
  for (const SearchCase& row : kSearches) {
    SCOPED_TRACE(row.name);
    TestRepository repository;
    repository.play(row.script);
    repository.release();
    Machine machine(repository);
    machine.limits.roles = 6;
    std::string outcome = machine.run(row.target);
    const std::size_t at = outcome.find(kAll);
    ASSERT_NE(at, std::string::npos) << outcome;
    EXPECT_EQ(outcome.erase(at, kAll.size()), row.outcome);
    if (row.target != std::string("p/x")) {
      EXPECT_EQ(machine.stored(), "%3F%23 5, ..%2Fx 5, " + kNew);
    }
  }
}

}  // namespace
