#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

#include "Updater/rollout/slot.h"
#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/page.h"
#include "qd-repo/workplace.h"
#include "tufrepo/Repository.h"

namespace {

nlohmann::json asJson(const tufrepo::Repository& repository,
                      const std::vector<ListedRelease>& releases, UnixTime now) {
  nlohmann::json shown = {{"releases", nlohmann::json::array()}};
  for (const ListedRelease& listed : releases) {
    nlohmann::json release = toJson(listed.release);
    for (const auto& [channel, ramp] : listed.release.channels) {
      release["channels"][channel]["share"] = shareAt(ramp, now);
    }
    release["path"] = listed.path;
    release["length"] = listed.length;
    release["sha256"] = listed.sha256;
    shown["releases"].push_back(release);
  }
  for (const std::string& name : tufrepo::topRoles()) {
    const tuf::RoleKeys& role = repository.root().roles.at(name);
    shown["roles"][name] = {{"expires", tufrepo::timeText(repository.expiryOf(name))},
                            {"threshold", role.threshold},
                            {"keyids", role.keyIds}};
  }
  return shown;
}

void printReleases(const std::vector<ListedRelease>& releases, UnixTime now) {
  std::map<std::string, std::string> channels;
  for (const auto& [path, length, sha256, release] : releases) {
    for (const auto& [channel, ramp] : release.channels) {
      channels[channel] += "  " + versionText(release.version) + "  " +
                           utils::agentArchToString(release.arch) + ' ' +
                           utils::agentDistribToString(release.kind) + "  " +
                           (release.halted ? "halted" : shareText(ramp, now)) + '\n';
    }
  }
  for (const auto& [channel, lines] : channels) {
    std::cout << "Channel " << channel << ":\n" << lines;
  }
  if (channels.empty()) std::cout << "No releases\n";
}

}  // namespace

int showRepository(const RepoOptions& options) {
  const tufrepo::Repository repository(options.repository, sayWaiting);
  const std::time_t time = present();
  const UnixTime now{std::chrono::seconds(time)};
  const std::vector<ListedRelease> releases = releasesIn(repository);
  if (options.json) {
    std::cout << asJson(repository, releases, now).dump(2) << '\n';
    return 0;
  }
  printReleases(releases, now);
  for (const std::string& name : tufrepo::topRoles()) {
    const tuf::RoleKeys& role = repository.root().roles.at(name);
    std::cout << "Role " << name << ": "
              << (repository.expiryOf(name) > time ? "valid until " : "EXPIRED at ")
              << tufrepo::timeText(repository.expiryOf(name)) << ", signed by " << role.threshold
              << " of\n";
    for (const std::string& id : role.keyIds) std::cout << "  " << id << '\n';
  }
  warnOfExpiry(repository, time);
  return 0;
}
