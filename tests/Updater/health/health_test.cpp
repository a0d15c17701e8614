#include <gtest/gtest.h>

#include "Updater/health/AgentWindow.h"
#include "Updater/health/Settling.h"
#include "Updater/health/checks.h"

namespace {

using std::chrono::milliseconds;

struct Seen {
  int at;
  std::vector<std::string> lines;
};

std::vector<std::string> unit(const std::string& active, const std::string& sub,
                              const std::string& pid, const std::string& restarts = "0",
                              const std::string& type = "notify") {
  return {"Type=" + type, "ActiveState=" + active, "SubState=" + sub, "MainPID=" + pid,
          "NRestarts=" + restarts};
}

// Faults: a crash between two looks, a unit that never gets ready or systemd's silence pass for
// health, or an unhealthy verdict comes while the unit may still get ready.
TEST(Health, UnitSettlesWithOneMainProcess) {
  const auto runs = unit("active", "running", "7");
  const auto since = [](const std::string& time) {
    auto lines = unit("active", "running", "7");
    lines.push_back("ActiveEnterTimestampMonotonic=" + time);
    return lines;
  };
  const struct {
    const char* name;
    std::vector<Seen> seen;
    std::optional<std::string> verdict;  ///< of the last; all before it want another look
  } kCases[] = {
      {"settled", {{0, runs}, {9999, runs}, {10000, runs}}, ""},
      {"not yet", {{0, runs}, {9999, runs}}, std::nullopt},
      {"late", {{0, unit("activating", "start", "7")}, {59999, runs}, {69999, runs}}, ""},
      {"reloads", {{0, runs}, {500, unit("reloading", "reload", "7")}, {10500, runs}}, ""},
      {"active before it was looked at",
       {{9999, since("7001000")}, {11000, runs}, {11001, runs}},
       ""},
      {"active before the start", {{400, since("1")}, {9999, runs}, {10000, runs}}, ""},
      {"active only now", {{400, since("99000000")}, {10399, runs}, {10400, runs}}, ""},
      {"never ready",
       {{59999, unit("activating", "start", "7")}, {60000, unit("activating", "start", "7")}},
       "its unit is still activating after 60 s"},
      {"failed", {{0, runs}, {500, unit("failed", "failed", "0")}}, "its unit is failed (failed)"},
      {"ended", {{0, unit("inactive", "dead", "0")}}, "its unit is inactive (dead)"},
      {"waits for its restart",
       {{0, unit("activating", "auto-restart", "0")}},
       "it ended, and systemd restarts it"},
      {"restarted",
       {{0, runs}, {500, unit("active", "running", "8")}},
       "it ended, and systemd restarted it"},
      {"restarted with the number of before",
       {{0, runs}, {500, unit("active", "running", "7", "1")}},
       "it ended, and systemd restarted it"},
      {"starts again",
       {{0, runs}, {500, unit("activating", "start", "8")}},
       "its unit is activating (start)"},
      {"no process",
       {{0, unit("active", "exited", "0")}},
       "its unit is active without a main process"},
      {"needs no process", {{0, unit("active", "exited", "0", "0", "oneshot")}}, std::nullopt},
      {"unknown process", {{0, unit("active", "running", "0", "0", "forking")}}, std::nullopt},
      {"silence", {{0, runs}, {500, {}}, {59999, {"Warning"}}, {60500, runs}}, ""},
      {"long silence",
       {{500, {}}, {60499, {}}, {60500, {}}},
       "systemd has not said for 60 s how its unit is"},
  };
  for (const auto& [name, seen, verdict] : kCases) {
    SCOPED_TRACE(name);
    Settling settling(std::chrono::seconds(6), std::chrono::seconds(10), std::chrono::seconds(60));
    for (std::size_t i = 0; i < seen.size(); ++i) {
      const auto found = settling.observe(milliseconds(seen[i].at), readUnitState(seen[i].lines));
      EXPECT_EQ(found, i + 1 < seen.size() ? std::nullopt : verdict);
    }
  }
}

// Fault: an outage elsewhere counts against a good version, or hides a new fault behind it.
TEST(Health, OnlyNewFaultsCount) {
  const FailedCheck a{"/d/a", "a failed"};
  const FailedCheck b{"/d/b", "b failed"};
  EXPECT_EQ(newFault({}, {}), "");
  EXPECT_EQ(newFault({a}, {a}), "");
  EXPECT_EQ(newFault({a}, {a, b}), "b failed");
  EXPECT_EQ(newFault({a, b}, {}), "");
}

// Fault: a torn file, one of a later version, or an unknown step passes for a window.
TEST(Health, OnlyAWholeWindowIsRead) {
  AgentWindow window;
  window.step = WindowStep::Rollback;
  const std::string text = agentWindowText(window);
  EXPECT_EQ(agentWindowText(parseAgentWindow(text).value()), text);
  for (const auto& [from, to] :
       {std::pair("rollback", "lunch"), {": 1", ": 2"}, {"kind", "kine"}, {"}", ""}}) {
    std::string changed = text;
    changed.replace(changed.find(from), std::string_view(from).size(), to);
    EXPECT_FALSE(parseAgentWindow(changed)) << changed;
  }
}

}  // namespace
