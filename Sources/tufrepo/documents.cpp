#include "tufrepo/documents.h"

#include "ground/osal_utc.h"

namespace tufrepo {
namespace {

constexpr const char* kSpecVersion = "1.0.33";
constexpr const char* kLives = "x-lives";  // seconds, by role

Json document(const char* type) {
  return {{"_type", type}, {"spec_version", kSpecVersion}, {"version", 0}, {"expires", ""}};
}

}  // namespace

const std::vector<std::string>& topRoles() {
  static const std::vector<std::string> roles = {"root", "targets", "snapshot", "timestamp"};
  return roles;
}

Lives defaultLives() {
  using std::chrono::hours;
  constexpr auto kDay = hours(24);
  return {{"root", 730 * kDay},
          {"targets", 180 * kDay},
          {"snapshot", 30 * kDay},
          {"timestamp", 7 * kDay}};
}

std::string timeText(std::time_t time) { return osal_utcText(time); }

Json firstRoot(const std::map<std::string, FirstRole>& roles, const Lives& lives) {
  Json root = document("root");
  root["consistent_snapshot"] = true;
  for (const auto& [name, role] : roles) {
    Json ids = Json::array();
    for (const tuf::Key& key : role.keys) {
      const std::string id = tuf::keyId(key);
      root["keys"][id] = tuf::toJson(key);
      ids.push_back(id);
    }
    root["roles"][name] = {{"keyids", ids}, {"threshold", role.threshold}};
  }
  setLives(root, lives);
  return root;
}

Json firstTargets() {
  Json targets = document("targets");
  targets["targets"] = Json::object();
  return targets;
}

Json firstSnapshot() {
  Json snapshot = document("snapshot");
  snapshot["meta"] = Json::object();
  return snapshot;
}

Json firstTimestamp() {
  Json timestamp = document("timestamp");
  timestamp["meta"] = Json::object();
  return timestamp;
}

Lives livesOf(const Json& root) {
  Lives lives = defaultLives();
  const auto stated = root.find(kLives);
  if (stated == root.end() || !stated->is_object()) return lives;
  for (auto& [role, life] : lives) {
    const auto value = stated->find(role);
    if (value != stated->end() && value->is_number_unsigned()) {
      life = std::chrono::seconds(value->get<std::uint32_t>());
    }
  }
  return lives;
}

void setLives(Json& root, const Lives& lives) {
  for (const auto& [role, life] : lives) {
    root[kLives][role] = static_cast<std::uint64_t>(life.count());
  }
}

Json describe(tuf::Version version, std::string_view file) {
  return {{"version", version},
          {"length", file.size()},
          {"hashes", {{"sha256", tuf::sha256Hex(file)}}}};
}

Json describeTarget(const tuf::TargetFile& target) {
  Json entry = {{"length", target.length}, {"hashes", target.hashes}};
  if (!target.custom.is_null()) entry["custom"] = target.custom;
  return entry;
}

}  // namespace tufrepo
