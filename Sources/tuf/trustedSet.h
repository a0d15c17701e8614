#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "tuf/metadata.h"

namespace tuf {

/// The metadata that has been verified so far, and the rules by which more is taken. Reads no file,
/// makes no request, asks no clock. All functions that take bytes throw Error and then change
/// nothing.
///
/// The order is that of the client workflow: roots, timestamp, snapshot, targets.
class TrustedSet {
 public:
  /// Loads the trusted root, which must be signed by its own keys. Its expiry does not matter yet.
  /// `now` is the fixed start of the update: what expires then or earlier has expired.
  TrustedSet(std::string_view root, std::time_t now);

  [[nodiscard]] const Root& root() const { return root_; }

  /// Takes the next root. Returns whether a key of the timestamp or snapshot role was taken away:
  /// then the stored timestamp and snapshot are to be deleted.
  bool updateRoot(std::string_view file);

  /// Throws Error, Expired. To be called when no further root follows.
  void checkRootExpiry() const;

  /// Takes the stored timestamp, which new ones are then held against, expired or not.
  void loadTimestamp(std::string_view file);

  /// Takes a new timestamp. Returns false where it is of the same version as the one trusted, which
  /// then stays. Throws, too, where the one trusted then has expired.
  bool updateTimestamp(std::string_view file);

  /// What the timestamp says of the snapshot.
  [[nodiscard]] const MetaFile& snapshotFile() const;

  /// Takes the stored snapshot, which new ones are then held against. Returns whether it is the one
  /// that the timestamp asks for, and valid: then there is nothing to fetch.
  bool loadSnapshot(std::string_view file);

  /// Takes a new snapshot.
  void updateSnapshot(std::string_view file);

  /// What the snapshot says of a targets role. Throws Error, NotFound, where it does not list it.
  [[nodiscard]] const MetaFile& targetsFile(const std::string& role) const;

  /// Verifies a targets role's file, stored or new, with the keys of the role that delegates to it.
  [[nodiscard]] Targets verifyTargets(const std::string& role, std::string_view file,
                                      const Keys& keys, const RoleKeys& roleKeys) const;

  /// Takes the top-level targets, stored or new.
  void updateTargets(std::string_view file);

  /// The top-level targets; only after `updateTargets`.
  [[nodiscard]] const Targets& targets() const { return *targets_; }

 private:
  [[nodiscard]] Json verified(std::string_view file, const std::string& role) const;
  void requireAlive(const Document& document, const std::string& role) const;

  std::time_t now_;
  Root root_;
  std::optional<Timestamp> timestamp_;
  std::optional<Snapshot> snapshot_;
  std::optional<Targets> targets_;
};

}  // namespace tuf
