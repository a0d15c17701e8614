#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tuf/Fetcher.h"
#include "tuf/Folder.h"
#include "tuf/metadata.h"
#include "tuf/trustedSet.h"

namespace tuf {

/// What the client takes at most, whatever a server says. Sizes in bytes; the length that trusted
/// metadata states limits further.
struct Limits {
  std::uint64_t root = std::uint64_t{512} << 10;
  std::uint64_t timestamp = std::uint64_t{64} << 10;
  std::uint64_t snapshot = std::uint64_t{16} << 20;
  std::uint64_t targets = std::uint64_t{16} << 20;
  unsigned newRoots = 1024;  ///< in one refresh
  unsigned roles = 32;       ///< looked into in the search for one target
};

/// Keeps a local folder of trusted metadata up to date after the client workflow of The Update
/// Framework, and finds and fetches targets. Folder and fetcher outlive it. All functions throw
/// Error; what was verified until then is stored, what was refused is not, and a later refresh goes
/// on from there.
class Client {
 public:
  Client(Folder& folder, Fetcher& fetcher, std::string metadataUrl, const Limits& limits = {});

  /// Makes `root` the folder's trusted root, which must be signed by its own keys.
  static void trust(Folder& folder, std::string_view root);

  /// Makes `root`, which must follow from the folder's trusted root, the trusted one, as a refresh
  /// does that finds it on a server.
  static void follow(Folder& folder, std::string_view root);

  /// Brings root, timestamp, snapshot and top-level targets up to date. The time of its start is
  /// the one that expiry is held against, in searches after it, too.
  void refresh();

  /// The top-level targets, as the last refresh left them. Only after a refresh.
  [[nodiscard]] const Targets& targets() const { return trusted_->targets(); }

  /// Searches all roles, with delegated metadata fetched where needed. Only after a refresh. Throws
  /// NotFound where nobody who may describe the target does.
  [[nodiscard]] TargetFile findTarget(const std::string& path);

  /// Fetches the target from below `baseUrl`. The bytes that `sink` gets are verified only when
  /// this returns: whoever keeps them discards them when it throws.
  void fetchTarget(const TargetFile& target, const std::string& baseUrl, const Sink& sink);

 private:
  struct Search;

  void updateRoot();
  void updateTimestamp();
  void updateSnapshot();
  void updateTargets();

  Targets delegated(const std::string& role, const Keys& keys, const RoleKeys& roleKeys);
  bool search(const Targets& role, Search& search);

  [[nodiscard]] std::optional<std::string> stored(const std::string& role,
                                                  std::uint64_t limit) const;
  void store(const std::string& role, std::string_view file);
  std::optional<std::string> fetchIfThere(const std::string& name, std::uint64_t limit,
                                          std::uint64_t expected = 0);
  std::string fetchRole(const std::string& role, const MetaFile& stated, std::uint64_t limit);

  Folder& folder_;
  Fetcher& fetcher_;
  std::string url_;
  Limits limits_;
  std::optional<TrustedSet> trusted_;
};

}  // namespace tuf
