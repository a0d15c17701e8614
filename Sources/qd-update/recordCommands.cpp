// What the records say: `status` and `history`.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "Updater/package/installedAgent.h"
#include "qd-update/commands.h"
#include "qd-update/display.h"

namespace {

using Json = nlohmann::ordered_json;

/// Whether the run of a record goes on; nothing where that is unknown.
std::optional<bool> goesOn(const RunRecord& record, const RunPlaces& places) {
  if (record.outcome != RunOutcome::Running) return false;
  return stateFolderIsLocked(places.stateFolder);
}

std::string agentText(std::optional<bool> runs) {
  if (!runs) return "not known whether it runs";
  return *runs ? "runs" : "does not run";
}

/// Of a run without an end.
std::string unfinishedText(const RunRecord& record, std::optional<bool> alive,
                           std::optional<bool> agent, bool windowStands) {
  const std::string phase(phaseToString(record.phase));
  if (!alive) return "It is in phase " + phase + ", or died there.";
  if (*alive) return "It is under way, in phase " + phase + ".";
  const std::string died = "It died in phase " + phase + ". ";
  if (!agentMayBeStopped(record.phase)) return died + "Nothing was changed.";
  if (windowStands) return died + "`qd-update recover` brings it to an end.";
  if (agent && *agent) return died + "The agent runs; `qd-update check` says which version it is.";
  return died + "See that the agent is whole and starts: `qd-update run` tries again.";
}

void print(Screen& screen, const char* name, const std::string& value) {
  if (!value.empty()) screen.print(std::string(name) + value);
}

void printStatus(const Job& job, const RunRecord& record, std::optional<bool> alive,
                 std::optional<bool> agent) {
  Screen& screen = job.screen;
  print(screen, "Started     ", localText(record.started));
  print(screen, "Ended       ", localText(record.ended));
  print(screen, "From        ", record.from);
  print(screen, "To          ", record.to);
  print(screen, "Agent       ", agentText(agent));
  print(screen, "Run         ", record.run);
  if (record.outcome == RunOutcome::Running) {
    screen.print(unfinishedText(record, alive, agent, windowStands(job.places)),
                 alive == false ? Colour::Red : Colour::None);
    return;
  }
  print(screen, "Status      ",
        std::to_string(record.status) + (record.cause.empty() ? "" : ", " + record.cause));
  screen.print(outcomeText(record), record.status == 0 ? Colour::Green : Colour::Red);
}

Json jsonOf(const RunRecord& record) { return Json::parse(statusText(record)); }

Json jsonOf(std::optional<bool> value) { return value ? Json(*value) : Json(); }

}  // namespace

int showStatus(const Job& job) {
  const auto record = readStatus(job.places.stateFolder);
  const auto agent = utils::agentRuns();
  const std::string path = job.places.stateFolder + "/status.json";
  if (!record && (::access(path.c_str(), F_OK) == 0 || errno != ENOENT)) {
    std::cerr << path << ": is no record that this program can read; the next run writes it anew\n";
    return static_cast<int>(UpdateResult::Exception);
  }
  if (!record) {
    if (job.options.json) {
      job.screen.print(
          Json{{"record", nullptr}, {"under_way", false}, {"agent_runs", jsonOf(agent)}}.dump(2));
    } else {
      job.screen.print("No run has left a record in " + job.places.stateFolder + ".");
      job.screen.print("Agent       " + agentText(agent));
    }
    return 0;
  }
  const auto alive = goesOn(*record, job.places);
  if (job.options.json) {
    job.screen.print(Json{
        {"record", jsonOf(*record)}, {"under_way", jsonOf(alive)}, {"agent_runs", jsonOf(agent)}}
                         .dump(2));
  } else {
    printStatus(job, *record, alive, agent);
  }
  return 0;
}

int showHistory(const Job& job) {
  std::vector<RunRecord> records = readHistory(job.places.stateFolder);
  std::erase_if(records, [&job](const RunRecord& r) { return r.started < job.options.since; });
  if (records.size() > job.options.count) {
    records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(job.options.count));
  }
  if (job.options.json) {
    Json list = Json::array();
    for (const RunRecord& record : records) list.push_back(jsonOf(record));
    job.screen.print(list.dump(2));
    return 0;
  }
  if (records.empty()) {
    job.screen.print("No run is recorded.");
    return 0;
  }
  for (const std::string& line : historyTable(records, job.screen.width())) job.screen.print(line);
  return 0;
}
