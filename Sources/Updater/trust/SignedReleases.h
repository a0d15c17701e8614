#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Updater/rollout/Release.h"
#include "fetch/Transfer.h"
#include "fetch/retry.h"
#include "tuf/metadata.h"

/// A release with the file that it is.
struct SignedRelease {
  Release release;
  tuf::TargetFile file;

  /// The last part of the target's path; empty for one that can't be a file's plain name.
  [[nodiscard]] std::string fileName() const;

  /// Its SHA-256, 64 lower-case hexadecimal digits; empty where the metadata states none.
  [[nodiscard]] std::string sha256() const;
};

/// Why the signed releases can't be had.
struct TrustFailure {
  enum class Kind {
    None,       ///< they can be had
    Network,    ///< nobody answered as a repository does
    Storage,    ///< the folder can't be used
    Untrusted,  ///< what came is not trusted
    NoRoot,     ///< the settings name none that can be trusted first
  };
  Kind kind = Kind::None;
  std::string text;  ///< a sentence

  explicit operator bool() const { return kind != Kind::None; }
};

/// The releases of a signed repository (The Update Framework), asked of its servers in their order
/// until one gives what can be trusted. What was verified is kept in a folder over runs. One thread
/// at a time; logs that it waits.
class SignedReleases {
 public:
  /// `servers`: addresses below which "metadata" and "targets" lie. `folder` holds the trusted
  /// metadata.
  SignedReleases(std::string folder, std::vector<std::string> servers, fetch::Options options);
  ~SignedReleases();

  /// Empty: nobody is told.
  void setPauseListener(fetch::PauseListener listener) { onPause_ = std::move(listener); }

  /// Puts the root of the file in place where the folder has none yet.
  TrustFailure establishRoot(const std::string& rootFile);

  /// Brings the metadata up to date and takes the releases from it. Targets that are no releases
  /// are passed over. `patient`: where no server has an answer for the moment, they are asked again
  /// until the options' deadline, or until their watcher ends it.
  TrustFailure refresh(bool patient);

  [[nodiscard]] const std::vector<SignedRelease>& releases() const { return releases_; }

  /// Requests from now on may take until `deadline`, where they had less time.
  void extend(std::chrono::steady_clock::time_point deadline);

  /// Ends the connection, so that no command inherits it. `releases` stays.
  void disconnect();

  /// Where the release's file lies, on each server: the path of consistent snapshots, with the
  /// SHA-256 in the name.
  [[nodiscard]] std::vector<std::string> addressesOf(const SignedRelease& release) const;

 private:
  struct Session;

  struct Attempt;

  Attempt connect();
  [[nodiscard]] fetch::Options optionsFor(bool last) const;

  std::string folder_;
  std::vector<std::string> servers_;
  fetch::Options options_;
  fetch::PauseListener onPause_;
  std::unique_ptr<Session> session_;
  std::vector<SignedRelease> releases_;
};
