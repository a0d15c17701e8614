#include "tuf/trustedSet.h"

#include <algorithm>
#include <utility>

#include "tuf/Error.h"
#include "tuf/threshold.h"

namespace tuf {
namespace {

std::string versionText(Version version) { return "version " + std::to_string(version); }

/// Whether a key that signed for the role before may not do so any more.
bool lostKey(const Root& before, const Root& after, const char* role) {
  const std::set<std::string>& ids = before.roles.at(role).keyIds;
  const std::set<std::string>& kept = after.roles.at(role).keyIds;
  return std::any_of(ids.begin(), ids.end(), [&](const std::string& id) {
    const auto old = before.keys.find(id);
    const auto now = after.keys.find(id);
    return old != before.keys.end() &&
           (!kept.contains(id) || now == after.keys.end() || now->second != old->second);
  });
}

/// Mix-and-match and endless data: the file is the one that the trusted metadata describes.
void checkFile(std::string_view file, const MetaFile& stated, const std::string& name) {
  FileCheck check(stated.length, stated.hashes);
  check.update(file);
  check.finish(name);
}

void checkVersion(const Document& document, Version stated, const std::string& name) {
  if (document.version == stated) return;
  throw Error(ErrorKind::Mismatch,
              name + " has " + versionText(document.version) + ", not " + std::to_string(stated));
}

/// Rollback: nothing that the trusted snapshot lists gets older, and nothing vanishes.
void checkRollback(const Snapshot& trusted, const Snapshot& candidate) {
  if (candidate.version < trusted.version) {
    throw Error(ErrorKind::Rollback, "The snapshot went back from " + versionText(trusted.version) +
                                         " to " + std::to_string(candidate.version));
  }
  for (const auto& [name, file] : trusted.files) {
    const auto listed = candidate.files.find(name);
    if (listed == candidate.files.end()) {
      throw Error(ErrorKind::Rollback, shown(name) + " vanished from the snapshot");
    }
    if (listed->second.version < file.version) {
      throw Error(ErrorKind::Rollback, shown(name) + " went back from " +
                                           versionText(file.version) + " to " +
                                           std::to_string(listed->second.version));
    }
  }
}

}  // namespace

TrustedSet::TrustedSet(std::string_view root, std::time_t now) : now_(now) {
  Envelope file(root);
  root_ = parseRoot(std::move(file.content));
  requireThreshold(file, root_.keys, root_.roles.at("root"), "The trusted root");
}

bool TrustedSet::updateRoot(std::string_view bytes) {
  Envelope file(bytes);
  Root next = parseRoot(std::move(file.content));
  // Arbitrary software: the old keys vouch for the new ones, and these prove that they exist.
  requireThreshold(file, root_.keys, root_.roles.at("root"), "The next root, by the old keys,");
  requireThreshold(file, next.keys, next.roles.at("root"), "The next root, by its own keys,");
  // Rollback: exactly the next version.
  if (next.version != root_.version + 1) {
    throw Error(ErrorKind::Rollback, "The root after " + versionText(root_.version) + " has " +
                                         versionText(next.version));
  }
  const bool rotated = lostKey(root_, next, "timestamp") || lostKey(root_, next, "snapshot");
  root_ = std::move(next);
  return rotated;
}

void TrustedSet::checkRootExpiry() const {
  // Freeze: roots in between may have expired, the last one must not.
  requireAlive(root_, "The root");
}

void TrustedSet::loadTimestamp(std::string_view file) {
  timestamp_ = parseTimestamp(verified(file, "timestamp"));
}

bool TrustedSet::updateTimestamp(std::string_view file) {
  // Arbitrary software: signed by the root's keys for this role.
  Timestamp next = parseTimestamp(verified(file, "timestamp"));
  // Rollback: neither its own version nor that of the snapshot goes back.
  if (timestamp_ && next.version < timestamp_->version) {
    throw Error(ErrorKind::Rollback, "The timestamp went back from " +
                                         versionText(timestamp_->version) + " to " +
                                         std::to_string(next.version));
  }
  const bool same = timestamp_ && next.version == timestamp_->version;
  if (!same && timestamp_ && next.snapshot.version < timestamp_->snapshot.version) {
    throw Error(ErrorKind::Rollback, "The timestamp's snapshot went back from " +
                                         versionText(timestamp_->snapshot.version) + " to " +
                                         std::to_string(next.snapshot.version));
  }
  // Freeze: an old timestamp is not served for ever.
  requireAlive(same ? *timestamp_ : next, "The timestamp");
  if (!same) timestamp_ = std::move(next);
  return !same;
}

const MetaFile& TrustedSet::snapshotFile() const { return timestamp_->snapshot; }

bool TrustedSet::loadSnapshot(std::string_view file) {
  snapshot_ = parseSnapshot(verified(file, "snapshot"));
  try {
    checkFile(file, snapshotFile(), "The stored snapshot");
  } catch (const Error&) {
    return false;
  }
  return snapshot_->version == snapshotFile().version && snapshot_->expires > now_;
}

void TrustedSet::updateSnapshot(std::string_view file) {
  checkFile(file, snapshotFile(), "The snapshot");
  // Arbitrary software: signed by the root's keys for this role.
  Snapshot next = parseSnapshot(verified(file, "snapshot"));
  // Mix-and-match: the version that the timestamp states.
  checkVersion(next, snapshotFile().version, "The snapshot");
  if (snapshot_) checkRollback(*snapshot_, next);
  requireAlive(next, "The snapshot");  // freeze
  snapshot_ = std::move(next);
}

const MetaFile& TrustedSet::targetsFile(const std::string& role) const {
  const auto file = snapshot_->files.find(role + ".json");
  if (file != snapshot_->files.end()) return file->second;
  throw Error(ErrorKind::NotFound, "The snapshot does not list the role " + shown(role));
}

Targets TrustedSet::verifyTargets(const std::string& role, std::string_view bytes, const Keys& keys,
                                  const RoleKeys& roleKeys) const {
  const std::string name = "The role " + shown(role);
  const MetaFile& stated = targetsFile(role);
  checkFile(bytes, stated, name);
  // Arbitrary software: signed by the keys that the delegating role gives it.
  Envelope file(bytes);
  requireThreshold(file, keys, roleKeys, name);
  std::string().swap(file.canonical);  // may be large
  Targets targets = parseTargets(std::move(file.content));
  checkVersion(targets, stated.version, name);  // mix-and-match
  requireAlive(targets, name);                  // freeze
  return targets;
}

void TrustedSet::updateTargets(std::string_view file) {
  targets_ = verifyTargets("targets", file, root_.keys, root_.roles.at("targets"));
}

Json TrustedSet::verified(std::string_view bytes, const std::string& role) const {
  Envelope file(bytes);
  requireThreshold(file, root_.keys, root_.roles.at(role), "The " + role);
  return std::move(file.content);
}

void TrustedSet::requireAlive(const Document& document, const std::string& name) const {
  if (document.expires > now_) return;
  throw Error(ErrorKind::Expired, name + " has expired");
}

}  // namespace tuf
