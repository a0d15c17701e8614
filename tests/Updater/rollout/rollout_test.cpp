#include <gtest/gtest.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>

#include "Updater/rollout/decision.h"
#include "Updater/rollout/slot.h"
#include "Updater/rollout/window.h"

namespace {

using namespace std::chrono_literals;

const std::string kMachine = "0123456789abcdef0123456789abcdef";

UnixTime at(const char* utc) { return parseUtc(utc).value(); }

// Faults: another digest, order of bytes or separator would give every machine another turn.
TEST(Rollout, SlotsAreTheSameEverywhere) {
  EXPECT_DOUBLE_EQ(slotOf(kMachine, Version("7.2.1.15")), 0.2163036815013023);
  EXPECT_DOUBLE_EQ(slotOf(kMachine, Version("7.2.1.16")), 0.32494105190796585);
  EXPECT_DOUBLE_EQ(slotOf(std::string(32, 'f'), Version("7.2.1.15")), 0.0678345186612781);
}

// Faults: a ramp that begins early, never ends, or tells a wrong next time.
TEST(Rollout, RampsAreLinesFromTheirStart) {
  const Ramp ramp{.percent = 50, .from = 10, .start = UnixTime(1000s), .hours = 1};
  EXPECT_EQ(shareAt(ramp, UnixTime(999s)), 0);
  EXPECT_DOUBLE_EQ(shareAt(ramp, UnixTime(1000s)), 0.1);
  EXPECT_DOUBLE_EQ(shareAt(ramp, UnixTime(2800s)), 0.3);
  EXPECT_DOUBLE_EQ(shareAt(ramp, UnixTime(9999999s)), 0.5);
  EXPECT_EQ(throughAt(ramp, 0.05), UnixTime(1000s));
  EXPECT_EQ(throughAt(ramp, 0.3), UnixTime(2801s));
  EXPECT_EQ(throughAt(ramp, 0.5), std::nullopt);
}

// Faults: midnight, the week's end, and the two nights on which the clocks change.
TEST(Rollout, WindowsAreLocalTime) {
  ::setenv("TZ", "Europe/Berlin", 1);
  const struct {
    const char* window;
    const char* now;
    const char* opens;
  } kCases[] = {
      {"Mon-Fri 01:00-04:00", "2026-03-02T02:59:59Z", "2026-03-02T02:59:59Z"},  // a Monday
      {"Mon-Fri 01:00-04:00", "2026-03-02T03:00:00Z", "2026-03-03T00:00:00Z"},
      {"Mon-Fri 01:00-04:00", "2026-03-06T03:00:00Z", "2026-03-09T00:00:00Z"},
      {"Sun 23:00-02:00", "2026-03-02T00:30:00Z", "2026-03-02T00:30:00Z"},
      {"Sun 23:00-02:00", "2026-03-02T01:00:00Z", "2026-03-08T22:00:00Z"},
      {"00:00-24:00", "2026-03-02T22:59:59Z", "2026-03-02T22:59:59Z"},
      {"Sun 02:30-05:00", "2026-03-28T20:00:00Z", "2026-03-29T01:30:00Z"},  // no 02:30 that night
      {"Sun 03:30-05:00", "2026-10-24T20:00:00Z", "2026-10-25T02:30:00Z"},
  };
  for (const auto& [window, now, opens] : kCases) {
    SCOPED_TRACE(std::string(window) + " at " + now);
    const auto next = nextOpen({parseWindow(window).value()}, at(now));
    EXPECT_EQ(next ? utcText(*next) : "never", opens);
  }
  ::unsetenv("TZ");
}

// Faults: any gate left out, asked in another order, or a lower version taken where none is due.
TEST(Rollout, ChoosesTheHighestVersionThatTheGatesLetThrough) {
  const char* const kReleases[] = {
      R"({"version": "7.3.0.0", "channels": {"stable": {"percent": 100, "start": "2026-03-10T00:00:00Z", "hours": 10}}})",
      R"({"version": "7.2.9.0", "halted": true, "channels": {"stable": {"percent": 100, "start": "2026-03-01T00:00:00Z", "hours": 0}}})",
      R"({"version": "7.2.5.0", "min_from": "7.1.0.0", "channels": {"stable": {"percent": 100, "start": "2026-03-05T00:00:00Z", "hours": 0}}})",
      R"({"version": "7.1.0.0", "min_from": "6.9.0.0", "channels": {"stable": {"percent": 100, "start": "2026-01-01T00:00:00Z", "hours": 0}, "beta": {"percent": 0, "start": "2026-01-01T00:00:00Z", "hours": 0}}})",
  };
  std::vector<Release> releases;
  for (const char* const text : kReleases) {
    nlohmann::json qd = nlohmann::json::parse(text);
    qd.update({{"os", 3}, {"arch", 1}, {"kind", "deb"}, {"unknown", 1}});
    releases.push_back(releaseFromJson(toJson(releaseFromJson(qd))));
  }
  std::vector<const Release*> all;
  for (const Release& release : releases) all.push_back(&release);
  const double slot = slotOf(kMachine, Version("7.3.0.0"));
  const UnixTime turn =
      at("2026-03-10T00:00:00Z") + 1s + std::chrono::seconds(static_cast<long>(slot * 36000));
  const std::string turnText = utcText(turn);

  const struct {
    const char* installed;
    const char* now;
    const char* channel;
    const char* pin;
    const char* ages;
    const char* inhibition;
    const char* release;
    Gate gate;
    std::string until;
  } kCases[] = {
      {"7.2.1.4", "2026-03-11T00:00:00Z", "stable", "", "0s", "", "7.3.0.0", Gate::None, ""},
      {"7.2.1.4", "2026-03-10T00:00:00Z", "stable", "", "0s", "", "7.2.5.0", Gate::None, ""},
      {"7.2.5.0", "2026-03-10T00:00:00Z", "stable", "", "0s", "", "7.3.0.0", Gate::Share, turnText},
      {"7.2.5.0", turnText.c_str(), "stable", "", "0s", "", "7.3.0.0", Gate::None, ""},
      {"7.3.0.0", "2026-03-11T00:00:00Z", "stable", "", "0s", "", "", Gate::None, ""},
      {"7.0.0.0", "2026-03-06T00:00:00Z", "stable", "", "0s", "", "7.1.0.0", Gate::None, ""},
      {"7.2.1.4", "2026-03-06T00:00:00Z", "stable", "", "3d", "", "7.3.0.0", Gate::Share, turnText},
      {"7.2.1.4", "2026-03-11T00:00:00Z", "stable", "7.2.*", "8d", "", "7.3.0.0", Gate::Pin, ""},
      {"7.2.1.4", "2026-03-11T00:00:00Z", "stable", "7.3.*", "3d", "", "7.3.0.0", Gate::Age,
       "2026-03-13T00:00:00Z"},
      {"7.2.1.4", "2026-03-11T00:00:00Z", "stable", "", "0s", "backup", "7.3.0.0", Gate::Inhibited,
       ""},
      {"7.0.0.0", "2026-03-11T00:00:00Z", "beta", "", "0s", "", "7.1.0.0", Gate::Share, ""},
      {"6.8.0.0", "2026-03-11T00:00:00Z", "beta", "", "0s", "", "7.1.0.0", Gate::TooOld, ""},
      {"7.0.0.0", "2026-03-11T00:00:00Z", "other", "", "0s", "", "", Gate::None, ""},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(std::string(test.installed) + " at " + test.now + " " + test.channel);
    const RolloutMachine machine{utils::OsLinux,    utils::ArchAmd64,
                                 utils::DistribDeb, Version(std::string(test.installed)),
                                 kMachine,          test.channel};
    RolloutSettings settings;
    if (*test.pin != '\0') settings.pin = VersionPin::parse(test.pin);
    settings.minAge = parseDuration(test.ages).value();
    const std::vector<std::string> inhibitions(*test.inhibition != '\0' ? 1 : 0, test.inhibition);
    const RolloutDecision decision =
        decideRollout(all, machine, settings, inhibitions, at(test.now));
    EXPECT_EQ(decision.release != nullptr ? versionText(decision.release->version) : "",
              test.release);
    EXPECT_EQ(decision.gate, test.gate) << decision.why;
    EXPECT_EQ(decision.until ? utcText(*decision.until) : "", test.until);
  }
}

// Faults: a member that is missing or of another type read as something else.
TEST(Rollout, RefusesFaultyReleases) {
  const nlohmann::json good = {
      {"version", "7.2.1.15"},
      {"os", 3},
      {"arch", 1},
      {"kind", "deb"},
      {"channels",
       {{"stable", {{"percent", 25}, {"start", "2026-03-01T00:00:00Z"}, {"hours", 24}}}}}};
  EXPECT_NO_THROW(releaseFromJson(good));
  for (const auto& [name, value] : std::initializer_list<std::pair<const char*, nlohmann::json>>{
           {"/version", "7.2.1"},
           {"/version", 7},
           {"/os", 4},
           {"/arch", 1.5},
           {"/kind", 1},
           {"/channels", 1},
           {"/channels/stable", 1},
           {"/channels/stable/percent", 101},
           {"/channels/stable/hours", -1},
           {"/channels/stable/start", "2026-02-30T00:00:00Z"},
           {"/min_from", "x"},
           {"/halted", 0}}) {
    nlohmann::json faulty = good;
    faulty[nlohmann::json::json_pointer(name)] = value;
    EXPECT_THROW(releaseFromJson(faulty), std::runtime_error) << name << value;
  }
}

}  // namespace
