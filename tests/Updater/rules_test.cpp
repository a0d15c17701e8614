// The rules that no system call takes part in: versions, names, texts and decisions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Updater/Version.h"
#include "Updater/agentUnit.h"
#include "Updater/commandLine.h"
#include "Updater/lockFile.h"
#include "Updater/processStart.h"
#include "Updater/updateRules.h"
#include "Updater/utilsPlatform.h"
#include "Updater/utilsShell.h"

namespace {

using namespace utils;

std::string printed(const Version& version) {
  std::ostringstream out;
  out << std::hex;
  version.print(out);
  return out.str();
}

TEST(Version, ReadsFourNumbersByTheRulesOfScanf) {
  constexpr const char* kInvalid = "-1.-1.-1.-1";
  const struct {
    const char* text;
    const char* expected;
  } kCases[] = {
      {"7.2.1.15", "7.2.1.15"},
      {"7.2.1.15.3", "7.2.1.15"},
      {"7.2.1.15\n", "7.2.1.15"},
      {" \t+7. 2.\n1.15 word", "7.2.1.15"},
      {"7.-2.0.1", "7.-1.0.1"},
      {"07.08.009.0010", "7.8.9.10"},
      {"2147483647.0.0.0", "2147483647.0.0.0"},
      {"2147483648.0.0.0", kInvalid},
      {"1.2.3.4294967297", kInvalid},
      {"1.2.3.-99999999999999999999", kInvalid},
      {"-1.-1.-1.-1", kInvalid},
      {"7.2.1", kInvalid},
      {"7.2.1.", kInvalid},
      {"7 .2.1.15", kInvalid},
      {"7,2,1,15", kInvalid},
      {"v7.2.1.15", kInvalid},
      {"", kInvalid},
  };
  for (const auto& [text, expected] : kCases) {
    SCOPED_TRACE(text);
    const Version version{std::string(text)};
    EXPECT_EQ(printed(version), expected);
    EXPECT_EQ(version.isValid(), std::string(expected) != kInvalid);
  }
  EXPECT_FALSE(Version().isValid());
}

TEST(Version, ComparesNumberByNumber) {
  const char* const ascending[] = {"-1.0.0.0", "0.0.0.0", "7.-1.9.9", "7.2.0.0", "7.2.0.1",
                                   "7.2.1.0",  "7.9.9.9", "7.10.0.0", "8.0.0.0"};
  for (std::size_t a = 0; a < std::size(ascending); ++a) {
    for (std::size_t b = 0; b < std::size(ascending); ++b) {
      SCOPED_TRACE(std::string(ascending[a]) + " and " + ascending[b]);
      const Version left{std::string(ascending[a])};
      const Version right{std::string(ascending[b])};
      EXPECT_EQ(left < right, a < b);
      EXPECT_EQ(left <= right, a <= b);
      EXPECT_EQ(left == right, a == b);
    }
  }
}

TEST(UtilsPlatform, MapsArchitectureNames) {
  constexpr struct {
    const char* name;
    AgentArch expected;
  } kCases[] = {
      {"amd64", ArchAmd64},      {"x64", ArchAmd64},       {"x86_64", ArchAmd64},
      {"arm64", ArchArm64},      {"aarch64", ArchArm64},   {"x86", ArchX86},
      {"arm", ArchArm},          {"aarch32", ArchArm},     {"armv7l", ArchArm},
      {"my-armv7-box", ArchArm}, {"armv", ArchUnknown},    {"ARM64", ArchUnknown},
      {"i386", ArchUnknown},     {"x86_64 ", ArchUnknown}, {"", ArchUnknown},
  };
  for (const auto& [name, expected] : kCases) EXPECT_EQ(stringToAgentArch(name), expected) << name;
}

TEST(UtilsPlatform, MapsPackageKindsByExtension) {
  constexpr struct {
    const char* name;
    AgentDistrib expected;
  } kCases[] = {
      {"setup.deb", DistribDeb},     {"setup.rpm", DistribRpm},  {"setup.exe", DistribExe},
      {"setup.pkg", DistribPkg},     {"a.b.dmg", DistribDmg},    {"setup.spk", DistribSpk},
      {"pkg", DistribPkg},           {"setup.PKG", DistribNone}, {"setup.", DistribNone},
      {"setup.tar.gz", DistribNone}, {"a.pkg.gz", DistribNone},  {"", DistribNone},
  };
  for (const auto& [name, expected] : kCases) {
    EXPECT_EQ(stringToAgentDistrib(name), expected) << name;
  }
}

TEST(UtilsPlatform, NamesUnknownValues) {
  EXPECT_STREQ(agentOSToString(OsMacOSX), "Macosx");
  EXPECT_STREQ(agentOSToString(static_cast<AgentOS>(4)), "Unkown");
  EXPECT_STREQ(agentArchToString(ArchX86), "x86");
  EXPECT_STREQ(agentArchToString(static_cast<AgentArch>(-1)), "none");
  EXPECT_STREQ(agentDistribToString(DistribPkg), "pkg");
  EXPECT_STREQ(agentDistribToString(static_cast<AgentDistrib>(7)), "None");
}

TEST(UtilsPlatform, JoinsAndCutsNames) {
  EXPECT_EQ(joinPath("/tmp", "a"), "/tmp/a");
  EXPECT_EQ(joinPath("/tmp/", "a"), "/tmp/a");
  EXPECT_EQ(joinPath("/tmp", "/etc/a"), "/tmp//etc/a");
  EXPECT_EQ(joinPath("/tmp", ""), "/tmp");
  EXPECT_EQ(withoutExtension("a.b.dmg"), "a.b");
  EXPECT_EQ(withoutExtension("dmg"), "dmg");
}

TEST(UtilsShell, QuotesOnlyWhatNeedsIt) {
  constexpr struct {
    const char* text;
    const char* word;
    const char* quoted;
  } kCases[] = {
      {"/tmp/setup_1.2+3:4=5@6%7,8-9.deb", "/tmp/setup_1.2+3:4=5@6%7,8-9.deb",
       "/tmp/setup_1.2+3:4=5@6%7,8-9.deb"},
      {"a b", "'a b'", "a b"},
      {"it's", "'it'\\''s'", "it's"},
      {"a;reboot", "'a;reboot'", "a;reboot"},
      {"$(id)`id`\"\\", "'$(id)`id`\"\\'", "\\$(id)\\`id\\`\\\"\\\\"},
      {"\xC3\xA9", "'\xC3\xA9'", "\xC3\xA9"},
      {"", "", ""},
  };
  for (const auto& [text, word, quoted] : kCases) {
    EXPECT_EQ(shellWord(text), word);
    EXPECT_EQ(shellQuotedText(text), quoted);
  }
}

TEST(UpdateRules, FindsTheDigestBeforeTheFirstBlank) {
  EXPECT_EQ(digestIn("0123456789abcdef  setup.deb\n"), "0123456789abcdef");
  EXPECT_EQ(digestIn(" x"), "");
  EXPECT_EQ(digestIn("0123456789abcdef\n"), std::nullopt);
  EXPECT_EQ(digestIn("a\tb"), std::nullopt);
}

TEST(UpdateRules, BoundsADownload) {
  constexpr unsigned long long kMiB = 1ULL << 20;
  EXPECT_EQ(downloadLimit(0), 64 * kMiB);
  EXPECT_EQ(downloadLimit(64 * kMiB), 128 * kMiB);
  EXPECT_EQ(downloadLimit(100 * kMiB), 200 * kMiB);
  EXPECT_EQ(downloadLimit(~0ULL), ~0ULL);
  EXPECT_EQ(downloadLimit(~0ULL / 2 + 1), ~0ULL);
}

TEST(UpdateRules, BringsTheX11LibrariesAcrossTheirVersionOnly) {
  const struct {
    AgentOS os;
    const char* installed;
    const char* available;
    bool expected;
  } kCases[] = {
      {OsLinux, "7.1.5.2", "7.2.0.0", true},   {OsLinux, "7.2.0.0", "7.2.0.1", true},
      {OsLinux, "7.2.0.1", "7.3.0.0", false},  {OsLinux, "7.1.0.0", "7.1.9.9", false},
      {OsMacOSX, "7.1.5.2", "7.2.0.0", false},
  };
  for (const auto& [os, installed, available, expected] : kCases) {
    EXPECT_EQ(needsXCBDeps(os, Version{std::string(installed)}, Version{std::string(available)}),
              expected)
        << installed << " to " << available;
  }
}

TEST(UpdateRules, XCBCommandsHaveTheirExactText) {
  const XCBCommands deb = xcbCommands(DistribDeb);
  EXPECT_STREQ(deb.query, "dpkg -S libX11 > /dev/null 2>&1");
  const std::string gap(13, ' ');
  std::string expected = "apt-get install -y";
  for (const char* const name :
       {"libxrender1",        "libxcb1",        "libxcb-render0", "libxcb-render-util0",
        "libxcb-shape0",      "libxcb-randr0",  "libxcb-xfixes0", "libxcb-xkb1",
        "libxcb-sync1",       "libxcb-shm0",    "libxcb-icccm4",  "libxcb-keysyms1",
        "libxcb-image0",      "libxcb-util1",   "libxcb-cursor0", "libxkbcommon0",
        "libxkbcommon-x11-0", "libfontconfig1", "libfreetype6",   "libxext6",
        "libx11-xcb1",        "libsm6",         "libice6"}) {
    expected += gap + name;
  }
  EXPECT_EQ(deb.install, expected);

  const XCBCommands rpm = xcbCommands(DistribRpm);
  EXPECT_STREQ(rpm.query, "rpm -q libX11 > /dev/null 2>&1");
  expected = "dnf install -y";
  for (const char* const name :
       {"libXrender", "libxcb", "xcb-util", "xcb-util-keysyms", "xcb-util-image",
        "xcb-util-renderutil", "xcb-util-cursor", "xcb-util-wm", "libxkbcommon", "libxkbcommon-x11",
        "fontconfig", "freetype", "libXext", "libX11-xcb", "libSM", "libICE"}) {
    expected += std::string(" \t\t\t") + name;
  }
  EXPECT_EQ(rpm.install, expected);
  EXPECT_EQ(xcbCommands(DistribSpk).query, nullptr);
}

TEST(LockFile, HoldsForAnHourAndInTheFuture) {
  constexpr long long kNow = 1'700'000'000'000;
  EXPECT_TRUE(lockHolds(kNow, kNow));
  EXPECT_TRUE(lockHolds(kNow - 3600000, kNow));
  EXPECT_FALSE(lockHolds(kNow - 3600001, kNow));
  EXPECT_TRUE(lockHolds(kNow + 1, kNow));
  EXPECT_TRUE(lockHolds(9223372036854775807, kNow));
  EXPECT_FALSE(lockHolds(-9223372036854775807 - 1, kNow));
}

TEST(CommandLine, TakesTwoOrThreeArguments) {
  const auto read = [](std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "update");
    return readCommandLine(static_cast<int>(arguments.size()), arguments.data());
  };
  const auto plain = read({"68", "7.1.0.3"});
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->url + plain->version, "687.1.0.3");
  EXPECT_FALSE(plain->echo || plain->skipInstall);
  EXPECT_TRUE(read({"-D", "68", "7"})->echo);
  EXPECT_FALSE(read({"-D", "68", "7"})->skipInstall);
  EXPECT_TRUE(read({"-S", "68", "7"})->echo);
  EXPECT_TRUE(read({"-S", "68", "7"})->skipInstall);
  EXPECT_EQ(read({"-S", "68", "7"})->version, "7");
  for (const auto& arguments : std::vector<std::vector<const char*>>{
           {}, {"68"}, {"-d", "68", "7"}, {"-DD", "68", "7"}, {"-D", "68", "7", "8"}}) {
    EXPECT_FALSE(read(arguments));
  }
}

TEST(CommandLine, FindsTheDataFolderFileOfAnInstance) {
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", ""), "/etc/qd/conf/dbdir.cfg");
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", "a2"), "/etc/qd/conf.a2/dbdir.cfg");
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", "../a2"), "");
  EXPECT_NE(dataFolderFile("/etc/qd/conf", std::string(1055 - 13, 'x')), "");
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", std::string(1055 - 12, 'x')), "");
}

TEST(AgentUnit, IsRecognisedInBothHierarchies) {
  constexpr struct {
    const char* cgroups;
    bool expected;
  } kCases[] = {
      {"0::/system.slice/qdagent.service\n", true},
      {"0::/../system.slice/qdagent.service/child\n", true},
      {"2:cpu:/\n1:name=systemd:/system.slice/qdagent.service\n0::/\n", true},
      {"0::/system.slice/other-qdagent.service\n", false},
      {"0::/system.slice/qdagent-update-7.scope\n", false},
      {"0::/user.slice/session-1.scope\n", false},
      {"", false},
  };
  for (const auto& [cgroups, expected] : kCases) {
    EXPECT_EQ(isInUnit(cgroups, "qdagent.service"), expected) << cgroups;
  }
}

TEST(ProcessStart, CompletesThePath) {
  EXPECT_EQ(completedPath(nullptr), "/usr/sbin:/usr/bin:/sbin:/bin");
  EXPECT_EQ(completedPath(""), "/usr/sbin:/usr/bin:/sbin:/bin");
  EXPECT_EQ(completedPath("/opt/bin:/usr/bin"), "/opt/bin:/usr/bin:/usr/sbin:/sbin:/bin");
  EXPECT_EQ(completedPath("/bin:/sbin:/usr/bin:/usr/sbin"), "/bin:/sbin:/usr/bin:/usr/sbin");
}

}  // namespace
