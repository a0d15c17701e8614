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
      {"Sun 02:30-03:15", "2026-03-28T20:00:00Z", "2026-03-29T01:00:00Z"},  // no 02:30 that night
      {"Sun 02:15-02:45", "2026-03-28T20:00:00Z", "2026-04-05T00:15:00Z"},
      {"Sun 02:15-02:45", "2026-10-25T00:45:00Z", "2026-10-25T01:15:00Z"},  // twice that night
      {"Sun 03:30-05:00", "2026-10-24T20:00:00Z", "2026-10-25T02:30:00Z"},
  };
  for (const auto& [window, now, opens] : kCases) {
    SCOPED_TRACE(std::string(window) + " at " + now);
    const auto next = nextOpen({parseWindow(window).value()}, at(now));
    EXPECT_EQ(next ? utcText(*next) : "never", opens);
  }
  ::unsetenv("TZ");
}

/// A release for all machines of its channel from a day on; `more` are further or other members.
nlohmann::json json(const char* version, const std::string& day, const nlohmann::json& more = {}) {
  nlohmann::json qd = {
      {"version", version},
      {"os", 3},
      {"arch", 1},
      {"kind", "deb"},
      {"unknown", 1},
      {"channels", {{"stable", {{"percent", 100}, {"start", day + "T00:00:00Z"}, {"hours", 0}}}}}};
  if (!more.is_null()) qd.merge_patch(more);
  return qd;
}

// Faults: any gate left out, asked in another order, or a lower version taken where none is due.
TEST(Rollout, ChoosesTheHighestVersionThatTheGatesLetThrough) {
  const nlohmann::json beta = {{"percent", 0}, {"start", "2026-01-01T00:00:00Z"}, {"hours", 0}};
  std::vector<Release> releases;
  for (const nlohmann::json& qd :
       {json("7.3.0.0", "2026-03-10", {{"channels", {{"stable", {{"hours", 10}}}}}}),
        json("7.2.9.0", "2026-03-01", {{"halted", true}}),
        json("7.2.5.0", "2026-03-05", {{"min_from", "7.1.0.0"}}),
        json("7.1.0.0", "2026-01-01", {{"min_from", "6.9.0.0"}, {"channels", {{"beta", beta}}}})}) {
    releases.push_back(releaseFromJson(toJson(releaseFromJson(qd))));
  }
  std::vector<const Release*> all;
  for (const Release& release : releases) all.push_back(&release);
  const double slot = slotOf(kMachine, Version("7.3.0.0"));
  const std::string turn = utcText(at("2026-03-10T00:00:00Z") + 1s +
                                   std::chrono::seconds(static_cast<long>(slot * 36000)));
  const std::string aged = "2026-03-13T00:00:00Z";

  const struct {
    const char* installed;
    std::string now;
    const char* channel;
    const char* pin;
    const char* ages;
    const char* release;
    Gate gate;
    std::string until;
  } kCases[] = {
      {"7.2.1.4", "2026-03-11", "stable", "", "0s", "7.3.0.0", Gate::None, ""},
      {"7.2.1.4", "2026-03-10", "stable", "", "0s", "7.2.5.0", Gate::None, ""},
      {"7.2.5.0", "2026-03-10", "stable", "", "0s", "7.3.0.0", Gate::Share, turn},
      {"7.2.5.0", turn, "stable", "", "0s", "7.3.0.0", Gate::None, ""},
      {"7.3.0.0", "2026-03-11", "stable", "", "0s", "", Gate::None, ""},
      {"7.0.0.0", "2026-03-06", "stable", "", "0s", "7.1.0.0", Gate::None, ""},
      {"7.2.1.4", "2026-03-06", "stable", "", "3d", "7.3.0.0", Gate::Share, aged},
      {"7.2.1.4", "2026-03-11", "stable", "7.2.*", "8d", "7.3.0.0", Gate::Pin, ""},
      {"7.2.1.4", "2026-03-11", "stable", "7.3.*", "3d", "7.3.0.0", Gate::Age, aged},
      {"7.0.0.0", "2026-03-11", "beta", "", "0s", "7.1.0.0", Gate::Share, ""},
      {"6.8.0.0", "2026-03-11", "beta", "", "0s", "7.1.0.0", Gate::TooOld, ""},
      {"7.0.0.0", "2026-03-11", "other", "", "0s", "", Gate::None, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.installed) + " at " + c.now + " " + c.channel);
    const RolloutMachine machine{utils::OsLinux,    utils::ArchAmd64,
                                 utils::DistribDeb, Version(std::string(c.installed)),
                                 kMachine,          c.channel};
    RolloutSettings settings;
    settings.pin = VersionPin::parse(c.pin);
    settings.minAge = parseDuration(c.ages).value();
    const std::string now = c.now + (c.now == turn ? "" : "T00:00:00Z");
    const RolloutDecision decision = decideRollout(all, machine, settings, {}, at(now.c_str()));
    EXPECT_EQ(decision.release != nullptr ? versionText(decision.release->version) : "", c.release);
    EXPECT_EQ(decision.gate, c.gate) << decision.why;
    EXPECT_EQ(decision.until ? utcText(*decision.until) : "", c.until);
  }
}

// Faults: a member that is missing or of another type read as something else.
TEST(Rollout, RefusesFaultyReleases) {
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
    nlohmann::json faulty = json("7.2.1.15", "2026-03-01");
    faulty[nlohmann::json::json_pointer(name)] = value;
    EXPECT_THROW(releaseFromJson(faulty), std::runtime_error) << name << value;
  }
}

}  // namespace
