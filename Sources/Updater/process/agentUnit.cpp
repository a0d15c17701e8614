#include "Updater/process/agentUnit.h"

#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/split.hpp>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <exception>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "Updater/command/utilsExec.h"

namespace fs = boost::filesystem;

namespace {

constexpr const char* kAgentUnit = "qdagent.service";
constexpr const char* kMembers = "cgroup.procs";
constexpr auto kPollEvery = std::chrono::milliseconds(20);
constexpr int kPolls = 250;

/// Asks systemd's manager for a scope that takes this process over.
std::string scopeCommand() {
  const std::string pid = std::to_string(::getpid());
  return "busctl --quiet --allow-interactive-authorization=no call org.freedesktop.systemd1"
         " /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager StartTransientUnit"
         " 'ssa(sv)a(sa(sv))' qdagent-update-" +
         pid + ".scope fail 1 PIDs au 1 " + pid + " 0";
}

std::string moveByScope() try {
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

/// The roots of the control group hierarchies: one, or one a controller (cgroups(7)).
std::vector<fs::path> hierarchies() {
  const fs::path top("/sys/fs/cgroup");
  std::vector<fs::path> roots = {top};
  if (!fs::exists(top / kMembers)) roots.assign(fs::directory_iterator(top), {});
  return roots;
}

/// Moves this process into a group that belongs to no unit, and that stays for the next time. This
/// needs no bus, which small systems do without.
void moveByHand() {
  for (const fs::path& root : hierarchies()) {
    if (!fs::exists(root / kMembers)) continue;
    const fs::path group = root / "qdagent-update";
    boost::system::error_code failed;
    fs::create_directory(group, failed);
    std::fstream((group / kMembers).string()) << ::getpid() << std::flush;
  }
}

}  // namespace

bool isInUnit(const std::string& cgroups, const std::string& unit) {
  std::vector<std::string> components;
  boost::split(components, cgroups, [](char c) { return c == '/' || c == '\n'; });
  return std::find(components.begin(), components.end(), unit) != components.end();
}

bool isInAgentUnit() {
  std::ifstream file("/proc/self/cgroup");
  return isInUnit({std::istreambuf_iterator<char>(file), {}}, kAgentUnit);
}

std::string leaveAgentUnit() try {
  if (!isInAgentUnit()) return {};
  std::string refusal = moveByScope();
  if (refusal.empty()) return {};
  moveByHand();
  return isInAgentUnit() ? refusal : "";
} catch (const std::exception& e) {
  return e.what();
}
