#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <stdexcept>

#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/plainFiles.h"
#include "qd-repo/workplace.h"
#include "tufrepo/Repository.h"

namespace {

namespace fs = std::filesystem;

/// What runs from cron signs without a passphrase; the other keys may have one.
bool signsFromCron(const std::string& role) { return role == "snapshot" || role == "timestamp"; }

std::map<std::string, tufrepo::FirstRole> firstRoles(const RepoOptions& options,
                                                     const std::string& passphrase,
                                                     const tufrepo::AskPassphrase& ask) {
  std::map<std::string, tufrepo::FirstRole> roles;
  for (const std::string& role : tufrepo::topRoles()) {
    const unsigned threshold = role == "root" ? options.threshold.value_or(1) : 1;
    const unsigned count = role == "root" ? std::max(threshold, options.rootKeys) : 1;
    roles[role] = {tufrepo::makeKeys(options.keys, role, count, options.ecdsa,
                                     signsFromCron(role) ? "" : passphrase, ask),
                   threshold};
  }
  return roles;
}

/// What init would replace in the folder, empty for nothing. A repository that was interrupted
/// while it was made has some of the first metadata only.
std::string foreignIn(const fs::path& folder) {
  static const std::set<std::string> ours = {".unfinished", "1.root.json", "1.targets.json",
                                             "1.snapshot.json", "root.json"};
  for (const char* const name : {"agent_setup_def.json", "index.html"}) {
    if (fs::exists(folder / name)) return name;
  }
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(folder / "metadata", missing)) {
    const std::string name = entry.path().filename().string();
    if (!ours.contains(name)) return "metadata/" + name;
  }
  return {};
}

/// A repository that is there is refused when it is made, under its lock.
void requireNoOthers(const std::string& folder) {
  if (fs::exists(fs::path(folder) / "metadata" / "timestamp.json")) return;
  const std::string foreign = foreignIn(folder);
  if (foreign.empty()) return;
  throw std::runtime_error("There is " + foreign + " in " + folder +
                           " already, which init does not replace: take another folder");
}

}  // namespace

int initRepository(const RepoOptions& options) {
  (void)keysOf(options);  // refuses a folder of keys in the repository
  requireNoOthers(options.repository);
  if (options.rootKeys != 0 && options.rootKeys < options.threshold.value_or(1)) {
    throw std::runtime_error("--root-keys makes fewer keys than --threshold asks for: make more");
  }
  const std::time_t now = present();
  tufrepo::Lives lives = tufrepo::defaultLives();
  for (const auto& [role, life] : options.lives) lives[role] = life;
  const bool encrypted = options.encrypt || options.passphraseFd >= 0;
  const std::string passphrase = encrypted ? newPassphrase(options) : std::string();
  const tufrepo::AskPassphrase ask = [&](const std::string& file) {
    return encrypted ? passphrase : passphraseSource(options)(file);
  };
  const auto roles = firstRoles(options, passphrase, ask);
  tufrepo::KeyRing keys(ask);
  keys.addFolder(options.keys);
  tufrepo::Repository::create(options.repository, tufrepo::firstRoot(roles, lives), keys, now,
                              sayWaiting);
  tufrepo::Repository repository(options.repository, sayWaiting);
  writePlainFiles(repository, now);
  std::cout << "Made the repository " << options.repository << "; its keys are in " << options.keys
            << "\nMachines are to trust " << options.repository << "/metadata/1.root.json\n";
  return 0;
}

int refreshRepository(const RepoOptions& options) {
  tufrepo::KeyRing keys = keysOf(options);
  tufrepo::Repository repository(options.repository, sayWaiting);
  const std::time_t now = present();
  repository.renew(keys, {.targets = options.targets, .snapshot = repository.snapshotIsOld(now)},
                   now);
  writePlainFiles(repository, now);
  warnOfExpiry(repository, now);
  return 0;
}
