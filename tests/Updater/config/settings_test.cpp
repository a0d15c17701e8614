// The settings file: what it may say, and what a person is told whose file is wrong.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <variant>

#include "Files.h"
#include "Updater/config/settingsParser.h"

namespace {

using namespace std::chrono_literals;

Settings settingsOf(const std::string& text) {
  auto parsed = parseSettings(text);
  if (const auto* const fault = std::get_if<SettingsFault>(&parsed)) {
    ADD_FAILURE() << describeFault("f", *fault);
    return {};
  }
  return std::get<Settings>(parsed);
}

TEST(Settings, TellWhatIsWrongAndWhatToDo) {
  constexpr const char* kAddress = "an address such as \"https://updates.example.com/agent\"";
  constexpr const char* kTime = "a duration with a unit (s, m, h, d), such as \"30m\"";
  constexpr const char* kSize = "a size such as \"64MiB\" (KiB, MiB, GiB, or bytes without a unit)";
  const std::string windows =
      "\"rollout.window\" takes a list of times such as "
      "[\"Mon-Fri 01:00-04:00\", \"Sun 22:00-02:00\"]; here is ";
  const struct {
    const char* text;
    std::string expected;
  } kCases[] = {
      {"server = \n", "f:1:10: Error while parsing key-value pair: expected value, saw '\\n'"},
      {"\n[fetch]\nproxi = 'x'",
       "f:3:1: unknown key \"fetch.proxi\"; did you mean \"fetch.proxy\"?"},
      {"proxy = 'x'", "f:1:1: unknown key \"proxy\"; did you mean \"fetch.proxy\"?"},
      {"[rollot]\n", "f:1:2: unknown key \"rollot\"; did you mean \"rollout\"?"},
      {"[[fetch]]\n",
       "f:1:3: \"fetch\" is a section: write [fetch] once, on a line of its own, with its keys "
       "below it"},
      {"server = 'ftp://a.example'",
       std::string("f:1:10: \"server\" takes ") + kAddress + "; here is \"ftp://a.example\""},
      {"server = 'http://a.example/x?y=1'", std::string("f:1:10: \"server\" takes ") + kAddress +
                                                "; here is \"http://a.example/x?y=1\""},
      {"server = 7", std::string("f:1:10: \"server\" takes ") + kAddress + "; here is 7"},
      {"mirrors = ['https://m.example']",
       "f:1:11: \"mirrors\" are used only with [trust], which tells a mirror's packages from "
       "forged "
       "ones: add that section or remove this key"},
      {"[trust]\nchannel = 'a b'",
       "f:2:11: \"trust.channel\" takes a name of letters, digits, \".\", \"_\" and \"-\"; here is "
       "\"a b\""},
      {"[trust]\n",
       "f:1:1: [trust] needs \"root\": the path of the first trusted root, which the publisher of "
       "the packages gives out"},
      {"[trust]\nroot = 'root.json'",
       "f:2:8: \"trust.root\" takes a path that begins with \"/\"; here is \"root.json\""},
      {"[fetch]\nclient_cert = '/c.pem'",
       "f:1:1: \"fetch.client_cert\" and \"fetch.client_key\" belong together: set both or none"},
      {"[fetch]\ndeadline = '0s'",
       "f:2:12: \"fetch.deadline\" takes a duration of at least \"1s\" (s, m, h, d), such as "
       "\"30m\"; here is \"0s\""},
      {"[install]\nlock_wait = '2 h'",
       std::string("f:2:13: \"install.lock_wait\" takes ") + kTime + "; here is \"2 h\""},
      {"[install]\nreserve = '64MB'",
       std::string("f:2:11: \"install.reserve\" takes ") + kSize + "; here is \"64MB\""},
      {"[install]\nrehearse = 'yes'",
       "f:2:12: \"install.rehearse\" takes true or false, without quotes; here is \"yes\""},
      {"[install]\nconffiles = true",
       "f:2:13: \"install.conffiles\" takes \"keep\" or \"replace\"; here is true"},
      {"[health]\nkeep = 1.5",
       "f:2:8: \"health.keep\" takes a number from 0 to 9, without quotes; here is a fraction"},
      {"[rollout]\nwindow = ['Mon 01:00-02:00', 'Mon-Fry 01:00-04:00']",
       "f:2:30: " + windows + "\"Mon-Fry 01:00-04:00\""},
      {"[rollout]\nwindow = 'Mon 01:00-02:00'", "f:2:10: " + windows + "\"Mon 01:00-02:00\""},
      {"[rollout]\npin = '7.*.1'",
       "f:2:7: \"rollout.pin\" takes a version such as \"7.2.1.15\", or its beginning and a \"*\", "
       "such "
       "as \"7.2.*\"; here is \"7.*.1\""},
      {"[report]\nhistory = 2006-01-02",
       "f:2:11: \"report.history\" takes a size of at least \"4KiB\", such as \"1MiB\"; here is a "
       "date or time"},
      {"[report]\ntextfile = '/a\tb'",
       "f:2:12: \"report.textfile\" takes a path that begins with \"/\"; here is \"/a?b\""},
  };
  for (const auto& [text, expected] : kCases) {
    const auto parsed = parseSettings(text);
    const auto* const fault = std::get_if<SettingsFault>(&parsed);
    ASSERT_NE(fault, nullptr) << text;
    EXPECT_EQ(describeFault("f", *fault), expected) << text;
  }
}

TEST(Settings, AreThoseOfTheExampleWithEveryKeySet) {
  const std::string example = content(QD_SOURCE_DIR "/docs/update.toml.example");
  EXPECT_TRUE(settingsOf(example).server.empty());
  const std::regex comment("\n#(\\[|[a-z_]+ = )");
  const Settings s = settingsOf(std::regex_replace(example, comment, "\n$1"));
  EXPECT_EQ(s.server, "https://updates.example.com/agent");
  EXPECT_EQ(s.trust.value().channel, TrustSettings().channel);
  EXPECT_EQ(s.fetch.rate, 2U << 20);
  EXPECT_EQ(s.fetch.deadline, Settings().fetch.deadline);
  EXPECT_EQ(s.install.lockWait, Settings().install.lockWait);
  EXPECT_EQ(s.install.reserve, Settings().install.reserve);
  EXPECT_FALSE(s.install.replaceConffiles);
  EXPECT_EQ(s.health.value().timeout, HealthSettings().timeout);
  EXPECT_EQ(s.rollout.value().minAge, 72h);
  EXPECT_EQ(s.rollout.value().windows,
            (std::vector<Window>{{0x1f, 60, 240}, {0x60, 22 * 60, 6 * 60}}));
  EXPECT_EQ(s.report.history, Settings().report.history);
  EXPECT_FALSE(s.hasPassword);
}

TEST(Settings, KnowAPasswordAndHideIt) {
  EXPECT_TRUE(settingsOf("fetch.proxy = 'u:p@proxy:3128'").hasPassword);
  const Settings s = settingsOf("server = 'https://u:p@a.example/x/'");
  EXPECT_TRUE(s.hasPassword);
  EXPECT_EQ(withoutPassword(s.server), "https://a.example/x");
  EXPECT_EQ(withoutPassword("https://a.example/x"), "https://a.example/x");
}

TEST(Settings, OpenAWindowOnTheDaysNamed) {
  constexpr struct {
    const char* text;
    unsigned int days;
    int opens;
    int closes;
  } kCases[] = {{"00:00-24:00", 0x7f, 0, 1440},
                {"Fri-Mon 23:59-00:00", 0x71, 1439, 0},
                {"Sun,Tue-Wed 01:00-04:30", 0x46, 60, 270}};
  for (const auto& [text, days, opens, closes] : kCases) {
    EXPECT_EQ(parseWindow(text), (Window{days, opens, closes})) << text;
  }
  for (const char* const text : {"", "Mon", "Mon 1:00-2:00", "01:00-01:00", "24:00-01:00",
                                 "01:00-24:01", "01:60-02:00", "Mon- 01:00-02:00"}) {
    EXPECT_EQ(parseWindow(text), std::nullopt) << text;
  }
}

TEST(Settings, PinVersionsNumberByNumber) {
  constexpr struct {
    const char* pin;
    const char* version;
    bool allowed;
  } kCases[] = {{"*", "1.2.3.4", true},
                {"7.2.*", "7.2.0.0", true},
                {"7.2.*", "7.20.0.0", false},
                {"7.2.1.15", "7.2.1.15", true},
                {"7.2.1.15", "7.2.1.1", false}};
  for (const auto& [pin, version, allowed] : kCases) {
    EXPECT_EQ(VersionPin::parse(pin).value().allows(Version(version)), allowed) << pin;
  }
  for (const char* const pin : {"", "7.2", "7.2.1.5.*", "7.2.", "7.-2.*", "7.2.1.1.1"}) {
    EXPECT_FALSE(VersionPin::parse(pin)) << pin;
  }
}

}  // namespace
