#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <tuple>

#include "Updater/setup/utilsSetup.h"
#include "ground/osal_scratch.h"
#include "qd-repo/ListedRelease.h"
#include "qd-repo/RepositoryFetcher.h"
#include "qd-repo/commands.h"
#include "qd-repo/workplace.h"
#include "tuf/Client.h"
#include "tuf/Error.h"
#include "tuf/address.h"
#include "tufrepo/documents.h"
#include "tufrepo/keyFile.h"

namespace {

namespace fs = std::filesystem;
constexpr std::uint64_t kMaxText = std::uint64_t{16} << 20;

/// Looks at a repository as a client does and as somebody who is to vouch for it.
class Audit {
 public:
  explicit Audit(const RepoOptions& options)
      : options_(options),
        access_(options.repository),
        folder_(scratch_.path()),
        client_(folder_, *access_.fetcher, access_.address + "/metadata") {}

  /// The faults, each a sentence.
  const std::vector<std::string>& run() {
    if (!step([&] { refresh(); })) return faults_;
    for (const auto& entry : client_.targets().files) checkCopies(entry.second);
    step([&] { releases_ = releasesIn(client_.targets()); });
    step([&] { checkRoles(); });
    step([&] { checkDefinition(); });
    step([&] { (void)needed("index.html"); });
    if (access_.isFolder) step([&] { checkNoPrivateKeys(); });
    return faults_;
  }

  [[nodiscard]] const std::vector<std::string>& notes() const { return notes_; }
  [[nodiscard]] std::size_t targets() const { return client_.targets().files.size(); }

 private:
  bool step(const std::function<void()>& check) {
    const std::size_t before = faults_.size();
    try {
      check();
    } catch (const std::exception& e) {
      faults_.emplace_back(e.what());
    }
    return faults_.size() == before;
  }

  std::string needed(const std::string& path) {
    std::string text;
    const int status = access_.fetcher->fetch(access_.address + "/" + tuf::encodePath(path),
                                              kMaxText, [&](auto piece) { text += piece; });
    if (status == 200) return text;
    throw std::runtime_error(path + " is missing (" + std::to_string(status) + ")");
  }

  /// A client may ask for a target by any of its hashes.
  void checkCopies(const tuf::TargetFile& target) {
    for (const char* const algorithm : {"sha256", "sha512"}) {
      const auto hash = target.hashes.find(algorithm);
      if (hash == target.hashes.end()) continue;
      tuf::TargetFile copy = target;
      copy.hashes = {*hash};
      step([&] { client_.fetchTarget(copy, access_.address + "/targets", [](auto) {}); });
    }
  }

  void refresh() {
    std::string root;
    if (options_.file.empty()) {
      root = needed("metadata/1.root.json");
    } else {
      std::ifstream in(options_.file, std::ios::binary);
      root.assign(std::istreambuf_iterator<char>(in), {});
      if (root.empty()) throw std::runtime_error("Cannot read the root " + options_.file);
    }
    tuf::Client::trust(folder_, root);
    client_.refresh();
  }

  void checkRoles() {
    const std::string newest = folder_.read("root.json", kMaxText).value_or("");
    tuf::Envelope envelope(newest);
    const tuf::Root root = tuf::parseRoot(std::move(envelope.content));
    if (needed("metadata/root.json") != newest) {
      notes_.emplace_back("metadata/root.json is not the newest root; the next command mends it");
    }
    for (const auto& [id, key] : root.keys) {
      if (tuf::keyId(key) != id)
        faults_.push_back("The root gives the id " + id + " to another key");
    }
    for (const char* const online : {"timestamp", "snapshot"}) {
      for (const char* const offline : {"root", "targets"}) {
        for (const std::string& id : root.roles.at(online).keyIds) {
          if (!root.roles.at(offline).keyIds.contains(id)) continue;
          faults_.push_back("The key " + id + " signs for " + online + " and for " + offline +
                            ": who takes the server can sign packages");
        }
      }
    }
    const auto warn = [&](const std::string& name, const tuf::Document& document) {
      const std::time_t left = document.expires - present();
      if (left > std::time_t{30} * 86400) return;
      notes_.push_back(name + " expires at " + tufrepo::timeText(document.expires));
    };
    warn("root", root);
    warn("targets", client_.targets());
  }

  /// What programs without signed metadata read must be what is signed.
  void checkDefinition() {
    const auto file = nlohmann::json::parse(needed("agent_setup_def.json"));
    const UnixTime now{std::chrono::seconds(present())};
    for (const nlohmann::json& element : file) {
      step([&] { checkEntry(element.get<utils::AgentSetupDef>(), now); });
    }
    if (file.size() < offered(now)) {
      notes_.emplace_back("agent_setup_def.json is behind the metadata; refresh brings it up");
    }
  }

  [[nodiscard]] std::size_t offered(UnixTime now) const {
    std::set<std::tuple<int, int, int>> platforms;
    for (const ListedRelease& listed : releases_) {
      const Release& release = listed.release;
      if (isFullyOut(release, now)) platforms.emplace(release.os, release.arch, release.kind);
    }
    return platforms.size();
  }

  void checkEntry(const utils::AgentSetupDef& entry, UnixTime now) {
    const std::string folder = entry.path.substr(entry.path.find_first_not_of('/')) + "/";
    const std::string path = folder + entry.setup;
    const auto target = client_.targets().files.find(path);
    const ListedRelease* listed = nullptr;
    for (const ListedRelease& release : releases_) {
      if (release.path == path) listed = &release;
    }
    if (listed == nullptr || target == client_.targets().files.end()) {
      throw std::runtime_error("agent_setup_def.json offers " + path + ", which is not signed");
    }
    if (!isFullyOut(listed->release, now)) {
      notes_.push_back("agent_setup_def.json still offers " + path + "; refresh takes it back");
    }
    const std::string md5 = checkBytes(path, target->second);
    if (needed(folder + entry.hash).substr(0, md5.size()) != md5) {
      faults_.push_back(folder + entry.hash + " is not the MD5 of " + path);
    }
    if (!(Version(needed(folder + entry.version)) == listed->release.version)) {
      faults_.push_back(folder + entry.version + " does not say the version of " + path);
    }
  }

  /// The plain file against its target; returns its MD5.
  std::string checkBytes(const std::string& path, const tuf::TargetFile& target) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md5(EVP_MD_CTX_new(),
                                                                      &EVP_MD_CTX_free);
    EVP_DigestInit_ex(md5.get(), EVP_md5(), nullptr);
    tuf::FileCheck check(target.length, target.hashes);
    const int status = access_.fetcher->fetch(
        access_.address + "/" + tuf::encodePath(path), target.length, [&](std::string_view piece) {
          check.update(piece);
          EVP_DigestUpdate(md5.get(), piece.data(), piece.size());
        });
    if (status != 200) throw std::runtime_error(path + " is missing");
    check.finish(path);
    std::string value(EVP_MAX_MD_SIZE, '\0');
    unsigned int size = 0;
    EVP_DigestFinal_ex(md5.get(), reinterpret_cast<unsigned char*>(value.data()), &size);
    return tuf::toHex(std::string_view(value).substr(0, size));
  }

  void checkNoPrivateKeys() {
    constexpr std::uintmax_t kMaxKey = std::uintmax_t{64} << 10;
    for (const auto& entry : fs::recursive_directory_iterator(options_.repository)) {
      if (!entry.is_regular_file() || entry.file_size() > kMaxKey) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string text{std::istreambuf_iterator<char>(in), {}};
      if (!tufrepo::hasPrivateKey(text)) continue;
      faults_.push_back(entry.path().string() +
                        " is a private key in a public folder: rotate it, and move it away");
    }
  }

  const RepoOptions& options_;
  RepositoryAccess access_;
  ScratchFolder scratch_{"qd-repo"};  ///< for the trusted metadata of the check
  tuf::Folder folder_;
  tuf::Client client_;
  std::vector<ListedRelease> releases_;
  std::vector<std::string> faults_;
  std::vector<std::string> notes_;
};

/// Nobody changes a folder while it is looked at.
std::optional<tuf::Folder> lockOf(const RepoOptions& options) {
  if (!fs::is_directory(options.repository)) return std::nullopt;
  return std::optional<tuf::Folder>(std::in_place, options.repository);
}

}  // namespace

int verifyRepository(const RepoOptions& options) {
  const std::optional<tuf::Folder> lock = lockOf(options);
  Audit audit(options);
  const std::vector<std::string>& faults = audit.run();
  if (options.json) {
    std::cout << nlohmann::json{{"faults", faults}, {"notes", audit.notes()}}.dump(2) << '\n';
    return faults.empty() ? 0 : 1;
  }
  for (const std::string& fault : faults) std::cout << fault << '\n';
  for (const std::string& note : audit.notes()) std::cout << "Note: " << note << '\n';
  if (faults.empty()) {
    std::cout << "Everything is as signed: " << audit.targets() << " targets\n";
  }
  return faults.empty() ? 0 : 1;
}
