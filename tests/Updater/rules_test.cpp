// The rules that no system call takes part in: versions, names, texts and decisions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "LogCapture.h"
#include "Updater/HttpClient.h"
#include "Updater/Version.h"
#include "Updater/agentUnit.h"
#include "Updater/commandLine.h"
#include "Updater/lockFile.h"
#include "Updater/processStart.h"
#include "Updater/updateRules.h"
#include "Updater/utilsPlatform.h"
#include "Updater/utilsShell.h"
#include "tools/QDException.h"

namespace {

using namespace utils;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::Pair;

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
      {"7.2.1.15.3\n", "7.2.1.15"},
      {" \t+7. 2.\n1.15 word", "7.2.1.15"},
      {"7.-2.0.1", "7.-1.0.1"},
      {"07.08.009.0010", "7.8.9.10"},
      {"2147483647.0.0.0", "2147483647.0.0.0"},
      {"2147483648.0.0.0", kInvalid},
      {"1.2.3.-99999999999999999999", kInvalid},
      {"-1.-1.-1.-1", kInvalid},
      {"7.2.1.", kInvalid},
      {"7 .2.1.15", kInvalid},
      {"v7.2.1.15", kInvalid},
      {"", kInvalid},
  };
  for (const auto& [text, expected] : kCases) {
    const Version version{std::string(text)};
    EXPECT_EQ(printed(version), expected) << text;
    EXPECT_EQ(version.isValid(), std::string(expected) != kInvalid);
  }
}

TEST(Version, ComparesNumberByNumber) {
  const char* const ascending[] = {"-1.0.0.0", "7.-1.9.9", "7.2.0.0",  "7.2.0.1",
                                   "7.2.1.0",  "7.9.9.9",  "7.10.0.0", "8.0.0.0"};
  for (std::size_t a = 0; a < std::size(ascending); ++a) {
    for (std::size_t b = 0; b < std::size(ascending); ++b) {
      const Version left{std::string(ascending[a])};
      const Version right{std::string(ascending[b])};
      EXPECT_EQ(left < right, a < b) << a << b;
      EXPECT_EQ(left <= right, a <= b) << a << b;
      EXPECT_EQ(left == right, a == b) << a << b;
    }
  }
}

TEST(UtilsPlatform, MapsNames) {
  const auto archs = [](std::initializer_list<const char*> names) {
    std::string all;
    for (const char* const name : names) all += agentArchToString(stringToAgentArch(name)) + " "s;
    return all;
  };
  const auto distribs = [](std::initializer_list<const char*> names) {
    std::string all;
    for (const char* const n : names) all += agentDistribToString(stringToAgentDistrib(n)) + " "s;
    return all;
  };
  EXPECT_EQ(archs({"amd64", "x64", "x86_64", "arm64", "aarch64"}),
            "amd64 amd64 amd64 arm64 arm64 ");
  EXPECT_EQ(archs({"x86", "arm", "aarch32", "my-armv7-box"}), "x86 arm arm arm ");
  EXPECT_EQ(archs({"armv", "ARM64", "i386", "x86_64 ", ""}), "none none none none none ");
  EXPECT_EQ(distribs({"s.deb", "s.rpm", "s.exe", "pkg", "a.b.dmg", "s.spk"}),
            "deb rpm exe pkg dmg spk ");
  EXPECT_EQ(distribs({"s.PKG", "s.tar.gz", "a.pkg.gz", ""}), "None None None None ");
  EXPECT_STREQ(agentOSToString(static_cast<AgentOS>(4)), "Unkown");
}

TEST(UtilsShell, QuotesOnlyWhatNeedsIt) {
  constexpr struct {
    const char* text;
    const char* word;
    const char* quoted;
  } kCases[] = {
      {"/a_1.2+3:4=5@6%7,8-9.deb", "/a_1.2+3:4=5@6%7,8-9.deb", "/a_1.2+3:4=5@6%7,8-9.deb"},
      {"it's b", "'it'\\''s b'", "it's b"},
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

TEST(UpdateRules, DecideByNumbersAndTexts) {
  EXPECT_EQ(digestIn("0123456789abcdef  setup.deb\n"), "0123456789abcdef");
  EXPECT_EQ(digestIn(" x"), "");
  EXPECT_EQ(digestIn("a\tb\n"), std::nullopt);

  constexpr unsigned long long kMiB = 1ULL << 20;
  EXPECT_EQ(downloadLimit(0), 64 * kMiB);
  EXPECT_EQ(downloadLimit(100 * kMiB), 200 * kMiB);
  EXPECT_EQ(downloadLimit(~0ULL / 2 + 1), ~0ULL);

  constexpr long long kNow = 1'700'000'000'000;
  EXPECT_TRUE(lockHolds(kNow - 3600000, kNow));
  EXPECT_FALSE(lockHolds(kNow - 3600001, kNow));
  EXPECT_TRUE(lockHolds(9223372036854775807, kNow));
  EXPECT_FALSE(lockHolds(-9223372036854775807 - 1, kNow));

  const Version old("7.1.5.2");
  const Version since("7.2.0.0");
  const Version next("7.2.0.1");
  EXPECT_TRUE(needsXCBDeps(OsLinux, old, since));
  EXPECT_TRUE(needsXCBDeps(OsLinux, since, next));
  EXPECT_FALSE(needsXCBDeps(OsLinux, next, Version("7.3.0.0")));
  EXPECT_FALSE(needsXCBDeps(OsLinux, old, Version("7.1.9.9")));
  EXPECT_FALSE(needsXCBDeps(OsMacOSX, old, since));
}

TEST(UpdateRules, X11CommandsHaveTheirExactText) {
  const auto joined = [](std::string command, const std::string& gap, const std::string& names) {
    std::istringstream in(names);
    for (std::string name; in >> name;) command += gap + name;
    return command;
  };
  const XCBCommands deb = xcbCommands(DistribDeb);
  const XCBCommands rpm = xcbCommands(DistribRpm);
  EXPECT_STREQ(deb.query, "dpkg -S libX11 > /dev/null 2>&1");
  EXPECT_STREQ(rpm.query, "rpm -q libX11 > /dev/null 2>&1");
  EXPECT_EQ(deb.install,
            joined("apt-get install -y", std::string(13, ' '),
                   "libxrender1 libxcb1 libxcb-render0 libxcb-render-util0 libxcb-shape0 "
                   "libxcb-randr0 libxcb-xfixes0 libxcb-xkb1 libxcb-sync1 libxcb-shm0 "
                   "libxcb-icccm4 libxcb-keysyms1 libxcb-image0 libxcb-util1 libxcb-cursor0 "
                   "libxkbcommon0 libxkbcommon-x11-0 libfontconfig1 libfreetype6 libxext6 "
                   "libx11-xcb1 libsm6 libice6"));
  EXPECT_EQ(rpm.install,
            joined("dnf install -y", " \t\t\t",
                   "libXrender libxcb xcb-util xcb-util-keysyms xcb-util-image "
                   "xcb-util-renderutil xcb-util-cursor xcb-util-wm libxkbcommon libxkbcommon-x11 "
                   "fontconfig freetype libXext libX11-xcb libSM libICE"));
  EXPECT_EQ(xcbCommands(DistribSpk).query, nullptr);
}

TEST(CommandLine, LeadsToTheDataFolderOfTheInstance) {
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", ""), "/etc/qd/conf/dbdir.cfg");
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", "a2"), "/etc/qd/conf.a2/dbdir.cfg");
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", "../a2"), "");
  EXPECT_NE(dataFolderFile("/etc/qd/conf", std::string(1055 - 13, 'x')), "");
  EXPECT_EQ(dataFolderFile("/etc/qd/conf", std::string(1055 - 12, 'x')), "");
}

TEST(ProcessStart, CompletesThePathAndRecognisesTheAgentsUnit) {
  const std::string all = "/usr/sbin:/usr/bin:/sbin:/bin";
  EXPECT_EQ(completedPath(nullptr), all);
  EXPECT_EQ(completedPath("/opt/bin:/usr/bin"), "/opt/bin:/usr/bin:/usr/sbin:/sbin:/bin");
  EXPECT_EQ(completedPath("/bin:/sbin:/usr/bin:/usr/sbin"), "/bin:/sbin:/usr/bin:/usr/sbin");
  constexpr struct {
    const char* cgroups;
    bool expected;
  } kCases[] = {{"0::/../system.slice/qdagent.service/child\n", true},
                {"1:name=systemd:/system.slice/qdagent.service\n0::/\n", true},
                {"0::/system.slice/other-qdagent.service\n", false},
                {"0::/system.slice/qdagent-update-7.scope\n", false},
                {"", false}};
  for (const auto& [cgroups, expected] : kCases) {
    EXPECT_EQ(isInUnit(cgroups, "qdagent.service"), expected) << cgroups;
  }
}

void feedHeader(HttpClient::Headers& headers, std::string line) {
  EXPECT_EQ(HttpClient::readHeadersCb(line.data(), 1, line.size(), &headers), line.size());
}

TEST(HttpClient, ReadsHeaderLinesInBounds) {
  HttpClient::Headers headers;
  for (const char* const line :
       {"HTTP/1.1 200 OK\r\n", "Content-Length:   1234  \r\n", "X-Time:\t12:30:45\r\n",
        "x-time: 2\r\n", "X-Twice: 1\r\n", "X-Twice: 2\r\n", "X-Empty:\r\n", "\r\n"}) {
    feedHeader(headers, line);
  }
  EXPECT_THAT(headers,
              ElementsAre(Pair("Content-Length", "1234"), Pair("X-Empty", ""),
                          Pair("X-Time", "12:30:45"), Pair("X-Twice", "2"), Pair("x-time", "2")));
  headers.clear();
  for (int i = 0; i < 2000; ++i) feedHeader(headers, "X-" + std::to_string(i) + ": v\r\n");
  EXPECT_EQ(headers.size(), 1000U);
  headers.clear();
  for (int i = 0; i < 20; ++i) {
    feedHeader(headers, std::to_string(i) + ":" + std::string(100000, 'v'));
  }
  EXPECT_EQ(headers.size(), 10U);
}

TEST(HttpClient, KeepsABodyInBounds) {
  std::string body(HttpClient::kMaxBody - 2, 'x');
  char data[] = "ab";
  EXPECT_EQ(HttpClient::readResponsCb(data, 1, 2, &body), 2U);
  EXPECT_EQ(HttpClient::readResponsCb(data, 1, 1, &body), 0U);
  EXPECT_EQ(body.size(), HttpClient::kMaxBody);
}

TEST(HttpClient, LogsEveryTenthPercentThatIsMet) {
  const LogCapture log(QDLOG_ROOT, 0);
  int last = 0;
  for (const curl_off_t now : {0, 9, 11, 20, 20, 30, 10, 30}) {
    EXPECT_EQ(HttpClient::progressCb(&last, 100, now, 0, 0), 0);
  }
  EXPECT_EQ(HttpClient::progressCb(&last, 0, 5, 0, 0), 0);
  EXPECT_EQ(HttpClient::progressCb(&last, 1LL << 40, 1LL << 40, 0, 0), 0);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY Loading 20%", "ROOT:NFY Loading 30%",
                                       "ROOT:NFY Loading 30%", "ROOT:NFY Loading 100%"));
}

TEST(GetContentLength, PrefersTheLowerCaseKey) {
  unsigned long long size = 99;
  HttpClient::Headers headers = {{"CONTENT-LENGTH", "1"}};
  EXPECT_EQ(getContentLength(headers, size), -1);
  EXPECT_EQ(size, 99U);
  headers["Content-Length"] = "5, 5";
  EXPECT_EQ(getContentLength(headers, size), 0);
  EXPECT_EQ(size, 5U);
  headers["content-length"] = "7";
  EXPECT_EQ(getContentLength(headers, size), 0);
  EXPECT_EQ(size, 7U);
  headers["content-length"] = "abc";
  EXPECT_THROW(getContentLength(headers, size), std::invalid_argument);
}

TEST(DecodeURL, ReadsPairsOfDigitsUpTo4095Bytes) {
  constexpr struct {
    const char* hex;
    const char* expected;
  } kCases[] = {{"68747470", "http"}, {"4a4B", "JK"}, {"687", "h"},
                {"68zz69", "h"},      {"6800", "h"},  {"http://x", ""}};
  for (const auto& [hex, expected] : kCases) EXPECT_EQ(decodeURL(hex), expected) << hex;
  const auto digits = [](std::size_t bytes) {
    std::string hex;
    while (hex.size() < 2 * bytes) hex += "61";
    return hex;
  };
  EXPECT_EQ(decodeURL(digits(4095)), std::string(4095, 'a'));
  for (const std::size_t bytes : {4096U, 4097U, 10000U}) {
    const LogCapture log(QDLOG_EXCP, 2);
    EXPECT_THROW(decodeURL(digits(bytes)), QDException);
    EXPECT_THAT(log.lines(), ElementsAre("EXCP:ERR NET: convertHexStrNullToBin: Buffer too small"));
  }
}

}  // namespace
