#include "qd-repo/definition.h"

#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

std::string definitionOf(const std::vector<ListedRelease>& releases, UnixTime now) {
  nlohmann::ordered_json file = nlohmann::ordered_json::array();
  std::set<std::tuple<int, int, int>> seen;
  for (const ListedRelease& listed : releases) {  // highest first
    const Release& release = listed.release;
    if (!isFullyOut(release, now)) continue;
    if (!seen.emplace(release.os, release.arch, release.kind).second) continue;
    const std::string name = nameOf(listed);
    file.push_back({{"name", versionText(release.version)},
                    {"path", "/" + listed.path.substr(0, listed.path.rfind('/'))},
                    {"setup", name},
                    {"version", name + ".version"},
                    {"hash", name + ".md5"},
                    {"os", static_cast<int>(release.os)},
                    {"arch", static_cast<int>(release.arch)},
                    {"enable", true}});
  }
  return file.dump(2) + "\n";
}
