// The settings file: what it may say, and what a person is told whose file is wrong.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <variant>

#include "Files.h"
#include "Updater/config/settingsParser.h"
#include "fetch/address.h"

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

/// What is said of a key with a value that it does not take.
std::string takes(const std::string& place, const std::string& key, const std::string& what,
                  const std::string& here) {
  return "f:" + place + ": \"" + key + "\" takes " + what + "; here is " + here;
}

TEST(Settings, SayWhatIsWrongAndWhatToDo) {
  const std::string address = "an address such as \"https://updates.example.com/agent\"";
  const std::string time = "a duration of at most 3660d with a unit (s, m, h, d), such as \"30m\"";
  const std::string someTime = "a duration of at least \"1s\" (s, m, h, d), such as \"30m\"";
  const std::string size = "a size such as \"64MiB\" (KiB, MiB, GiB, or bytes without a unit)";
  const std::string path = "a path that begins with \"/\"";
  const std::string windows =
      "a list of times such as [\"Mon-Fri 01:00-04:00\", \"Sun 22:00-02:00\"]";
  const std::pair<const char*, std::string> kCases[] = {
      {"server = \n", "f:1:10: Error while parsing key-value pair: expected value, saw '\\n'"},
      {"\n[fetch]\nproxi = 'x'",
       "f:3:1: unknown key \"fetch.proxi\"; did you mean \"fetch.proxy\"?"},
      {"proxy = 'x'", "f:1:1: unknown key \"proxy\"; did you mean \"fetch.proxy\"?"},
      {"[rollot]\n", "f:1:2: unknown key \"rollot\"; did you mean \"rollout\"?"},
      {"[[fetch]]\n",
       "f:1:3: \"fetch\" is a section: write [fetch] once, on a line of its own, with its keys "
       "below it"},
      {"server = 'ftp://a.example'", takes("1:10", "server", address, "\"ftp://a.example\"")},
      {"server = 'http://a.example/?y=1'",
       takes("1:10", "server", address, "\"http://a.example/?y=1\"")},
      {"server = 7", takes("1:10", "server", address, "7")},
      {"rollout.min_age = '3d'",
       "f:1:19: \"min_age\" is used only with [trust], whose releases say "
       "since when they are there: add that section or remove this key"},
      {"mirrors = ['https://m.example']",
       "f:1:11: \"mirrors\" are used only with [trust], which tells a mirror's packages from "
       "forged ones: add that section or remove this key"},
      {"[trust]\nchannel = 'a b'",
       takes("2:11", "trust.channel", "a name of letters, digits, \".\", \"_\" and \"-\"",
             "\"a b\"")},
      {"[trust]\n",
       "f:1:1: [trust] needs \"root\": the path of the first trusted root, which the publisher of "
       "the packages gives out"},
      {"[trust]\nroot = 'root.json'", takes("2:8", "trust.root", path, "\"root.json\"")},
      {"[fetch]\nclient_cert = '/c.pem'",
       "f:1:1: \"fetch.client_cert\" and \"fetch.client_key\" belong together: set both or none"},
      {"[fetch]\ndeadline = '0s'", takes("2:12", "fetch.deadline", someTime, "\"0s\"")},
      {"[install]\nlock_wait = '2 h'", takes("2:13", "install.lock_wait", time, "\"2 h\"")},
      {"[install]\nreserve = '64MB'", takes("2:11", "install.reserve", size, "\"64MB\"")},
      {"[install]\nrehearse = 'yes'",
       takes("2:12", "install.rehearse", "true or false, without quotes", "\"yes\"")},
      {"[install]\nconffiles = true",
       takes("2:13", "install.conffiles", "\"keep\" or \"replace\"", "true")},
      {"[health]\nkeep = 1.5",
       takes("2:8", "health.keep", "a number from 0 to 9, without quotes", "a fraction")},
      {"[rollout]\nwindow = ['Mon 01:00-02:00', 'Mon-Fry 01:00-04:00']",
       takes("2:30", "rollout.window", windows, "\"Mon-Fry 01:00-04:00\"")},
      {"[rollout]\nwindow = 'Mon 01:00-02:00'",
       takes("2:10", "rollout.window", windows, "\"Mon 01:00-02:00\"")},
      {"[rollout]\npin = '7.*.1'",
       takes("2:7", "rollout.pin",
             "a version such as \"7.2.1.15\", or its beginning and a \"*\", such as \"7.2.*\"",
             "\"7.*.1\"")},
      {"[report]\nhistory = 2006-01-02",
       takes("2:11", "report.history", "a size of at least \"4KiB\", such as \"1MiB\"",
             "a date or time")},
      {"[report]\ntextfile = '/a\tb'", takes("2:12", "report.textfile", path, "\"/a?b\"")},
  };
  for (const auto& [text, expected] : kCases) {
    const auto parsed = parseSettings(text);
    const auto* const fault = std::get_if<SettingsFault>(&parsed);
    ASSERT_NE(fault, nullptr) << text;
    EXPECT_EQ(describeFault("f", *fault), expected) << text;
  }
}

TEST(Settings, AreThoseOfTheExampleWithEveryKeySet) {
  const std::string example = content("docs/update.toml.example");
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

TEST(Settings, HideAPassword) {
  const Settings s = settingsOf("server = 'https://u:p@a.example/x/'");
  EXPECT_TRUE(s.hasPassword);
  EXPECT_EQ(withoutPassword(s.server), "https://a.example/x");
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
