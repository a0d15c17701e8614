#include "tuf/metadata.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>

#include "Files.h"
#include "TempFolder.h"
#include "TestRepository.h"
#include "tuf/Error.h"
#include "tuf/address.h"
#include "tuf/delegation.h"
#include "tuf/trustedSet.h"

namespace {

using tuf::Json;

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
      {"1e2", nullptr},
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

TEST(TufMetadata, RefusesWhatTheFormatForbids) {
  TestRepository repository;
  repository.play(R"(to targets d; prefixes targets 1 ["00"]; terminating targets 1)");
  const struct {
    const char* role;
    const char* pointer;
    const char* value;  // empty: the member is missing
    bool accepted = false;
  } kCases[] = {
      {"root", "/_type", "\"targets\""},
      {"root", "/spec_version", "\"2.0.0\""},
      {"root", "/spec_version", "\"1\""},
      {"root", "/spec_version", "\"1.0.31-rc.1+x\"", true},
      {"root", "/version", "0"},
      {"root", "/version", "-1"},
      {"root", "/version", "\"1\""},
      {"root", "/expires", "\"2099-02-29T00:00:00Z\""},
      {"root", "/expires", "\"2096-02-29T23:59:59Z\"", true},
      {"root", "/expires", "\"2099-01-01T24:00:00Z\""},
      {"root", "/expires", "\"2099-01-01T00:00:00.0Z\""},
      {"root", "/expires", "\"2099-01-01T00:00:00\""},
      {"root", "/consistent_snapshot", "1"},
      {"root", "/consistent_snapshot", "", true},
      {"root", "/roles/timestamp", ""},
      {"root", "/roles/timestamp/threshold", "0"},
      {"root", "/roles/timestamp/keyids", "{}"},
      {"root", "/keys/other", "{\"keytype\":\"new\",\"scheme\":\"new\",\"keyval\":1}"},
      {"root", "/keys/other",
       "{\"keytype\":\"new\",\"scheme\":\"new\",\"keyval\":{\"issuer\":\"\"}}", true},
      {"timestamp", "/meta/snapshot.json", ""},
      {"snapshot", "/meta/targets.json", ""},
      {"snapshot", "/meta/targets.json/version", ""},
      {"snapshot", "/meta/targets.json/length", "-1"},
      {"snapshot", "/meta/targets.json/hashes", "{}"},
      {"snapshot", "/meta", "[]"},
      {"targets", "/targets/a/length", ""},
      {"targets", "/targets/a/hashes", ""},
      {"targets", "/targets/a/hashes/sha256", "1"},
      {"targets", "/targets/a/custom", "1"},
      {"targets", "/delegations", "", true},
      {"targets", "/delegations/keys", ""},
      {"targets", "/delegations/roles", ""},
      {"targets", "/delegations/succinct_roles", "{}"},
      {"targets", "/delegations/roles/1/name", "\"root\""},
      {"targets", "/delegations/roles/1/name", "\"\""},
      {"targets", "/delegations/roles/1/name", "\"other\""},
      {"targets", "/delegations/roles/1/paths", "[\"*\"]"},
      {"targets", "/delegations/roles/1/terminating", "0"},
      {"targets", "/delegations/roles/1/terminating", "", true},
  };
  for (const auto& [role, pointer, value, accepted] : kCases) {
    SCOPED_TRACE(std::string(role) + pointer + ' ' + value);
    Json content = repository.content[role];
    const Json::json_pointer at(pointer);
    if (*value != '\0') {
      content[at] = Json::parse(value);
    } else {
      content[at.parent_pointer()].erase(at.back());
    }
    bool refused = false;
    try {
      if (role == std::string("root")) (void)tuf::parseRoot(std::move(content));
      if (role == std::string("timestamp")) (void)tuf::parseTimestamp(std::move(content));
      if (role == std::string("snapshot")) (void)tuf::parseSnapshot(std::move(content));
      if (role == std::string("targets")) (void)tuf::parseTargets(std::move(content));
    } catch (const tuf::Error& e) {
      refused = e.kind() == tuf::ErrorKind::Malformed;
    }
    EXPECT_EQ(refused, !accepted);
  }
}

TEST(TufDelegation, MatchesPatterns) {
  const struct {
    const char* pattern;
    const char* path;
    bool matches;
  } kCases[] = {
      {"targets/*.tgz", "targets/foo.tgz", true},
      {"targets/*.tgz", "targets/foo.txt", false},
      {"foo-version-?.tgz", "foo-version-2.tgz", true},
      {"foo-version-?.tgz", "foo-version-alpha.tgz", false},
      {"*.tgz", "targets/foo.tgz", false},
      {"foo.tgz", "foo.tgz", true},
      {"*", "", true},
      {"?", "", false},
      {"?", "/", false},
      {"?", "\u00fc", true},
      {"*a*b/*c", "xaxbxb/c", true},
      {"*a*b/*c", "xaxbx/c", false},
      {"a?c*", "a?c", true},
      {"[ab]", "a", false},
      {"a", "", false},
      {"", "a", false},
  };
  for (const auto& [pattern, path, matches] : kCases) {
    EXPECT_EQ(tuf::matchesPattern(pattern, path), matches) << pattern << ' ' << path;
  }
}

/// The files of a repository through all rules; the canonical forms of what was taken.
std::vector<std::string> takeAll(const std::array<std::string, 5>& files) {
  tuf::TrustedSet trusted(files[0], 1'700'000'000);
  trusted.updateRoot(files[1]);
  trusted.updateTimestamp(files[2]);
  trusted.updateSnapshot(files[3]);
  trusted.updateTargets(files[4]);
  std::vector<std::string> taken;
  for (const std::string& file : files) taken.push_back(tuf::Envelope(file).canonical);
  return taken;
}

TEST(TufTrustedSet, TakesNoFileWithAByteChanged) {
  TestRepository repository;
  repository.withHashes = false;  // signatures alone must do
  repository.publishRoot();
  repository.release();
  auto& files = repository.files;
  const std::array<std::string, 5> good = {files["r/1.root.json"], files["r/2.root.json"],
                                           files["r/timestamp.json"], files["r/6.snapshot.json"],
                                           files["r/6.targets.json"]};
  const std::vector<std::string> expected = takeAll(good);
  int refused = 0;
  for (std::size_t file = 0; file < good.size(); ++file) {
    for (std::size_t at = 0; at < good[file].size(); ++at) {
      std::array<std::string, 5> changed = good;
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

/// Stored files that have expired meanwhile: new ones are held against them, but they do not do.
TEST(TufTrustedSet, AsksAgainForWhatHasExpired) {
  TestRepository repository;
  repository.play("expire timestamp; expire snapshot; publish");
  auto& files = repository.files;
  tuf::TrustedSet trusted(files["r/1.root.json"], 1'700'000'000);
  trusted.loadTimestamp(files["r/timestamp.json"]);
  EXPECT_FALSE(trusted.loadSnapshot(files["r/5.snapshot.json"]));
  repository.play("revive timestamp; publish");
  EXPECT_THROW(trusted.updateTimestamp(files["r/timestamp.json"]), tuf::Error);
}

TEST(TufAddress, GivesEachNameAFileOfItsOwn) {
  EXPECT_EQ(tuf::roleFile("root"), "root.json");
  EXPECT_EQ(tuf::roleFile("Root"), "%52oot.json");
  EXPECT_EQ(tuf::roleFile(std::string(999, '/')).size(), 245U);
  EXPECT_NE(tuf::targetFile(std::string(999, 'x')), tuf::targetFile(std::string(998, 'x')));
}

/// What a command prints and its status, as openssl judges.
std::string outputOf(const std::string& command) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
      ::popen(("{ " + command + "; } 2>&1").c_str(), "r"), &::pclose);
  std::array<char, 4096> text{};
  return {text.data(), std::fread(text.data(), 1, text.size(), pipe.get())};
}

TEST(TufSignatures, AreThoseOfOpenssl) {
  const TempFolder folder;
  const std::string in = "cd " + folder.path().string() + " && ";
  const std::string message = "a message";
  writeFile(folder / "message", message);
  const std::string ec = "-algorithm EC -pkeyopt ec_paramgen_curve:P-";
  const std::string rsa = "-algorithm RSA -pkeyopt rsa_keygen_bits:";
  const std::string pss = " -pkeyopt rsa_padding_mode:pss";
  const std::string p256 = "ecdsa-sha2-nistp256";
  const struct {
    std::string generate;
    std::string options;
    tuf::Key key;
    bool usable = true;
  } kCases[] = {
      {"-algorithm ed25519", "", {"ed25519", "ed25519", ""}},
      {ec + "256", " -digest sha256", {"ecdsa", p256, ""}},
      {ec + "256", " -digest sha256", {p256, p256, ""}},
      {ec + "384", " -digest sha256", {"ecdsa", p256, ""}, false},
      {rsa + "2047", " -digest sha256" + pss, {"rsa", "rsassa-pss-sha256", ""}, false},
      {rsa + "2048", " -digest sha256" + pss, {"rsa", "rsassa-pss-sha256", ""}},
  };
  for (const auto& [generate, options, listed, usable] : kCases) {
    SCOPED_TRACE(generate);
    outputOf(in + "openssl genpkey -out key " + generate +
             " && openssl pkey -in key -pubout -out public"
             " && openssl pkeyutl -sign -rawin -inkey key -in message -out signature" +
             options);
    tuf::Key key = listed;
    key.publicKey = content(folder / "public");
    if (key.type == "ed25519") {
      key.publicKey =
          outputOf(in + "openssl pkey -in key -pubout -outform DER | tail -c 32 | xxd -p -c 32");
      key.publicKey.pop_back();
    }
    const tuf::KeyPtr loaded = loadKey(key);
    ASSERT_EQ(loaded != nullptr, usable);
    if (!usable) continue;
    std::string signature = content(folder / "signature");
    EXPECT_TRUE(tuf::isSignature(loaded.get(), message, signature));
    EXPECT_FALSE(tuf::isSignature(loaded.get(), message + '.', signature));
    EXPECT_FALSE(tuf::isSignature(loaded.get(), message, ""));
  }
}

}  // namespace
