#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/packageFacts.h"
#include "qd-repo/page.h"
#include "qd-repo/plainFiles.h"
#include "qd-repo/ramp.h"
#include "qd-repo/workplace.h"
#include "tufrepo/Repository.h"
#include "tufrepo/TargetStore.h"

namespace {

using nlohmann::json;

/// One package on its way into the repository.
struct Arrival {
  ListedRelease listed;
  tufrepo::CopiedFile file;
};

Release releaseOf(const PackageFacts& facts, const RepoOptions& options, const std::string& file) {
  Release release;
  release.version = facts.version;
  release.os = utils::OsLinux;
  release.arch = facts.arch == utils::ArchUnknown ? options.arch : facts.arch;
  release.kind = facts.kind;
  release.minFrom = options.minFrom;
  release.rollback = options.rollback;
  if (release.minFrom && !(*release.minFrom < release.version)) {
    throw std::runtime_error("No machine would take " + file + " from " +
                             versionText(*release.minFrom) +
                             ": give an older version by --min-from");
  }
  if (release.arch == utils::ArchUnknown) {
    throw std::runtime_error(file +
                             " is for every architecture: say by --arch for which it is "
                             "published");
  }
  return release;
}

bool isSameRelease(const Release& a, const Release& b) {
  return a.version == b.version && a.os == b.os && a.arch == b.arch && a.kind == b.kind;
}

/// Takes one file in; the release is the one that is there already where it has the same bytes.
Arrival take(tufrepo::TargetStore& store, const std::string& file, const RepoOptions& options,
             const std::vector<ListedRelease>& listed) {
  Arrival arrival;
  arrival.file = store.bring(file);
  const std::string copy = std::filesystem::absolute(store.broughtPath()).string();
  const PackageFacts facts = readPackage(copy, file);
  Release release = releaseOf(facts, options, file);
  std::string path = folderOf(release) + "/" + utils::kAgentPackage + "_" +
                     versionText(release.version) + "." + utils::agentDistribToString(release.kind);
  for (const ListedRelease& known : listed) {
    if (!isSameRelease(known.release, release)) continue;
    if (known.sha256 != arrival.file.sha256) {
      throw std::runtime_error("Version " + versionText(release.version) +
                               " is in the repository with other bytes than " + file +
                               ": give the package a new version");
    }
    release = known.release;
    if (options.minFrom) release.minFrom = options.minFrom;
    if (!options.rollback) release.rollback = false;
    path = known.path;
  }
  arrival.listed = {path, arrival.file.length, arrival.file.sha256, release};
  return arrival;
}

}  // namespace

int publishPackages(const RepoOptions& options) {
  tufrepo::KeyRing keys = keysOf(options);
  tufrepo::Repository repository(options.repository, sayWaiting);
  for (const char* const role : {"targets", "snapshot", "timestamp"}) {
    (void)keys.needed(role, repository.root().roles.at(role));
  }
  const std::time_t now = present();
  std::vector<ListedRelease> known = releasesIn(repository);
  const UnixTime instant{std::chrono::seconds(now)};
  tufrepo::TargetStore store(options.repository);
  json entries = repository.targets().at("targets");
  std::string said;
  for (const std::string& file : options.files) {
    Arrival arrival = take(store, file, options, known);
    ListedRelease& listed = arrival.listed;
    Release& release = listed.release;
    const auto ramp = release.channels.find(options.channel);
    const Ramp* const before = ramp == release.channels.end() ? nullptr : &ramp->second;
    release.channels[options.channel] = nextRamp(before, options, instant);
    store.keep(listed.path, arrival.file);
    placePlain(options.repository, listed, arrival.file.md5);
    json& entry = entries[listed.path];
    entry["length"] = listed.length;
    entry["hashes"] = {{"sha256", arrival.file.sha256}, {"sha512", arrival.file.sha512}};
    setRelease(entry, release);
    known.push_back(listed);
    said += "Published " + listed.path + " in " + options.channel + ": " +
            shareText(release.channels[options.channel], instant) +
            (release.halted ? ", but halted" : "") + "\n";
  }
  repository.setEntries(std::move(entries));
  repository.renew(keys, {.targets = true, .snapshot = true}, now);
  writePlainFiles(repository, now);
  std::cout << said;
  warnOfExpiry(repository, now);
  return 0;
}
