#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "Updater/config/Settings.h"
#include "Updater/health/BadVersions.h"
#include "Updater/health/KeepFolder.h"
#include "Updater/health/checks.h"
#include "Updater/net/HttpClient.h"
#include "Updater/outcome/Recorder.h"
#include "Updater/package/PackageFile.h"
#include "Updater/package/utilsPackage.h"
#include "Updater/prepare/PackageManagerLock.h"
#include "Updater/prepare/rehearsal.h"
#include "Updater/procedure/CommandOutput.h"
#include "Updater/procedure/WindowKeeper.h"
#include "Updater/setup/utilsSetup.h"
#include "Updater/terms/UpdateResult.h"
#include "Updater/terms/Version.h"
#include "Updater/trust/SignedReleases.h"
#include "fetch/retry.h"

/// What the steps of one update hand on to each other.
struct UpdateRun {
  static constexpr int kMaxAttempts = 3;

  std::string installedText;
  Version installed;
  Version available;
  HttpClient::Headers headers;  ///< of the latest response
  utils::SetuParameter setup;
  bool emulated = false;    ///< this process is translated; the machine is an arm64 one
  std::string expectedMd5;  ///< empty: the package is not verified
  unsigned long long expectedSize = 0;
  int attempts = 0;                               ///< downloads begun
  UpdateResult lastFailure = UpdateResult::Done;  ///< why the latest download was no good
  PackageFile package;
  utils::AttachedImage image;  ///< of the package, when that is a disk image

  // What a run with a settings file has besides; the other has none of it.
  const Settings* settings = nullptr;
  Recorder* recorder = nullptr;
  fetch::PauseListener onPause;     ///< may be empty
  CommandOutput* output = nullptr;  ///< takes what commands print
  WindowKeeper* window = nullptr;   ///< stands while the agent is being replaced
  std::vector<std::string> hooks;
  std::vector<std::string> checks;        ///< of the agent's health
  std::vector<FailedCheck> failedBefore;  ///< those that fail already with the former version
  std::string downloadFolder;             ///< in place of the temporary one; may be empty
  PackageManagerLock packageManager;      ///< held from the last preparation to the end
  std::string message;                    ///< for people, where no record of the log says it
  std::string cause;                      ///< in place of the status's own, where that has several
  std::string refusal;                    ///< what the package manager said when it failed
  std::vector<BadVersion> bad;            ///< versions that are not installed here any more
  std::string ailment;  ///< of the agent after its start, or its package; unless the former is back
  utils::PackageFacts facts;          ///< what the package says of itself
  unsigned long long roomNeeded = 0;  ///< bytes that the installation takes
  std::string sha256;                 ///< of the package; empty where it is not wanted
  KeepFolder keep;                    ///< packages for the way back; may be closed
  KeptPackage kept;                   ///< the one to go back to
  std::string noWayBack;              ///< why there is none; empty: there is
  bool mayReturn = true;              ///< to the new version from a later one, as its release says
  bool wasCut = false;  ///< a run died installing it, which is no fault of the version
  bool updated = false;
  std::time_t deferredUntil = 0;  ///< 0: not known, or not deferred
  std::string server;  ///< with user and password, if it has them; empty: as the run was given it
  std::string trustFolder;   ///< of the trusted metadata
  std::string dropInFolder;  ///< of the administrator's marks
  std::unique_ptr<SignedReleases> repository;
  const SignedRelease* release = nullptr;           ///< chosen from it; null without [trust]
  std::chrono::steady_clock::time_point refreshed;  ///< when the repository was asked

  /// Whether only what signed metadata names is installed.
  [[nodiscard]] bool isSigned() const { return settings != nullptr && settings->trust; }

  /// Brings the record up to date.
  void fillRecord() const noexcept;

  /// The run has come to `phase`.
  void enter(Phase phase) const noexcept;

  /// Whether somebody wants the run to end. Only before the agent is stopped is there an answer to
  /// that.
  [[nodiscard]] bool isInterrupted() const;
};
