#include "tuf/Client.h"

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

#include "ground/osal_heap.h"
#include "tuf/Error.h"
#include "tuf/address.h"
#include "tuf/delegation.h"
#include "tuf/naming.h"

namespace tuf {
namespace {

/// The one place where the library asks for the time.
std::time_t systemTime() { return std::time(nullptr); }

/// The base may hold escapes of its own, and `path` is encoded already.
std::string joinUrl(const std::string& base, const std::string& path) {
  return base + (base.ends_with('/') ? "" : "/") + path;
}

[[noreturn]] void failFetch(const std::string& name, int status) {
  throw Error(ErrorKind::Network, "The server answers " + std::to_string(status) + " for " + name);
}

/// Whether the function takes the file, which may be damaged or out of date.
template <typename Function>
bool accepts(const Function& function, const std::optional<std::string>& file) {
  if (!file) return false;
  try {
    function(*file);
    return true;
  } catch (const Error&) {
    return false;
  }
}

/// `DIR/HASH.FILE` for `DIR/FILE`. A repository has one copy for each of the hashes.
std::string consistentPath(const TargetFile& target) {
  const auto known = target.hashes.contains("sha256") ? target.hashes.find("sha256")
                                                      : target.hashes.find("sha512");
  const std::size_t name = target.path.rfind('/') + 1;  // 0 without a folder
  return target.path.substr(0, name) + known->second + '.' + target.path.substr(name);
}

TrustedSet loadRoot(const Folder& folder, std::uint64_t limit) {
  const std::optional<std::string> file = folder.read(roleFile("root"), limit);
  if (!file) {
    const std::string why = folder.obstacle(roleFile("root"), limit);
    throw Error(ErrorKind::Storage,
                why.empty() ? "There is no trusted root" : "The trusted root " + why);
  }
  return naming("The trusted root", [&] { return TrustedSet(*file, systemTime()); });
}

void takeRoot(Folder& folder, TrustedSet& trusted, std::string_view root) {
  if (trusted.updateRoot(root)) {
    // Fast-forward: with keys that were stolen, somebody may have signed the highest versions.
    // Deleted before the root is stored, so that the next run need not know of the change.
    folder.remove(roleFile("timestamp"));
    folder.remove(roleFile("snapshot"));
  }
  folder.write(roleFile("root"), root);
}

}  // namespace

/// The way through the delegations to one target.
struct Client::Search {
  const std::string& path;
  unsigned rolesLeft;
  bool limited = false;
  std::vector<std::string> way{"targets"};
  std::optional<TargetFile> found{};
};

Client::Client(Folder& folder, Fetcher& fetcher, std::string metadataUrl, const Limits& limits)
    : folder_(folder), fetcher_(fetcher), url_(std::move(metadataUrl)), limits_(limits) {}

void Client::trust(Folder& folder, std::string_view root) {
  if (root.size() > Limits{}.root) throw Error(ErrorKind::Size, "The root has too many bytes");
  naming("The root", [&] { (void)TrustedSet(root, systemTime()); });
  folder.write(roleFile("root"), root);
}

void Client::follow(Folder& folder, std::string_view root) {
  TrustedSet trusted = loadRoot(folder, Limits{}.root);
  naming("The root", [&] { takeRoot(folder, trusted, root); });
}

void Client::refresh() {
  trusted_.emplace(loadRoot(folder_, limits_.root));
  updateRoot();
  updateTimestamp();
  updateSnapshot();
  updateTargets();
}

void Client::updateRoot() {
  for (unsigned count = 0; count < limits_.newRoots; ++count) {
    const std::string name = std::to_string(trusted_->root().version + 1) + ".root.json";
    const std::optional<std::string> file = fetchIfThere(name, limits_.root);
    if (!file) break;
    naming(name, [&] { takeRoot(folder_, *trusted_, *file); });
  }
  trusted_->checkRootExpiry();
}

void Client::updateTimestamp() {
  accepts([&](const auto& file) { trusted_->loadTimestamp(file); },
          stored("timestamp", limits_.timestamp));
  const std::string name = "timestamp.json";
  const std::optional<std::string> file = fetchIfThere(name, limits_.timestamp);
  if (!file) failFetch(name, 404);
  if (naming(name, [&] { return trusted_->updateTimestamp(*file); })) store("timestamp", *file);
}

void Client::updateSnapshot() {
  bool current = false;
  accepts([&](const auto& file) { current = trusted_->loadSnapshot(file); },
          stored("snapshot", limits_.snapshot));
  if (current) return;
  const std::string file = fetchRole("snapshot", trusted_->snapshotFile(), limits_.snapshot);
  naming("The snapshot", [&] { trusted_->updateSnapshot(file); });
  store("snapshot", file);
}

void Client::updateTargets() {
  const auto update = [&](const std::string& file) { trusted_->updateTargets(file); };
  if (accepts(update, stored("targets", limits_.targets))) return;
  const std::string file = fetchRole("targets", trusted_->targetsFile("targets"), limits_.targets);
  naming("The role \"targets\"", [&] { update(file); });
  store("targets", file);
}

TargetFile Client::findTarget(const std::string& path) {
  Search state{.path = path, .rolesLeft = limits_.roles};
  search(trusted_->targets(), state);
  if (state.found) return std::move(*state.found);
  if (state.limited) {
    throw Error(ErrorKind::NotFound, "The search for the target " + shown(path) +
                                         " ended at the limit of " + std::to_string(limits_.roles) +
                                         " roles");
  }
  throw Error(ErrorKind::NotFound, "No role describes the target " + shown(path));
}

/// Depth first, in the order of the delegations. Returns whether the search has ended: with a
/// description, at a terminating delegation, or at the limit of roles.
bool Client::search(const Targets& role, Search& state) {
  --state.rolesLeft;
  if (const auto entry = role.entries.find(state.path); entry != role.entries.end()) {
    state.found = targetFile(*entry);
    return true;
  }
  for (const Delegation& delegation : delegationsFor(role, state.path)) {
    const bool cycle =
        std::find(state.way.begin(), state.way.end(), delegation.role) != state.way.end();
    if (!cycle) {
      state.limited = state.rolesLeft == 0;
      if (state.limited) return true;  // endless delegations
      const Targets next = delegated(delegation.role, role.keys, delegation.keys);
      state.way.push_back(delegation.role);
      if (search(next, state)) return true;
      state.way.pop_back();
    }
    if (delegation.terminating) return true;
  }
  return false;
}

/// A stored file that another delegating role had accepted is verified like any other.
Targets Client::delegated(const std::string& role, const Keys& keys, const RoleKeys& roleKeys) {
  std::optional<Targets> targets;
  const auto verify = [&](const std::string& file) {
    targets = trusted_->verifyTargets(role, file, keys, roleKeys);
  };
  const MetaFile& stated = trusted_->targetsFile(role);
  if (!accepts(verify, stored(role, limits_.targets))) {
    const std::string file = fetchRole(role, stated, limits_.targets);
    naming("The role " + shown(role), [&] { verify(file); });
    store(role, file);
  }
  return std::move(*targets);
}

void Client::fetchTarget(const TargetFile& target, const std::string& baseUrl, const Sink& sink) {
  FileCheck check(target.length, target.hashes);
  const std::string path =
      encodePath(trusted_->root().consistentSnapshot ? consistentPath(target) : target.path);
  const int status =
      fetcher_.fetch(joinUrl(baseUrl, path), target.length, [&](std::string_view bytes) {
        check.update(bytes);
        sink(bytes);
      });
  if (status != 200) failFetch(path, status);
  check.finish("The target " + shown(target.path));
}

std::optional<std::string> Client::stored(const std::string& role, std::uint64_t limit) const {
  return folder_.read(roleFile(role), limit);
}

void Client::store(const std::string& role, std::string_view file) {
  folder_.write(roleFile(role), file);
}

/// Nothing where the server has no such file, which an object store may call forbidden.
std::optional<std::string> Client::fetchIfThere(const std::string& name, std::uint64_t limit,
                                                std::uint64_t expected) {
  std::string file;
  osal_growHeap(kGrowth * std::min(limit, expected));
  file.reserve(std::min(limit, expected));
  const int status =
      fetcher_.fetch(joinUrl(url_, name), limit, [&](std::string_view bytes) { file += bytes; });
  if (status == 404 || status == 403) return std::nullopt;
  if (status != 200) failFetch(name, status);
  return file;
}

std::string Client::fetchRole(const std::string& role, const MetaFile& stated,
                              std::uint64_t limit) {
  const std::string prefix =
      trusted_->root().consistentSnapshot ? std::to_string(stated.version) + '.' : "";
  const std::string name = prefix + percentEncode(role) + ".json";
  std::optional<std::string> file =
      fetchIfThere(name, std::min(limit, stated.length.value_or(limit)), stated.length.value_or(0));
  if (!file) failFetch(name, 404);
  return std::move(*file);
}

}  // namespace tuf
