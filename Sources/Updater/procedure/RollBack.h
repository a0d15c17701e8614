#pragma once

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

#include "Updater/health/KeepFolder.h"
#include "Updater/outcome/Recorder.h"
#include "Updater/prepare/PackageManagerLock.h"
#include "Updater/procedure/AgentService.h"
#include "Updater/procedure/CommandOutput.h"
#include "Updater/terms/UpdateResult.h"
#include "Updater/terms/utilsPlatform.h"

/// What is to be put back, and why.
struct RollBackOrder {
  KeepFolder folder;
  KeptPackage package;        ///< what is put back
  utils::AgentDistrib kind;   ///< of the package; see `canRollBack`
  std::string failedVersion;  ///< the version that ails, or did not get installed as a whole
  std::string ailment;        ///< of it, for people
  std::time_t failedSince;    ///< its journal begins there
  AgentCare care;
  std::string startCmd;
  std::string stopCmd;
  std::chrono::seconds lockWait;  ///< for the package manager
};

/// The archive of the configuration files, among the kept packages.
inline constexpr const char* kSavedConfiguration = "configuration.tar";

/// Whether packages of this kind can be put back by the system's own tools.
bool canRollBack(utils::AgentDistrib kind);

/// Digests of a file, hexadecimal digits; empty where it can't be read.
struct FileDigests {
  std::string md5;
  std::string sha256;
};
FileDigests digestsOf(int fd);

/// Why the kept package is not what it was when it was kept; empty when it is.
std::string faultOf(const KeepFolder& folder, const KeptPackage& package);

/// The message on an agent that ails and was not put back, and `why` not: with what there is now.
std::string notPutBackText(const std::string& ailment, const std::string& why,
                           utils::AgentDistrib kind);

/// Whether it runs, and what to do, to follow that text.
std::string whatToDoText();

/// Puts a kept package back in place of a version that ails: stop, installation, start, and the
/// agent is looked after once more. Once an object is made, nothing keeps it from starting whatever
/// agent is there at its end; the caller delays signals (SignalDelay). The record passes through
/// phase Rollback; it is the caller who ends it.
class RollBack {
 public:
  /// `output` takes what commands print; `lock` is the package manager's, held or not, and not held
  /// afterwards. All must outlive this object.
  RollBack(RollBackOrder order, Recorder& recorder, CommandOutput& output,
           PackageManagerLock& lock);

  struct End {
    UpdateResult result = UpdateResult::Unhealthy;  ///< RolledBack or Unhealthy
    std::string message;  ///< for people: what is there now, and what to do
    bool isBack = false;  ///< by the package database
  };

  /// Does it, once.
  End perform() noexcept;

 private:
  End attempt();
  End judge(bool started);
  [[nodiscard]] std::string lockFault();
  void putBack() noexcept;
  void restoreConfiguration(bool isBack) const noexcept;
  void keepJournal() const noexcept;
  [[nodiscard]] End failed(const std::string& why) const;

  RollBackOrder order_;
  Recorder& recorder_;
  CommandOutput& output_;
  PackageManagerLock& lock_;
  AgentService service_;
  std::string installCmd_;
  bool stopped_ = false;
  std::string refusal_;  ///< what the package manager said
};
