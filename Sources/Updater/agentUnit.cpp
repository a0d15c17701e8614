#include "Updater/agentUnit.h"

#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/split.hpp>
#include <chrono>
#include <exception>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "Updater/utilsExec.h"

namespace {

constexpr const char* kAgentUnit = "qdagent.service";
constexpr auto kPollEvery = std::chrono::milliseconds(20);
constexpr int kPolls = 250;

bool isInAgentUnit() {
  std::ifstream file("/proc/self/cgroup");
  return isInUnit({std::istreambuf_iterator<char>(file), {}}, kAgentUnit);
}

/// Asks systemd's manager for a scope that takes this process over.
std::string scopeCommand() {
  const std::string pid = std::to_string(::getpid());
  return "busctl --quiet --allow-interactive-authorization=no call org.freedesktop.systemd1"
         " /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager StartTransientUnit"
         " 'ssa(sv)a(sa(sv))' qdagent-update-" +
         pid + ".scope fail 1 PIDs au 1 " + pid + " 0";
}

}  // namespace

bool isInUnit(const std::string& cgroups, const std::string& unit) {
  std::vector<std::string> components;
  boost::split(components, cgroups, [](char c) { return c == '/' || c == '\n'; });
  return std::find(components.begin(), components.end(), unit) != components.end();
}

std::string leaveAgentUnit() try {
  if (!isInAgentUnit()) return {};
  std::string command = scopeCommand();
  std::vector<std::string> output;
  if (const int status = utils::exec(command, output); status != 0) {
    return "busctl ended with " + std::to_string(status);
  }
  // The manager has accepted the job; the move itself follows.
  for (int poll = 0; poll < kPolls; ++poll) {
    if (!isInAgentUnit()) return {};
    std::this_thread::sleep_for(kPollEvery);
  }
  return "systemd did not move the process";
} catch (const std::exception& e) {
  return e.what();
}
