#include "tufrepo/rotation.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tuf/Error.h"
#include "tuf/threshold.h"

namespace tufrepo {
namespace {

std::string theOneBeginningWith(const std::string& beginning, const std::set<std::string>& ids) {
  std::vector<std::string> found;
  std::copy_if(ids.begin(), ids.end(), std::back_inserter(found),
               [&](const std::string& id) { return id.starts_with(beginning); });
  if (found.size() == 1 && !beginning.empty()) return found.front();
  throw std::runtime_error((found.empty() ? "No key of the role begins with "
                                          : "More than one key of the role begins with ") +
                           beginning + ": status shows the key ids");
}

/// Keys that no role has any more.
void dropUnused(Json& root) {
  std::set<std::string> used;
  for (const auto& [name, role] : root.at("roles").items()) {
    for (const Json& id : role.at("keyids")) used.insert(id.get<std::string>());
  }
  Json keys = Json::object();
  for (const auto& [id, key] : root.at("keys").items()) {
    if (used.contains(id)) keys[id] = key;
  }
  root["keys"] = keys;
}

}  // namespace

Json nextRoot(const Repository& repository, const RoleChange& change, std::time_t now) {
  const auto found = repository.root().roles.find(change.role);
  if (found == repository.root().roles.end()) {
    throw std::runtime_error("There is no role " + tuf::shown(change.role) +
                             ": take root, targets, snapshot or timestamp");
  }
  tuf::RoleKeys role = found->second;
  Json root = repository.rootContent();
  for (const tuf::Key& key : change.add) {
    const std::string id = tuf::keyId(key);
    root["keys"][id] = tuf::toJson(key);
    role.keyIds.insert(id);
  }
  for (const std::string& beginning : change.remove) {
    role.keyIds.erase(theOneBeginningWith(beginning, role.keyIds));
  }
  role.threshold = change.threshold.value_or(role.threshold);
  if (role.threshold == 0 || role.threshold > role.keyIds.size()) {
    throw std::runtime_error("The role " + change.role + " would have " +
                             std::to_string(role.keyIds.size()) + " keys, of which " +
                             std::to_string(role.threshold) +
                             " must sign: add a key, or give another --threshold");
  }
  root["roles"][change.role]["keyids"] = role.keyIds;
  root["roles"][change.role]["threshold"] = role.threshold;
  dropUnused(root);
  Lives lives = livesOf(root);
  for (const auto& [name, life] : change.lives) lives[name] = life;
  setLives(root, lives);
  root["version"] = repository.root().version + 1;
  root["expires"] = timeText(now + lives.at("root").count());
  return root;
}

std::string signRoot(const std::string& file, const tuf::Root& before, KeyRing& keys) {
  const tuf::Envelope envelope(file);
  const tuf::Root next = tuf::parseRoot(Json(envelope.content));
  if (next.version != before.version + 1) {
    throw std::runtime_error("The file is root " + std::to_string(next.version) +
                             ", and the repository's next one is " +
                             std::to_string(before.version + 1) + ": rotate again");
  }
  for (const auto& [id, key] : next.keys) {
    if (tuf::keyId(key) == id) continue;
    throw std::runtime_error("The root gives the id " + id + " to another key: rotate again");
  }
  std::set<std::string> wanted = before.roles.at("root").keyIds;
  wanted.insert(next.roles.at("root").keyIds.begin(), next.roles.at("root").keyIds.end());
  Json signatures = Json::array();
  for (const tuf::Signature& signature : envelope.signatures) {
    signatures.push_back({{"keyid", signature.keyId}, {"sig", signature.digits}});
    wanted.erase(signature.keyId);
  }
  for (const tuf::PrivateKey& key : keys.available(wanted)) {
    signatures.push_back({{"keyid", key.id()}, {"sig", tuf::toHex(key.sign(envelope.canonical))}});
  }
  return Json{{"signed", envelope.content}, {"signatures", signatures}}.dump(1);
}

std::string changesOf(const std::string& file, const tuf::Root& before) {
  const tuf::Root next = tuf::parseRoot(std::move(tuf::Envelope(file).content));
  std::ostringstream lines;
  for (const std::string& name : topRoles()) {
    const tuf::RoleKeys& was = before.roles.at(name);
    const tuf::RoleKeys& is = next.roles.at(name);
    for (const std::string& id : is.keyIds) {
      if (!was.keyIds.contains(id)) lines << "  " << name << ": new key " << id << '\n';
    }
    for (const std::string& id : was.keyIds) {
      if (!is.keyIds.contains(id)) lines << "  " << name << ": no longer " << id << '\n';
    }
    if (is.threshold == was.threshold) continue;
    lines << "  " << name << ": signed by " << is.threshold << ", no longer by " << was.threshold
          << '\n';
  }
  const std::string changes = lines.str();
  return "Root " + std::to_string(next.version) + ", valid until " + timeText(next.expires) +
         ":\n" + (changes.empty() ? "  the keys of before\n" : changes);
}

std::string missingSignatures(const std::string& file, const tuf::Root& before) {
  const tuf::Envelope envelope(file);
  const tuf::Root next = tuf::parseRoot(Json(envelope.content));
  try {
    tuf::requireThreshold(envelope, before.keys, before.roles.at("root"),
                          "The root, by the present keys,");
    tuf::requireThreshold(envelope, next.keys, next.roles.at("root"), "The root, by its own keys,");
  } catch (const tuf::Error& e) {
    return e.what();
  }
  return {};
}

}  // namespace tufrepo
