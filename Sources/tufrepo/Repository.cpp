#include "tufrepo/Repository.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <utility>

#include "tuf/Error.h"
#include "tuf/naming.h"
#include "tuf/trustedSet.h"

namespace tufrepo {
namespace {

namespace fs = std::filesystem;
using tuf::Version;

constexpr std::uint64_t kMaxFile = std::uint64_t{64} << 20;
constexpr const char* kTimestamp = "timestamp.json";
/// The timestamp that takes its place with a root whose keys have signed it.
constexpr const char* kWaiting = ".timestamp.json";

std::string versioned(Version version, const std::string& role) {
  return std::to_string(version) + "." + role + ".json";
}

const std::string& requireRepository(const std::string& folder) {
  if (fs::exists(fs::path(folder) / "metadata" / "timestamp.json")) return folder;
  throw std::runtime_error("There is no repository in " + folder + ": make one with init");
}

const std::string& madeFolder(const std::string& folder) {
  std::error_code failure;
  fs::create_directories(folder, failure);
  return folder;
}

/// Where what is signed does not fit the newest root.
std::string remedyOf(Version root) {
  if (root == 1) return {};
  return std::string(". If a rotation was interrupted, metadata/") + kWaiting +
         " has been removed since: put it back, or, where no client can have fetched metadata/" +
         versioned(root, "root") + " yet, remove that and rotate again";
}

Version versionOf(const Json& content) { return content.at("version").get<Version>(); }

}  // namespace

Repository::Repository(const std::string& folder, const tuf::Waiting& waiting)
    : path_(requireRepository(folder)), top_(path_, waiting), metadata_(path_ + "/metadata") {
  load();
}

std::string Repository::file(const std::string& name) const {
  std::optional<std::string> text = metadata_.read(name, kMaxFile);
  if (text) return *std::move(text);
  throw std::runtime_error("The repository has no metadata/" + name);
}

std::string Repository::read(const std::string& name, Json& content) const {
  std::string text = file(name);
  tuf::naming("metadata/" + name, [&] { content = std::move(tuf::Envelope(text).content); });
  return text;
}

void Repository::load() {
  const std::vector<Version> roots = versionsOf("root");
  if (roots.empty()) throw std::runtime_error("The repository has no metadata/1.root.json");
  const std::string newest = versioned(roots.back(), "root");
  tuf::naming("metadata/" + newest, [&] { take(file(newest)); });
  try {
    take(file(newest), file(kTimestamp));
  } catch (const tuf::Error& e) {
    // A process may have ended between a root and the timestamp that goes with it.
    const std::optional<std::string> waiting = metadata_.read(kWaiting, kMaxFile);
    if (e.kind() != tuf::ErrorKind::Unsigned) throw;
    if (!waiting) throw tuf::Error(e.kind(), e.what() + remedyOf(roots.back()));
    take(file(newest), *waiting);
    waits_ = true;
  }
}

/// What is signed anew is what the owner of these keys signed before, not what somebody has put
/// there, nor what a key has signed that was taken away.
void Repository::take(const std::string& root, const std::string& timestamp) {
  constexpr std::time_t kNothingHasExpired = 0;
  tuf::TrustedSet trusted(root, kNothingHasExpired);
  tuf::naming("metadata/timestamp.json", [&] {
    trusted.updateTimestamp(timestamp);
    timestamp_ = std::move(tuf::Envelope(timestamp).content);
  });
  const std::string snapshot = versioned(trusted.snapshotFile().version, "snapshot");
  trusted.updateSnapshot(read(snapshot, snapshot_));
  const std::string targets = versioned(trusted.targetsFile("targets").version, "targets");
  trusted.updateTargets(read(targets, targets_));
}

void Repository::take(const std::string& root) {
  tuf::Envelope envelope(root);
  rootContent_ = envelope.content;
  root_ = tuf::parseRoot(std::move(envelope.content));
}

void Repository::create(const std::string& folder, const Json& root, KeyRing& keys, std::time_t now,
                        const tuf::Waiting& waiting) {
  const fs::path timestamp = fs::path(folder) / "metadata" / "timestamp.json";
  const tuf::Folder lock(madeFolder(folder), waiting);
  if (fs::exists(timestamp)) {
    throw std::runtime_error("There is a repository in " + folder +
                             " already: refresh completes one whose init was interrupted");
  }
  tuf::Folder metadata(folder + "/metadata");
  madeFolder(folder + "/targets");
  const Lives lives = livesOf(root);
  const tuf::Root roles = tuf::parseRoot([&] {
    Json content = root;
    content["version"] = 1;
    content["expires"] = timeText(now);
    return content;
  }());
  const auto write = [&](const std::string& role, const std::string& name, Json content) {
    content["version"] = 1;
    content["expires"] = timeText(now + lives.at(role).count());
    std::string text = tuf::sign(content, keys.needed(role, roles.roles.at(role)));
    metadata.write(name, text);
    return text;
  };
  const std::string first = write("root", "1.root.json", root);
  const std::string targets = write("targets", "1.targets.json", firstTargets());
  Json snapshot = firstSnapshot();
  snapshot["meta"]["targets.json"] = describe(1, targets);
  Json stamp = firstTimestamp();
  stamp["meta"]["snapshot.json"] = describe(1, write("snapshot", "1.snapshot.json", snapshot));
  metadata.write("root.json", first);
  write("timestamp", "timestamp.json", stamp);
}

std::time_t Repository::expiryOf(const std::string& role) const {
  const Json& content = role == "root"       ? rootContent_
                        : role == "targets"  ? targets_
                        : role == "snapshot" ? snapshot_
                                             : timestamp_;
  return tuf::parseTime(content.at("expires").get<std::string>());
}

std::vector<Version> Repository::versionsOf(const std::string& role) const {
  std::vector<Version> versions;
  const std::string ending = "." + role + ".json";
  for (const auto& entry : fs::directory_iterator(path_ + "/metadata")) {
    const std::string name = entry.path().filename().string();
    if (!name.ends_with(ending)) continue;
    Version version = 0;
    const char* const end = name.data() + name.size() - ending.size();
    const auto [read, error] = std::from_chars(name.data(), end, version);
    if (error == std::errc() && read == end && version > 0) versions.push_back(version);
  }
  std::sort(versions.begin(), versions.end());
  return versions;
}

Version Repository::nextVersion(const std::string& role, const Json& content) const {
  // A number that an interrupted process has used is not used again: somebody may have copied it.
  const std::vector<Version> used = versionsOf(role);
  return std::max(versionOf(content), used.empty() ? 0 : used.back()) + 1;
}

bool Repository::snapshotIsOld(std::time_t now) const {
  return expiryOf("snapshot") - now < livesOf(rootContent_).at("snapshot").count() / 2;
}

std::string Repository::write(Json& content, const std::string& role, Version version,
                              const Signers& signers, std::time_t now) {
  content["version"] = version;
  content["expires"] = timeText(now + livesOf(rootContent_).at(role).count());
  std::string text = tuf::sign(content, signers.at(role));
  if (role != "timestamp") metadata_.write(versioned(version, role), text);
  return text;
}

std::string Repository::renewWith(const Signers& signers, const Renewal& renewal, std::time_t now) {
  if (renewal.targets) {
    const Version version = nextVersion("targets", targets_);
    snapshot_["meta"]["targets.json"] =
        describe(version, write(targets_, "targets", version, signers, now));
  }
  if (renewal.targets || renewal.snapshot) {
    const Version version = nextVersion("snapshot", snapshot_);
    timestamp_["meta"]["snapshot.json"] =
        describe(version, write(snapshot_, "snapshot", version, signers, now));
  }
  return write(timestamp_, "timestamp", versionOf(timestamp_) + 1, signers, now);
}

namespace {

/// The roles that a renewal signs for.
std::vector<std::string> rolesOf(const Repository::Renewal& renewal) {
  std::vector<std::string> roles = {"timestamp"};
  if (renewal.targets || renewal.snapshot) roles.emplace_back("snapshot");
  if (renewal.targets) roles.emplace_back("targets");
  return roles;
}

bool sameKeys(const tuf::Root& a, const tuf::Root& b, const char* role) {
  return a.roles.at(role) == b.roles.at(role);
}

}  // namespace

void Repository::renew(KeyRing& keys, const Renewal& renewal, std::time_t now) {
  Signers signers;
  for (const std::string& role : rolesOf(renewal)) {
    signers[role] = keys.needed(role, root_.roles.at(role));
  }
  replaceTimestamp(renewWith(signers, renewal, now));
}

bool Repository::install(const std::string& nextRoot, KeyRing& keys, std::time_t now) {
  mend();
  tuf::TrustedSet trusted(file(versioned(root_.version, "root")), now);
  trusted.updateRoot(nextRoot);
  const tuf::Root& next = trusted.root();
  const Renewal renewal{.targets = !sameKeys(root_, next, "targets"),
                        .snapshot = !sameKeys(root_, next, "snapshot")};
  const bool signsAnew = renewal.targets || renewal.snapshot || !sameKeys(root_, next, "timestamp");
  Signers signers;
  bool seamless = true;
  for (const std::string& role : rolesOf(renewal)) {
    if (!signsAnew) break;
    signers[role] = keys.needed(role, next.roles.at(role));
    const tuf::RoleKeys& before = root_.roles.at(role);
    const auto old = keys.available(before.keyIds);
    seamless = seamless && old.size() >= before.threshold;
    for (const tuf::PrivateKey& key : old) {
      if (!next.roles.at(role).keyIds.contains(key.id())) signers[role].push_back(key);
    }
  }
  take(nextRoot);
  if (signsAnew) {
    const std::string timestamp = renewWith(signers, renewal, now);
    waits_ = !seamless;  // no client that knows but the root of before takes it
    if (seamless) {
      replaceTimestamp(timestamp);
    } else {
      metadata_.write(kWaiting, timestamp);
    }
  }
  metadata_.write(versioned(next.version, "root"), nextRoot);
  mend();
  return seamless;
}

void Repository::replaceTimestamp(const std::string& timestamp) {
  metadata_.write(kTimestamp, timestamp);
  metadata_.remove(kWaiting);
  waits_ = false;
}

void Repository::mend() {
  if (waits_) replaceTimestamp(file(kWaiting));
  const std::string newest = file(versioned(root_.version, "root"));
  if (metadata_.read("root.json", kMaxFile) != newest) metadata_.write("root.json", newest);
}

}  // namespace tufrepo
