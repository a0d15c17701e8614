#include <openssl/evp.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

#include "ground/osal_scratch.h"
#include "qd-repo/ListedRelease.h"
#include "qd-repo/RepositoryFetcher.h"
#include "qd-repo/commands.h"
#include "qd-repo/definition.h"
#include "qd-repo/plainFiles.h"
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
    for (const auto& entry : client_.targets().entries) checkCopies(tuf::targetFile(entry));
    step([&] { releases_ = releasesIn(client_.targets()); });
    step([&] { checkRoles(); });
    for (const ListedRelease& listed : releases_) step([&] { checkPlainFiles(listed); });
    step([&] { checkDefinition(); });
    step([&] { (void)needed("index.html"); });
    if (access_.isFolder) step([&] { checkNoPrivateKeys(); });
    return faults_;
  }

  [[nodiscard]] const std::vector<std::string>& notes() const { return notes_; }
  [[nodiscard]] std::size_t targets() const { return client_.targets().entries.size(); }

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
    const std::string text = needed("agent_setup_def.json");
    const UnixTime now{std::chrono::seconds(present())};
    if (text == definitionOf(releases_, now)) return;
    // Not yet the present one, where a command ended before its last step or a ramp has ended
    // since.
    if (text == definitionOf(onceOffered(text), now)) {
      notes_.emplace_back("agent_setup_def.json is behind the metadata; refresh brings it up");
    } else {
      faults_.emplace_back("agent_setup_def.json is not what is signed: refresh writes it anew");
    }
  }

  /// The releases that a definition file names, as they were before any halt.
  [[nodiscard]] std::vector<ListedRelease> onceOffered(const std::string& definition) const {
    const auto file = nlohmann::json::parse(definition, nullptr, false);
    std::vector<ListedRelease> named;
    for (ListedRelease listed : releases_) {
      const std::size_t slash = listed.path.rfind('/');
      const bool isNamed = std::ranges::any_of(file, [&](const nlohmann::json& entry) {
        return entry.is_object() && entry.value("setup", nlohmann::json()) == nameOf(listed) &&
               entry.value("path", nlohmann::json()) == "/" + listed.path.substr(0, slash);
      });
      listed.release.halted = false;
      if (isNamed) named.push_back(std::move(listed));
    }
    return named;
  }

  void checkPlainFiles(const ListedRelease& listed) {
    const std::string md5 =
        checkBytes(listed.path, tuf::targetFile(*client_.targets().entries.find(listed.path)));
    if (needed(listed.path + ".md5") != plainDigest(listed, md5)) {
      faults_.push_back(listed.path + ".md5 is not the MD5 of " + listed.path);
    }
    if (needed(listed.path + ".version") != plainVersion(listed)) {
      faults_.push_back(listed.path + ".version does not say the version of " + listed.path);
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
  return std::optional<tuf::Folder>(std::in_place, options.repository, sayWaiting);
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
