#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tuf/canonicalJson.h"
#include "tuf/digest.h"
#include "tuf/key.h"

// The documents of a repository as values. What parses throws Error, Malformed, and accepts unknown
// members, which stay part of what is signed.

namespace tuf {

using Version = std::uint64_t;

struct Signature {
  std::string keyId;
  std::string digits;  ///< hexadecimal as it was sent: not checked
};

/// A file as it was received, before anything in it is trusted.
struct Envelope {
  explicit Envelope(std::string_view file);
  Envelope(const Envelope&) = delete;
  Envelope& operator=(const Envelope&) = delete;

  Json content;           ///< the member `signed`
  std::string canonical;  ///< its canonical form, which the signatures are made over
  std::vector<Signature> signatures;
};

/// Whose signatures a role takes.
struct RoleKeys {
  std::set<std::string> keyIds;
  std::uint64_t threshold = 0;  ///< at least 1

  bool operator==(const RoleKeys&) const = default;
};

using Keys = std::map<std::string, Key>;  ///< by the ids that the document gives them

struct Document {
  Version version = 0;  ///< at least 1
  std::time_t expires = 0;
};

struct Root : Document {
  bool consistentSnapshot = false;
  Keys keys;
  std::map<std::string, RoleKeys> roles;  ///< "root", "timestamp", "snapshot", "targets", others
};

/// What one document says of another.
struct MetaFile {
  Version version = 0;
  std::optional<std::uint64_t> length;
  Hashes hashes;
};

struct Timestamp : Document {
  MetaFile snapshot;
};

struct Snapshot : Document {
  std::map<std::string, MetaFile> files;  ///< by file name, such as "targets.json"
};

struct TargetFile {
  std::string path;
  std::uint64_t length = 0;
  Hashes hashes;
  Json custom;  ///< null where there is none; what it means is the application's
};

struct Delegation {
  std::string role;
  RoleKeys keys;
  std::vector<std::string> patterns;      ///< of target paths
  std::vector<std::string> hashPrefixes;  ///< of target paths' SHA-256
  bool terminating = false;
};

/// 2 to the `bits` roles of the same keys, each for an equal share of the target paths.
struct SuccinctRoles {
  RoleKeys keys;
  unsigned bits = 0;  ///< 1 to 32
  std::string namePrefix;
};

struct Targets : Document {
  using Entry = Json::object_t::value_type;

  /// What describes the targets, by their paths, checked but as it came: there may be very many, of
  /// which few are wanted.
  Json::object_t entries;
  Keys keys;  ///< of the delegated roles
  std::vector<Delegation> delegations;
  std::optional<SuccinctRoles> succinct;
};

// Take an envelope's content apart; what is large is moved out of it.
[[nodiscard]] Root parseRoot(Json&& content);
[[nodiscard]] Timestamp parseTimestamp(Json&& content);
[[nodiscard]] Snapshot parseSnapshot(Json&& content);
[[nodiscard]] Targets parseTargets(Json&& content);

/// Takes one of a document's `entries` apart.
[[nodiscard]] TargetFile targetFile(const Targets::Entry& entry);

/// Seconds since 1970 of exactly "YYYY-MM-DDTHH:MM:SSZ".
[[nodiscard]] std::time_t parseTime(const std::string& text);

}  // namespace tuf
