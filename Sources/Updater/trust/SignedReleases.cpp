#include "Updater/trust/SignedReleases.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>

#include "Updater/trust/trustedRoot.h"
#include "fetch/address.h"
#include "logging/QDLog.h"
#include "tuf/Client.h"
#include "tuf/Error.h"
#include "tuf/Folder.h"
#include "tuf/address.h"
#include "tufnet/CurlFetcher.h"

using Clock = std::chrono::steady_clock;

namespace {

TrustFailure failureOf(const tuf::Error& e) {
  switch (e.kind()) {
    case tuf::ErrorKind::Network:
      return {TrustFailure::Kind::Network, e.what()};
    case tuf::ErrorKind::Storage:
      return {TrustFailure::Kind::Storage, e.what()};
    default:
      return {TrustFailure::Kind::Untrusted, e.what()};
  }
}

/// Of the failures of several servers the one to report: a repository that is not trusted rather
/// than one that does not answer.
void keepWorse(TrustFailure& kept, TrustFailure&& other) {
  if (kept.kind < other.kind) kept = std::move(other);
}

std::vector<SignedRelease> releasesIn(const tuf::Targets& targets) {
  std::vector<SignedRelease> releases;
  for (const auto& entry : targets.entries) {
    tuf::TargetFile file = tuf::targetFile(entry);
    if (!file.custom.is_object() || !file.custom.contains("qd")) continue;
    try {
      Release release = releaseFromJson(file.custom.at("qd"));
      releases.push_back({std::move(release), std::move(file)});
    } catch (const std::runtime_error&) {
      // Of another program, or of a later one.
    }
  }
  return releases;
}

}  // namespace

/// The server that is asked, with what belongs to it.
struct SignedReleases::Session {
  Session(const std::string& folder, const std::string& address, const fetch::Options& options)
      : store(folder), fetcher(options), client(store, fetcher, address + "/metadata") {}

  tuf::Folder store;
  CurlFetcher fetcher;
  tuf::Client client;
};

/// What came of asking every server once.
struct SignedReleases::Attempt {
  TrustFailure failure;
  bool transient = false;                        ///< one of them may have an answer a little later
  std::optional<std::chrono::seconds> wanted{};  ///< how long the least patient asks to wait
  std::string reason{};                          ///< why the latest of them has none

  void note(const fetch::Result& last) {
    if (!fetch::isTransient(last)) return;
    wanted = transient ? std::min(wanted, last.retryAfter) : last.retryAfter;
    transient = true;
    reason = fetch::reasonOf(last);
  }
};

std::string SignedRelease::fileName() const {
  const std::string name = file.path.substr(file.path.rfind('/') + 1);
  const bool odd = name.empty() || name.front() == '.' || name.front() == '-' ||
                   name.find('\\') != std::string::npos;
  for (const char c : name) {
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) return {};
  }
  return odd ? std::string() : name;
}

std::string SignedRelease::sha256() const {
  const auto hash = file.hashes.find("sha256");
  return hash == file.hashes.end() ? std::string() : hash->second;
}

SignedReleases::SignedReleases(std::string folder, std::vector<std::string> servers,
                               fetch::Options options)
    : folder_(std::move(folder)), servers_(std::move(servers)), options_(std::move(options)) {}

SignedReleases::~SignedReleases() = default;

TrustFailure SignedReleases::establishRoot(const std::string& rootFile) {
  const RootRead root = readRootFile(rootFile);
  if (!root.fault.empty()) return {TrustFailure::Kind::NoRoot, "trust.root: " + root.fault};
  if (::access((folder_ + "/root.json").c_str(), F_OK) == 0) return {};
  const std::string fault = placeRoot(folder_, root, false);
  return {fault.empty() ? TrustFailure::Kind::None : TrustFailure::Kind::Storage, fault};
}

TrustFailure SignedReleases::refresh(bool patient) {
  if (const std::string fault = storedRootFault(folder_); !fault.empty()) {
    return {TrustFailure::Kind::Untrusted, fault};
  }
  std::minstd_rand random{std::random_device{}()};
  const auto goesOn = [this] { return !options_.watcher || options_.watcher(0, 0); };
  for (unsigned int failures = 1;; ++failures) {
    Attempt attempt = connect();
    if (!attempt.failure) releases_ = releasesIn(session_->client.targets());
    // What a server answers that can't be trusted is not asked for again.
    const bool mayPass = attempt.transient && attempt.failure.kind == TrustFailure::Kind::Network;
    if (!patient || !mayPass) return std::move(attempt.failure);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        options_.deadline.value_or(Clock::now()) - Clock::now());
    const auto pause = fetch::pauseAfter(failures, attempt.wanted,
                                         std::uniform_real_distribution<>(0, 1)(random), left);
    if (!pause) return std::move(attempt.failure);
    QDLOG(ROOT, WRN, attempt.failure.text << " - again in " << pause->count() << " ms");
    if (onPause_) onPause_(attempt.reason, *pause);
    if (!fetch::pauseFor(*pause, goesOn)) return std::move(attempt.failure);
  }
}

void SignedReleases::extend(std::chrono::steady_clock::time_point deadline) {
  options_.deadline = std::max(options_.deadline.value_or(deadline), deadline);
}

void SignedReleases::disconnect() { session_.reset(); }

/// Who is not the `last` server leaves half of the time to the others, and has its limit for each
/// of its files, which are small.
fetch::Options SignedReleases::optionsFor(bool last) const {
  constexpr std::chrono::minutes kForEach{5};
  fetch::Options options = options_;
  if (last) return options;
  const auto now = Clock::now();
  options.timeout = kForEach;
  options.deadline = now + (options_.deadline.value_or(now) - now) / 2;
  return options;
}

/// A session with a server whose metadata is trusted and up to date.
SignedReleases::Attempt SignedReleases::connect() {
  Attempt attempt;
  for (const std::string& server : servers_) {
    try {
      session_.reset();  // one at a time has the folder
      session_ =
          std::make_unique<Session>(folder_, server, optionsFor(&server == &servers_.back()));
      session_->client.refresh();
      return {};
    } catch (const tuf::Error& e) {
      TrustFailure failure = failureOf(e);
      failure.text = withoutPassword(server) + ": " + withoutPassword(failure.text, server);
      keepWorse(attempt.failure, std::move(failure));
      if (session_) attempt.note(session_->fetcher.last());
    }
  }
  session_.reset();
  return attempt;
}

std::vector<std::string> SignedReleases::addressesOf(const SignedRelease& release) const {
  const std::string& path = release.file.path;
  const std::size_t name = path.rfind('/') + 1;  // 0 without a folder
  const std::string hashed = path.substr(0, name) + release.sha256() + '.' + path.substr(name);
  std::vector<std::string> addresses;
  for (const std::string& server : servers_) {
    addresses.push_back(server + "/targets/" + tuf::encodePath(hashed));
  }
  return addresses;
}
