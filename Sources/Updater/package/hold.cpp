#include "Updater/package/hold.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/filesystem/fstream.hpp>

#include "Updater/package/installedAgent.h"

namespace utils {

namespace {

constexpr const char* kVersionLocks[] = {"/etc/dnf/plugins/versionlock.list",
                                         "/etc/yum/pluginconf.d/versionlock.list"};

bool isVersionLocked() {
  for (const char* const path : kVersionLocks) {
    boost::filesystem::ifstream list(path);
    for (std::string line; std::getline(list, line);) {
      if (locksVersion(line, "qdagent")) return true;
    }
  }
  return false;
}

}  // namespace

bool locksVersion(std::string_view line, std::string_view name) {
  const std::size_t afterEpoch = line.find_first_not_of("0123456789");
  if (afterEpoch != 0 && afterEpoch < line.size() && line[afterEpoch] == ':') {
    line.remove_prefix(afterEpoch + 1);
  }
  if (!line.starts_with(name)) return false;
  line.remove_prefix(name.size());
  line = line.substr(0, line.find_first_of(" \t\r"));
  if (line.empty()) return true;
  return line.size() > 1 && line[0] == '-' && boost::is_any_of("0123456789*")(line[1]);
}

std::string endOfHold(AgentDistrib distrib) {
  if (distrib == DistribRpm) return isVersionLocked() ? "dnf versionlock delete qdagent" : "";
  const auto agent = queryInstalledAgent(distrib);
  return agent && agent->isOnHold() ? "apt-mark unhold qdagent" : "";
}

}  // namespace utils
