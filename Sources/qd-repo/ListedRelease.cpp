#include "qd-repo/ListedRelease.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Updater/rollout/slot.h"
#include "tufrepo/Repository.h"

using nlohmann::json;

std::vector<ListedRelease> releasesIn(const tuf::Targets& targets) {
  std::vector<ListedRelease> releases;
  for (const auto& entry : targets.entries) {
    const tuf::TargetFile file = tuf::targetFile(entry);
    const std::string& path = file.path;
    if (!file.custom.is_object() || !file.custom.contains("qd")) continue;
    const auto sha256 = file.hashes.find("sha256");
    if (sha256 == file.hashes.end()) throw std::runtime_error(path + " is listed without SHA-256");
    try {
      releases.push_back(
          {path, file.length, sha256->second, releaseFromJson(file.custom.at("qd"))});
    } catch (const std::exception& e) {
      throw std::runtime_error("The target " + path + " is faulty: " + e.what());
    }
  }
  std::stable_sort(releases.begin(), releases.end(),
                   [](const ListedRelease& a, const ListedRelease& b) {
                     return b.release.version < a.release.version;
                   });
  return releases;
}

std::vector<ListedRelease> releasesIn(const tufrepo::Repository& repository) {
  return releasesIn(tuf::parseTargets(json(repository.targets())));
}

void setRelease(json& entry, const Release& release) {
  if (!entry["custom"]["qd"].is_object()) entry["custom"]["qd"] = json::object();
  entry["custom"]["qd"].update(toJson(release), true);
}

std::string folderOf(const Release& release) {
  return std::string("linux/") + utils::agentArchToString(release.arch);
}

std::string nameOf(const ListedRelease& listed) {
  return listed.path.substr(listed.path.rfind('/') + 1);
}

bool isFullyOut(const Release& release, UnixTime now, const std::string& channel) {
  const auto ramp = release.channels.find(channel);
  return !release.halted && ramp != release.channels.end() && shareAt(ramp->second, now) >= 1;
}
