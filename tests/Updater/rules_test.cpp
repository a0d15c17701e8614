// The rules that no system call takes part in: versions, names, texts and decisions.

#include <gtest/gtest.h>

#include <sstream>

#include "Updater/command/utilsShell.h"
#include "Updater/procedure/lockFile.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/process/agentUnit.h"
#include "Updater/process/processStart.h"
#include "Updater/terms/Version.h"
#include "Updater/terms/utilsPlatform.h"

namespace {

using namespace utils;

std::string printed(const Version& version) {
  std::ostringstream out;
  version.print(out);
  return out.str();
}

TEST(Version, ReadsFourNumbersByTheRulesOfScanf) {
  constexpr const char* kInvalid = "-1.-1.-1.-1";
  const struct {
    const char* text;
    const char* expected;
  } kCases[] = {
      {"7.2.1.15.3\n", "7.2.1.15"},   {" \t+7. 2.\n1.15 word", "7.2.1.15"},
      {"07.08.009.0010", "7.8.9.10"}, {"2147483647.0.0.0", "2147483647.0.0.0"},
      {"2147483648.0.0.0", kInvalid}, {"1.2.3.-99999999999999999999", kInvalid},
      {"7.2.1.", kInvalid},           {"7 .2.1.15", kInvalid},
  };
  for (const auto& [text, expected] : kCases) {
    const Version version{std::string(text)};
    EXPECT_EQ(printed(version), expected) << text;
    EXPECT_EQ(version.isValid(), std::string(expected) != kInvalid);
  }
}

TEST(Version, ComparesNumberByNumber) {
  EXPECT_LT(Version("7.-1.9.9"), Version("7.2.0.1"));
  EXPECT_LT(Version("7.2.9.9"), Version("7.10.0.0"));
  EXPECT_LE(Version("7.2.1.0"), Version("7.2.1.0"));
  EXPECT_FALSE(Version("7.2.1.0") < Version("7.2.1.0"));
}

TEST(UtilsPlatform, MapsNames) {
  for (const char* const name : {"amd64", "x64", "x86_64"}) {
    EXPECT_EQ(stringToAgentArch(name), ArchAmd64);
  }
  EXPECT_EQ(stringToAgentArch("aarch64"), ArchArm64);
  EXPECT_EQ(stringToAgentArch("my-armv7-box"), ArchArm);
  EXPECT_EQ(stringToAgentArch("ARM64"), ArchUnknown);
  EXPECT_EQ(stringToAgentDistrib("a.b.dmg"), DistribDmg);
  EXPECT_EQ(stringToAgentDistrib("a.pkg.gz"), DistribNone);
}

TEST(UtilsShell, QuotesOnlyWhatNeedsIt) {
  constexpr struct {
    const char* text;
    const char* word;
    const char* quoted;
  } kCases[] = {
      {"/a_1.2+3:4=5@6%7,8-9.deb", "/a_1.2+3:4=5@6%7,8-9.deb", "/a_1.2+3:4=5@6%7,8-9.deb"},
      {"it's b", "'it'\\''s b'", "it's b"},
      {"$(id)`id`\"\\", "'$(id)`id`\"\\'", "\\$(id)\\`id\\`\\\"\\\\"},
      {"", "", ""},
  };
  for (const auto& [text, word, quoted] : kCases) {
    EXPECT_EQ(shellWord(text), word);
    EXPECT_EQ(shellQuotedText(text), quoted);
  }
}

TEST(UpdateRules, DecideByNumbersAndTexts) {
  EXPECT_EQ(digestIn("0123456789abcdef  setup.deb\n"), "0123456789abcdef");
  EXPECT_EQ(digestIn("a\tb\n"), std::nullopt);
  constexpr unsigned long long kMiB = 1ULL << 20;
  EXPECT_EQ(downloadLimit(100 * kMiB), 200 * kMiB);
  EXPECT_EQ(downloadLimit(~0ULL / 2 + 1), ~0ULL);
  constexpr long long kNow = 1'700'000'000'000;
  EXPECT_TRUE(lockHolds(kNow - 3600000, kNow));
  EXPECT_FALSE(lockHolds(kNow - 3600001, kNow));
}

TEST(ProcessStart, CompletesThePathAndRecognisesTheAgentsUnit) {
  EXPECT_EQ(completedPath(nullptr), "/usr/sbin:/usr/bin:/sbin:/bin");
  EXPECT_EQ(completedPath("/opt/bin:/usr/bin"), "/opt/bin:/usr/bin:/usr/sbin:/sbin:/bin");
  constexpr struct {
    const char* cgroups;
    bool expected;
  } kCases[] = {{"0::/../system.slice/qdagent.service/child\n", true},
                {"1:name=systemd:/system.slice/qdagent.service\n0::/\n", true},
                {"0::/system.slice/other-qdagent.service\n", false}};
  for (const auto& [cgroups, expected] : kCases) {
    EXPECT_EQ(isInUnit(cgroups, "qdagent.service"), expected) << cgroups;
  }
}

}  // namespace
