#include "Updater/package/installedAgent.h"

#include <exception>
#include <thread>

#include "Updater/command/childRun.h"
#include "Updater/command/utilsExec.h"

namespace utils {

namespace {

constexpr std::chrono::minutes kLimit{10};

/// The question for the database, a program and its arguments, whose answer is one line at the end
/// of the output.
std::vector<std::string> question(AgentDistrib distrib) {
  switch (distrib) {
    case DistribDeb:
      return {"dpkg-query", "--show", "--showformat=${db:Status-Abbrev}|${Version}\\n", "qdagent"};
    case DistribRpm:
      return {"rpm", "-q", "--queryformat", "%{VERSION}\\n", "qdagent"};
    case DistribPkg:
    case DistribDmg:
      return {"/bin/sh", "-c", "pkgutil --pkg-info com.qdagent | sed -n 's/^version: //p'"};
    case DistribSpk:
      return {"synopkg", "version", "kesa"};
    default:
      return {};
  }
}

}  // namespace

std::string InstalledAgent::text() const {
  if (version.empty()) return "nothing";
  return isWhole || state.empty() ? version : version + " (" + state + ")";
}

InstalledAgent readInstalledAgent(AgentDistrib distrib, const std::string& answer) {
  if (distrib != DistribDeb) return {.version = answer, .state = {}, .isWhole = !answer.empty()};
  const std::size_t bar = answer.find('|');
  if (bar == std::string::npos) return {};
  std::string state = answer.substr(0, answer.find_last_not_of(" |", bar) + 1);
  // What was removed, its configuration perhaps kept, is not there.
  const bool there = state.size() >= 2 && state[1] != 'n' && state[1] != 'c';
  const bool whole = state.size() == 2 && state[1] == 'i';
  return {.version = there ? answer.substr(bar + 1) : "", .state = state, .isWhole = whole};
}

bool saysNotInstalled(AgentDistrib distrib, int status, const std::vector<std::string>& lines) {
  if (distrib == DistribDeb) return status == 1;  // 2: it could not look
  if (distrib != DistribRpm) return true;
  return !lines.empty() && lines.back().ends_with(" is not installed");
}

std::optional<InstalledAgent> queryInstalledAgent(AgentDistrib distrib) try {
  const std::vector<std::string> asked = question(distrib);
  if (asked.empty()) return std::nullopt;
  std::vector<std::string> lines;
  const ChildEnd end = runChild({.program = asked.front(),
                                 .arguments = {asked.begin() + 1, asked.end()},
                                 .environment = {{"LC_ALL", "C"}},
                                 .limit = kLimit,
                                 .onLine = [&](const std::string& line) { lines.push_back(line); },
                                 .cancelled = {},
                                 .withErrors = false});
  if (end.how != ChildEnd::How::Exited || end.status == 127) return std::nullopt;
  if (!end.isGood() && !saysNotInstalled(distrib, end.status, lines)) return std::nullopt;
  const std::string answer = end.isGood() && !lines.empty() ? lines.back() : "";
  // The receipt on a Mac may have another name.
  if (answer.empty() && getOS() == OsMacOSX) return std::nullopt;
  InstalledAgent agent = readInstalledAgent(distrib, answer);
  // Of an upgrade that was cut off rpm has both versions.
  if (distrib == DistribRpm && lines.size() > 1) {
    agent.isWhole = false;
    agent.state = "beside another version";
  }
  return agent;
} catch (const std::exception&) {
  return std::nullopt;
}

std::optional<InstalledAgent> queryPersistently(AgentDistrib distrib) {
  constexpr int kAttempts = 5;
  auto agent = queryInstalledAgent(distrib);
  for (int attempt = 1; !agent && attempt < kAttempts; ++attempt) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    agent = queryInstalledAgent(distrib);
  }
  return agent;
}

bool saysDamaged(const std::string& line) {
  const std::size_t path = line.find(" /");
  if (path == std::string::npos || path < 3) return false;
  const std::string said = line.substr(0, path);
  if (said.ends_with(" c") || said.ends_with(" g")) return false;
  return said.starts_with("missing") || said[0] == 'S' || said[2] == '5';
}

bool hasItsFiles() {
  bool damaged = false;
  runChild({.program = "rpm",
            .arguments = {"--verify", "--nodeps", "--noscripts", "qdagent"},
            .environment = {{"LC_ALL", "C"}},
            .limit = kLimit,
            .onLine = [&](const std::string& line) { damaged = damaged || saysDamaged(line); },
            .cancelled = {}});
  return !damaged;
}

AgentDistrib installedKind() {
  return getOS() == OsMacOSX ? DistribPkg : linuxDistrib(isSyno(), isDebian());
}

std::optional<bool> agentRuns() try {
  constexpr int kNotActive = 3;
  constexpr int kNoSuchUnit = 4;
  std::string command = "systemctl is-active --quiet qdagent 2>/dev/null";
  if (getOS() == OsMacOSX) command = "launchctl list com.qdagent >/dev/null 2>&1";
  if (isSyno()) command = "synopkg is_onoff kesa >/dev/null 2>&1";
  std::vector<std::string> lines;
  const int status = exec(command, lines);
  if (status == 0) return true;
  if (getOS() == OsLinux && !isSyno() && status != kNotActive && status != kNoSuchUnit) {
    return std::nullopt;  // the manager itself does not answer
  }
  return status == 127 ? std::nullopt : std::optional(false);
} catch (const std::exception&) {
  return std::nullopt;
}

}  // namespace utils
