#include "tuf/metadata.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <utility>

#include "ground/osal_utc.h"
#include "tuf/Error.h"

namespace tuf {
namespace {

using Kind = Json::value_t;

/// Below the end of what counts it, so that there is a next one.
constexpr Version kMaxVersion = std::numeric_limits<std::int64_t>::max();

constexpr std::array<const char*, 4> kTopLevelRoles = {"root", "timestamp", "snapshot", "targets"};

const Json* find(const Json& object, const char* name) {
  if (!object.is_object()) refuseMalformed(std::string("No object around ") + name);
  const auto member = object.find(name);
  return member == object.end() ? nullptr : &*member;
}

const Json& member(const Json& object, const char* name) {
  const Json* const found = find(object, name);
  if (found == nullptr) refuseMalformed(std::string("The member ") + name + " is missing");
  return *found;
}

const Json::object_t& asObject(const Json& value, const char* name) {
  if (!value.is_object()) refuseMalformed(std::string(name) + " is no object");
  return value.get_ref<const Json::object_t&>();
}

const Json::array_t& asArray(const Json& value, const char* name) {
  if (!value.is_array()) refuseMalformed(std::string(name) + " is no list");
  return value.get_ref<const Json::array_t&>();
}

const std::string& asText(const Json& value, const char* name) {
  if (!value.is_string()) refuseMalformed(std::string(name) + " is no text");
  return value.get_ref<const std::string&>();
}

bool asBool(const Json& value, const char* name) {
  if (!value.is_boolean()) refuseMalformed(std::string(name) + " is neither true nor false");
  return value.get<bool>();
}

std::uint64_t asNumber(const Json& value, const char* name, std::uint64_t least) {
  const bool whole =
      value.is_number_unsigned() || (value.is_number_integer() && value.get<std::int64_t>() >= 0);
  if (!whole || value.get<std::uint64_t>() < least) {
    refuseMalformed(std::string(name) + " is no whole number from " + std::to_string(least) +
                    " on");
  }
  return value.get<std::uint64_t>();
}

Version versionOf(const Json& object) {
  const Version version = asNumber(member(object, "version"), "version", 1);
  if (version <= kMaxVersion) return version;
  refuseMalformed("version is more than " + std::to_string(kMaxVersion));
}

std::vector<std::string> asTexts(const Json& value, const char* name) {
  std::vector<std::string> texts;
  for (const Json& element : asArray(value, name)) texts.push_back(asText(element, name));
  return texts;
}

/// "1.x" or "1.x.y", with what semantic versions may have behind it.
bool isSupportedSpec(std::string_view text) {
  text = text.substr(0, text.find_first_of("-+"));
  if (!text.starts_with("1.")) return false;
  text.remove_prefix(2);
  const std::size_t dot = text.find('.');
  const auto isNumber = [](std::string_view part) {
    return !part.empty() && part.find_first_not_of("0123456789") == std::string_view::npos;
  };
  return isNumber(text.substr(0, dot)) &&
         (dot == std::string_view::npos || isNumber(text.substr(dot + 1)));
}

void parseDocument(const Json& content, const char* type, Document& document) {
  if (asText(member(content, "_type"), "_type") != type) {
    refuseMalformed(std::string("It is not of the type ") + type);
  }
  if (!isSupportedSpec(asText(member(content, "spec_version"), "spec_version"))) {
    refuseMalformed("Its spec_version is not 1.x");
  }
  document.version = versionOf(content);
  document.expires = parseTime(asText(member(content, "expires"), "expires"));
}

Keys parseKeys(const Json& value) {
  Keys keys;
  for (const auto& [id, key] : asObject(value, "keys")) keys.emplace(id, keyFromJson(key));
  return keys;
}

RoleKeys parseRoleKeys(const Json& role) {
  RoleKeys keys;
  for (std::string& id : asTexts(member(role, "keyids"), "keyids")) {
    keys.keyIds.insert(std::move(id));
  }
  keys.threshold = asNumber(member(role, "threshold"), "threshold", 1);
  return keys;
}

const Json::object_t& checkedHashes(const Json& value) {
  const Json::object_t& hashes = asObject(value, "hashes");
  if (hashes.empty()) refuseMalformed("hashes is empty");
  for (const auto& entry : hashes) (void)asText(entry.second, "hashes");
  return hashes;
}

Hashes parseHashes(const Json& value) {
  Hashes hashes;
  for (const auto& [algorithm, digits] : checkedHashes(value)) {
    hashes.emplace(algorithm, digits.get_ref<const std::string&>());
  }
  return hashes;
}

MetaFile parseMetaFile(const Json& value) {
  MetaFile file;
  file.version = versionOf(value);
  if (const Json* length = find(value, "length")) file.length = asNumber(*length, "length", 0);
  if (const Json* hashes = find(value, "hashes")) file.hashes = parseHashes(*hashes);
  return file;
}

void checkTarget(const Json& entry) {
  (void)asNumber(member(entry, "length"), "length", 0);
  (void)checkedHashes(member(entry, "hashes"));
  if (const Json* custom = find(entry, "custom")) (void)asObject(*custom, "custom");
}

/// A delegated role is stored under its name, so it must not be one of the four.
void checkRoleName(const std::string& name) {
  if (name.empty() || std::count(kTopLevelRoles.begin(), kTopLevelRoles.end(), name) != 0) {
    refuseMalformed("A delegated role has the name " + shown(name));
  }
}

Delegation parseDelegation(const Json& value) {
  Delegation delegation;
  delegation.role = asText(member(value, "name"), "name");
  checkRoleName(delegation.role);
  delegation.keys = parseRoleKeys(value);
  const Json* const patterns = find(value, "paths");
  const Json* const prefixes = find(value, "path_hash_prefixes");
  if (patterns != nullptr && prefixes != nullptr) {
    refuseMalformed("The role " + shown(delegation.role) +
                    " has both paths and path_hash_prefixes");
  }
  if (patterns != nullptr) delegation.patterns = asTexts(*patterns, "paths");
  if (prefixes != nullptr) delegation.hashPrefixes = asTexts(*prefixes, "path_hash_prefixes");
  if (const Json* terminating = find(value, "terminating")) {
    delegation.terminating = asBool(*terminating, "terminating");
  }
  return delegation;
}

std::vector<Delegation> parseDelegations(const Json& value) {
  std::vector<Delegation> delegations;
  std::set<std::string> names;
  for (const Json& role : asArray(value, "roles")) {
    delegations.push_back(parseDelegation(role));
    if (!names.insert(delegations.back().role).second) {
      refuseMalformed("The role " + shown(delegations.back().role) + " is delegated to twice");
    }
  }
  return delegations;
}

SuccinctRoles parseSuccinct(const Json& value) {
  SuccinctRoles roles;
  roles.keys = parseRoleKeys(value);
  const std::uint64_t bits = asNumber(member(value, "bit_length"), "bit_length", 1);
  if (bits > 32) refuseMalformed("bit_length is more than 32");
  roles.bits = static_cast<unsigned>(bits);
  roles.namePrefix = asText(member(value, "name_prefix"), "name_prefix");
  return roles;
}

void parseAllDelegations(const Json& value, Targets& targets) {
  targets.keys = parseKeys(member(value, "keys"));
  const Json* const roles = find(value, "roles");
  const Json* const succinct = find(value, "succinct_roles");
  if ((roles == nullptr) == (succinct == nullptr)) {
    refuseMalformed("delegations has not exactly one of roles and succinct_roles");
  }
  if (roles != nullptr) targets.delegations = parseDelegations(*roles);
  if (succinct != nullptr) targets.succinct = parseSuccinct(*succinct);
}

}  // namespace

std::time_t parseTime(const std::string& text) {
  const auto time = osal_parseUtc(text);
  if (!time) refuseMalformed("A time is not YYYY-MM-DDTHH:MM:SSZ");
  return *time;
}

Envelope::Envelope(std::string_view file) {
  Json json = parseJson(file);
  std::set<std::string> keyIds;
  for (const Json& entry : asArray(member(json, "signatures"), "signatures")) {
    Signature signature{asText(member(entry, "keyid"), "keyid"),
                        asText(member(entry, "sig"), "sig")};
    if (!keyIds.insert(signature.keyId).second)
      refuseMalformed("A key id stands twice in signatures");
    signatures.push_back(std::move(signature));
  }
  (void)member(json, "signed");
  content = std::move(json["signed"]);
  canonical = canonicalJson(content, file.size());
}

Root parseRoot(Json&& content) {
  Root root;
  parseDocument(content, "root", root);
  if (const Json* consistent = find(content, "consistent_snapshot")) {
    root.consistentSnapshot = asBool(*consistent, "consistent_snapshot");
  }
  root.keys = parseKeys(member(content, "keys"));
  for (const auto& [name, role] : asObject(member(content, "roles"), "roles")) {
    root.roles.emplace(name, parseRoleKeys(role));
  }
  for (const char* name : kTopLevelRoles) {
    if (!root.roles.contains(name))
      refuseMalformed(std::string("The root does not know the role ") + name);
  }
  return root;
}

Timestamp parseTimestamp(Json&& content) {
  Timestamp timestamp;
  parseDocument(content, "timestamp", timestamp);
  const Json& files = member(content, "meta");
  if (asObject(files, "meta").size() != 1)
    refuseMalformed("The timestamp describes not just the snapshot");
  timestamp.snapshot = parseMetaFile(member(files, "snapshot.json"));
  return timestamp;
}

Snapshot parseSnapshot(Json&& content) {
  Snapshot snapshot;
  parseDocument(content, "snapshot", snapshot);
  for (const auto& [name, file] : asObject(member(content, "meta"), "meta")) {
    snapshot.files.emplace(name, parseMetaFile(file));
  }
  if (!snapshot.files.contains("targets.json"))
    refuseMalformed("The snapshot does not list targets.json");
  return snapshot;
}

Targets parseTargets(Json&& content) {
  Targets targets;
  parseDocument(content, "targets", targets);
  for (const auto& entry : asObject(member(content, "targets"), "targets")) {
    checkTarget(entry.second);
  }
  targets.entries = std::move(content["targets"].get_ref<Json::object_t&>());
  if (const Json* delegations = find(content, "delegations")) {
    parseAllDelegations(*delegations, targets);
  }
  return targets;
}

TargetFile targetFile(const Targets::Entry& entry) {
  const auto& [path, value] = entry;
  return {path, value.at("length").get<std::uint64_t>(), parseHashes(value.at("hashes")),
          value.value("custom", Json())};
}

}  // namespace tuf
