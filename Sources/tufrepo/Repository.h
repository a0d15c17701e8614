#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tuf/Folder.h"
#include "tuf/metadata.h"
#include "tufrepo/KeyRing.h"
#include "tufrepo/documents.h"

namespace tufrepo {

/// A repository of The Update Framework in a folder of static files: FOLDER/metadata and
/// FOLDER/targets, consistent snapshots. While the object lives no other one of any process has the
/// folder: the constructor waits, and calls `waiting` where that takes long.
///
/// Every file is written whole or not at all, and what describes a file after the file itself, the
/// timestamp last: whenever the process ends, what lies there is the repository before or after a
/// change. What fails throws std::runtime_error (tuf::Error is one) with a plain sentence.
class Repository {
 public:
  /// Opens a repository, whose documents must be signed as its newest root says; they may have
  /// expired.
  explicit Repository(const std::string& folder, const tuf::Waiting& waiting = {});

  /// Makes a repository without targets, or completes one that was interrupted while it was made.
  /// One that is there already is an error.
  static void create(const std::string& folder, const Json& root, KeyRing& keys, std::time_t now,
                     const tuf::Waiting& waiting = {});

  [[nodiscard]] const std::string& folder() const { return path_; }
  [[nodiscard]] const tuf::Root& root() const { return root_; }
  [[nodiscard]] const Json& rootContent() const { return rootContent_; }
  [[nodiscard]] const Json& timestamp() const { return timestamp_; }
  [[nodiscard]] const Json& snapshot() const { return snapshot_; }
  [[nodiscard]] const Json& targets() const { return targets_; }

  /// The files directly in the repository's folder.
  [[nodiscard]] tuf::Folder& top() { return top_; }
  [[nodiscard]] tuf::Folder& metadata() { return metadata_; }

  /// A document's expiry.
  [[nodiscard]] std::time_t expiryOf(const std::string& role) const;

  /// Which documents `renew` writes anew beside the timestamp; targets include the snapshot.
  struct Renewal {
    bool targets = false;
    bool snapshot = false;
  };

  /// The entries that the next targets document is to have, in place of those of `targets()`.
  void setEntries(Json entries) { targets_["targets"] = std::move(entries); }

  /// Writes new documents. Keys that are missing are missed before anything is written.
  void renew(KeyRing& keys, const Renewal& renewal, std::time_t now);

  /// Whether less than half of the snapshot's life is left.
  [[nodiscard]] bool snapshotIsOld(std::time_t now) const;

  /// Puts the next root in place, which must have enough signatures, and signs anew what it has
  /// other keys for. What the keys allow is first signed with the keys of both roots, so that there
  /// is no moment at which a client is refused. Returns false where old keys are missing: then
  /// there was one.
  bool install(const std::string& nextRoot, KeyRing& keys, std::time_t now);

  /// Numbers of the files "N.ROLE.json", ascending.
  [[nodiscard]] std::vector<tuf::Version> versionsOf(const std::string& role) const;

  /// Completes what a process has left that ended while it put a root in place: the timestamp that
  /// the root's keys have signed, and root.json.
  void mend();

 private:
  using Signers = std::map<std::string, std::vector<tuf::PrivateKey>>;

  void load();
  std::string read(const std::string& name, Json& content) const;
  void take(const std::string& root);
  void take(const std::string& root, const std::string& timestamp);
  /// Returns the timestamp, which is not written yet.
  std::string renewWith(const Signers& signers, const Renewal& renewal, std::time_t now);
  void replaceTimestamp(const std::string& timestamp);
  std::string write(Json& content, const std::string& role, tuf::Version version,
                    const Signers& signers, std::time_t now);
  [[nodiscard]] tuf::Version nextVersion(const std::string& role, const Json& content) const;
  [[nodiscard]] std::string file(const std::string& name) const;

  std::string path_;
  tuf::Folder top_;
  tuf::Folder metadata_;
  tuf::Root root_;
  Json rootContent_;
  Json timestamp_;
  Json snapshot_;
  Json targets_;
  bool waits_ = false;  ///< the timestamp, for its place
};

}  // namespace tufrepo
