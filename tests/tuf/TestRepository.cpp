#include "TestRepository.h"

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <functional>
#include <utility>

#include "tuf/Error.h"
#include "tuf/address.h"
#include "tuf/digest.h"

using tuf::Json;
using tuf::PrivateKey;

namespace {

Json newContent(const std::string& type, int version) {
  return {{"_type", type},
          {"spec_version", "1.0.31"},
          {"version", version},
          {"expires", "2099-01-01T00:00:00Z"}};
}

std::string metadata(const std::string& name) { return "r/" + name + ".json"; }

/// "DIR/HASH.FILE"
std::string address(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;
  return "t/" + tuf::encodePath(path.substr(0, name) + tuf::sha256Hex("content of " + path) + '.' +
                                path.substr(name));
}

using Words = std::vector<std::string>;  // the action's name first, then what it is done to
using Action = std::function<void(TestRepository&, const Words&)>;

Json& delegation(TestRepository& r, const Words& words) {
  return r.content[words[1]]["delegations"]["roles"][std::stoul(words[2])];
}

const std::map<std::string, Action> kActions = {
    {"", [](auto&, auto&) {}},
    {"publish", [](auto& r, auto&) { r.publish(); }},
    {"publishRoot", [](auto& r, auto&) { r.publishRoot(); }},
    {"release", [](auto& r, auto&) { r.release(); }},
    {"noHashes", [](auto& r, auto&) { r.withHashes = false; }},
    {"raise",
     [](auto& r, auto& w) {
       std::for_each(w.begin() + 1, w.end(), [&](auto& role) { r.raise(role); });
     }},
    {"rotate", [](auto& r, auto& w) { r.rotate(w[1]); }},
    {"use", [](auto& r, auto& w) { r.signers[w[1]] = r.signers[w[2]]; }},
    {"expire", [](auto& r, auto& w) { r.content[w[1]]["expires"] = "2020-01-01T00:00:00Z"; }},
    {"revive", [](auto& r, auto& w) { r.content[w[1]]["expires"] = "2099-01-01T00:00:00Z"; }},
    {"drop", [](auto& r, auto& w) { r.content.erase(w[1]); }},
    {"set",
     [](auto& r, auto& w) {
       const Json::json_pointer at(w[1]);
       const std::string role = w[1].substr(1, w[1].find('/', 1) - 1);
       r.content[role][Json::json_pointer(w[1].substr(role.size() + 1))] = Json::parse(w[2]);
     }},
    // Delegations: the number is the place among those of the role.
    {"to",
     [](auto& r, auto& w) {
       std::for_each(w.begin() + 2, w.end(), [&](auto& role) { r.delegate(w[1], role); });
     }},
    {"paths", [](auto& r, auto& w) { delegation(r, w)["paths"] = Json::parse(w[3]); }},
    {"prefixes",
     [](auto& r, auto& w) {
       delegation(r, w).erase("paths");
       delegation(r, w)["path_hash_prefixes"] = Json::parse(w[3]);
     }},
    {"terminating", [](auto& r, auto& w) { delegation(r, w)["terminating"] = true; }},
    {"succinct",
     [](auto& r, auto& w) {
       Json& all = r.content[w[1]]["delegations"];
       all["succinct_roles"] = all["roles"][0];
       all["succinct_roles"].update({{"bit_length", 5}, {"name_prefix", "bin"}});
       all.erase("roles");
     }},
    {"add", [](auto& r, auto& w) { r.addTarget(w[1], w[2]); }},
    // The server.
    {"missing", [](auto& r, auto& w) { r.statusOfMissing = std::stoi(w[1]); }},
    {"erase", [](auto& r, auto& w) { r.files.erase(metadata(w[1])); }},
    {"copy", [](auto& r, auto& w) { r.files[metadata(w[2])] = r.files.at(metadata(w[1])); }},
    {"pad", [](auto& r, auto& w) { r.files.at(metadata(w[1])).append(std::stoul(w[2]), ' '); }},
    {"resign",
     [](auto& r, auto& w) {
       r.files[metadata(w.back())] = sign(r.content[w[1]], r.signers[w[1]]);
     }},
    {"package", [](auto& r, auto& w) { r.files[address("a")] = w[1]; }},
    {"sign", [](auto& r, auto& w) { r.addSignature(w[1], w[2]); }},
    {"again",
     [](auto& r, auto& w) {
       const std::string id = r.signers[w[1]][0].id();
       Json& root = r.content["root"];
       root["keys"]["again"] = root["keys"][id];
       root["roles"][w[1]] = {{"keyids", {id, "again"}}, {"threshold", std::stoi(w[2])}};
     }},
};

}  // namespace

TestRepository::TestRepository() {
  content["root"] = newContent("root", 0);
  content["root"]["consistent_snapshot"] = true;
  for (const char* role : {"timestamp", "snapshot", "targets"}) content[role] = newContent(role, 5);
  for (const char* role : {"root", "timestamp", "snapshot", "targets"}) rotate(role);
  publishRoot();
  play(R"(add targets a; to targets other; paths targets 0 ["other/*"]; publish)");
}

void TestRepository::play(const std::string& script) {
  Words actions;
  boost::algorithm::split(actions, script, boost::is_any_of(";"));
  for (std::string& action : actions) {
    boost::algorithm::trim(action);
    Words words;
    boost::algorithm::split(words, action, boost::is_any_of(" "));
    kActions.at(words[0])(*this, words);
  }
}

void TestRepository::raise(const std::string& role) {
  content[role]["version"] = content[role]["version"].get<int>() + 1;
}

Json TestRepository::describe(const std::string& role) {
  const std::string file = sign(content[role], signers[role]);
  files[metadata(content[role]["version"].dump() + '.' + tuf::percentEncode(role))] = file;
  Json described = {{"version", content[role]["version"]}};
  if (withHashes) {
    described["length"] = file.size();
    described["hashes"] = {{"sha256", tuf::sha256Hex(file)}, {"newer", "00"}};
  }
  return described;
}

void TestRepository::publish() {
  Json listed = Json::object();
  for (const auto& [role, what] : content) {
    if (what["_type"] == "targets") listed[role + ".json"] = describe(role);
  }
  content["snapshot"]["meta"] = listed;
  content["timestamp"]["meta"] = {{"snapshot.json", describe("snapshot")}};
  play("resign timestamp");
}

void TestRepository::publishRoot() {
  raise("root");
  std::vector<PrivateKey> keys = signers["root"];
  std::copy_if(formerRoot_.begin(), formerRoot_.end(), std::back_inserter(keys),
               [&](const PrivateKey& key) { return key.id() != keys[0].id(); });
  files[metadata(content["root"]["version"].dump() + ".root")] = sign(content["root"], keys);
  formerRoot_ = signers["root"];
}

void TestRepository::release() { play("raise targets snapshot timestamp; publish"); }

void TestRepository::rotate(const std::string& role) {
  const PrivateKey key =
      role == "snapshot" ? PrivateKey::generateEcdsa() : PrivateKey::generateEd25519();
  signers[role] = {key};
  content["root"]["keys"][key.id()] = toJson(key.publicKey());
  content["root"]["roles"][role] = {{"keyids", {key.id()}}, {"threshold", 1}};
}

void TestRepository::addTarget(const std::string& role, const std::string& path) {
  const std::string what = "content of " + path;
  content[role]["targets"][path] = {
      {"length", what.size()}, {"hashes", {{"sha256", tuf::sha256Hex(what)}, {"newer", "00"}}}};
  files[address(path)] = what;
}

void TestRepository::delegate(const std::string& from, const std::string& to) {
  if (!content.contains(to)) {
    content[to] = newContent("targets", 5);
    content[to]["targets"] = Json::object();
    signers[to] = {PrivateKey::generateEd25519()};
  }
  const PrivateKey& key = signers[to][0];
  Json& delegations = content[from]["delegations"];
  delegations["keys"][key.id()] = toJson(key.publicKey());
  delegations["roles"].push_back(
      {{"name", to}, {"keyids", {key.id()}}, {"threshold", 1}, {"paths", {"p/*"}}});
}

/// One more signature in the timestamp; "*" repeats the first.
void TestRepository::addSignature(const std::string& id, const std::string& digits) {
  std::string& file = files[metadata("timestamp")];
  Json json = Json::parse(file);
  const Json& sig = digits == "*" ? json["signatures"][0]["sig"] : Json(digits);
  json["signatures"].push_back({{"keyid", id}, {"sig", sig}});
  file = json.dump();
}

std::string TestRepository::asked() { return std::exchange(requests_, {}); }

int TestRepository::fetch(const std::string& url, std::uint64_t maxBytes, const tuf::Sink& sink) {
  std::string request = url.starts_with("r/") ? url.substr(2, url.size() - 7) : url;
  const std::size_t digits = request.find_first_not_of("0123456789abcdef", request.rfind('/') + 1);
  if (url.starts_with("t/") && digits != std::string::npos && digits >= 64) {
    request.replace(digits - 64, 64, "#");
  }
  requests_ += ' ' + request;
  const auto file = files.find(url);
  if (file == files.end()) return statusOfMissing;
  if (file->second.size() > maxBytes) throw tuf::Error(tuf::ErrorKind::Size, "too large");
  sink(file->second);
  return 200;
}
