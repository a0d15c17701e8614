#include <sys/stat.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <tuple>

#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/plainFiles.h"
#include "qd-repo/workplace.h"
#include "tufrepo/Repository.h"
#include "tufrepo/TargetStore.h"

namespace {

namespace fs = std::filesystem;
constexpr std::uint64_t kMaxFile = std::uint64_t{64} << 20;

/// Keeps the releases that lead a machine that is too old to this one: in each channel the highest,
/// down to one that all machines get.
void keepSteps(const Release& release, const std::vector<ListedRelease>& releases, UnixTime now,
               std::set<std::string>& kept) {
  for (const auto& [channel, ramp] : release.channels) {
    for (const auto& [path, length, sha256, step] : releases) {  // highest first
      const bool leads = step.os == release.os && step.arch == release.arch &&
                         step.kind == release.kind && step.version < release.version &&
                         !(step.version < *release.minFrom) && step.channels.contains(channel);
      if (!leads) continue;
      kept.insert(path);
      if (isFullyOut(step, now, channel)) break;
    }
  }
}

/// The paths of the releases that stay: of every channel and platform the highest ones that are not
/// halted, what is halted among them, the highest one that all machines get, and the steps to
/// these.
std::set<std::string> pathsToKeep(const std::vector<ListedRelease>& releases, unsigned keep,
                                  UnixTime now) {
  std::set<std::string> kept;
  std::map<std::tuple<std::string, int, int, int>, unsigned> counts;
  std::map<std::tuple<std::string, int, int, int>, unsigned> out;
  for (const auto& [path, length, sha256, release] : releases) {  // highest first
    for (const auto& [channel, ramp] : release.channels) {
      const std::tuple line(channel, release.os, release.arch, release.kind);
      if (counts[line] < keep) kept.insert(path);
      if (!release.halted) ++counts[line];
      if (isFullyOut(release, now, channel) && out[line]++ == 0) kept.insert(path);
    }
    // A step is lower than what it leads to, so its own steps are looked for later.
    if (release.minFrom && kept.contains(path)) keepSteps(release, releases, now, kept);
  }
  return kept;
}

/// What a client that read the repository within the time of grace may still ask for.
struct Wanted {
  std::set<std::string> metadata;  ///< file names
  std::set<std::string> stored;    ///< below the folder of targets
  std::set<std::string> plain;     ///< below the repository
};

std::string fileOf(tuf::Version version, const std::string& role) {
  return std::to_string(version) + "." + role + ".json";
}

tuf::Version versionOf(const nlohmann::json& content) {
  return content.at("version").get<tuf::Version>();
}

/// The versions of snapshots that are current, or were so after `since`. Higher ones are what
/// interrupted commands have left.
std::vector<tuf::Version> recentSnapshots(const tufrepo::Repository& repository,
                                          std::time_t since) {
  const tuf::Version current = versionOf(repository.snapshot());
  std::vector<tuf::Version> versions;
  std::time_t replaced = 0;  // the version that is looked at
  const std::vector<tuf::Version> all = repository.versionsOf("snapshot");
  for (auto version = all.rbegin(); version != all.rend(); ++version) {
    if (*version > current) continue;
    if (*version == current || replaced > since) versions.push_back(*version);
    struct stat info {};
    const std::string path = repository.folder() + "/metadata/" + fileOf(*version, "snapshot");
    replaced = ::stat(path.c_str(), &info) == 0 ? info.st_mtime : since;
  }
  return versions;
}

void addTargetsOf(const std::string& file, Wanted& wanted) {
  tuf::Envelope envelope(file);
  const tuf::Targets targets = tuf::parseTargets(std::move(envelope.content));
  if (!targets.delegations.empty() || targets.succinct) {
    throw std::runtime_error(
        "The targets delegate to other roles, whose files prune does not "
        "know: prune by hand");
  }
  for (const auto& entry : targets.entries) {
    const auto& [path, length, hashes, custom] = tuf::targetFile(entry);
    wanted.plain.insert({path, path + ".version", path + ".md5"});
    for (const auto& [algorithm, hash] : hashes) {
      wanted.stored.insert(tufrepo::storedName(path, hash));
    }
  }
}

/// The targets document that a snapshot names.
std::string targetsOf(tufrepo::Repository& repository, const std::string& snapshot) {
  tuf::Envelope envelope(repository.metadata().read(snapshot, kMaxFile).value_or(""));
  const tuf::Snapshot content = tuf::parseSnapshot(std::move(envelope.content));
  return fileOf(content.files.at("targets.json").version, "targets");
}

Wanted wantedOf(tufrepo::Repository& repository, std::time_t since) {
  Wanted wanted;
  for (const tuf::Version version : recentSnapshots(repository, since)) {
    const std::string snapshot = fileOf(version, "snapshot");
    const std::string targets = targetsOf(repository, snapshot);
    wanted.metadata.insert({snapshot, targets});
    if (const auto file = repository.metadata().read(targets, kMaxFile)) {
      addTargetsOf(*file, wanted);
    }
  }
  return wanted;
}

/// Removes the published files below a folder that are not wanted. Returns the bytes that were
/// freed.
std::uintmax_t sweep(const fs::path& folder, const fs::path& top,
                     const std::set<std::string>& wanted) {
  std::vector<fs::path> unwanted;
  std::error_code failure;
  for (const auto& entry : fs::recursive_directory_iterator(folder, failure)) {
    const std::string name = entry.path().lexically_relative(top).generic_string();
    const bool isOurs = isPublishedName(entry.path().filename().string());
    if (isOurs && entry.is_regular_file() && !wanted.contains(name)) {
      unwanted.push_back(entry.path());
    }
  }
  std::uintmax_t freed = 0;
  for (const fs::path& path : unwanted) {
    freed += fs::hard_link_count(path) == 1 ? fs::file_size(path) : 0;
    fs::remove(path);
  }
  return freed;
}

/// The roots stay: a client of any age follows them one by one. What interrupted commands have left
/// stays, too, until its number has passed, so that no number is used twice.
void sweepMetadata(tufrepo::Repository& repository, const Wanted& wanted) {
  const std::map<std::string, tuf::Version> current = {
      {"snapshot", versionOf(repository.snapshot())}, {"targets", versionOf(repository.targets())}};
  for (const auto& [role, newest] : current) {
    for (const tuf::Version version : repository.versionsOf(role)) {
      const std::string name = fileOf(version, role);
      if (version < newest && !wanted.metadata.contains(name)) repository.metadata().remove(name);
    }
  }
}

}  // namespace

int pruneRepository(const RepoOptions& options) {
  tufrepo::KeyRing keys = keysOf(options);
  tufrepo::Repository repository(options.repository, sayWaiting);
  const std::time_t now = present();
  const auto releases = releasesIn(repository);
  const std::set<std::string> kept =
      pathsToKeep(releases, options.keep, UnixTime(std::chrono::seconds(now)));
  nlohmann::json entries = repository.targets().at("targets");
  std::string dropped;
  for (const ListedRelease& listed : releases) {
    if (kept.contains(listed.path)) continue;
    entries.erase(listed.path);
    dropped += "Dropped " + listed.path + "\n";
  }
  (void)wantedOf(repository, now);   // a repository that is not to be pruned is found before
  writePlainFiles(repository, now);  // what it offers stays
  if (!dropped.empty()) {
    repository.setEntries(std::move(entries));
    repository.renew(keys, {.targets = true, .snapshot = true}, now);
  }
  writePlainFiles(repository, now);
  const Wanted wanted = wantedOf(repository, std::time(nullptr) - options.grace.count());
  const fs::path top = options.repository;
  const std::uintmax_t freed = sweep(top / "linux", top, wanted.plain) +
                               sweep(top / "targets", top / "targets", wanted.stored);
  sweepMetadata(repository, wanted);
  std::cout << dropped << "Freed " << freed << " bytes\n";
  warnOfExpiry(repository, now);
  return 0;
}
