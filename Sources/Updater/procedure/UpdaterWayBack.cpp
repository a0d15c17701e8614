// With [health] a package of the version that runs lies ready before the agent is stopped, to be
// put back where the new one ails.

#include <unistd.h>

#include <cstring>
#include <ctime>

#include "Updater/config/SettingsFile.h"
#include "Updater/prepare/cachedPackage.h"
#include "Updater/prepare/configurationFiles.h"
#include "Updater/prepare/room.h"
#include "Updater/procedure/RollBack.h"
#include "Updater/procedure/Updater.h"
#include "ground/osal_ownfile.h"
#include "logging/QDLog.h"

namespace {

constexpr unsigned long long kForDatabase = 32ULL << 20;
constexpr const char* kIncoming = "incoming";  // among the kept packages, until it is one

KeptPackage describe(const Version& version, utils::AgentDistrib kind, const std::string& sha256,
                     const std::string& md5) {
  const std::string text = versionText(version);
  return {.version = text,
          .file = text + "." + utils::agentDistribToString(kind),
          .sha256 = sha256,
          .md5 = md5,
          .since = utcText(std::time(nullptr))};
}

const SignedRelease* findFormer(const UpdateRun& run) {
  if (run.release == nullptr) return nullptr;
  const Release& chosen = run.release->release;
  for (const SignedRelease& other : run.repository->releases()) {
    const Release& release = other.release;
    if (release.version == run.installed && release.os == chosen.os &&
        release.arch == chosen.arch && release.kind == chosen.kind) {
      return &other;
    }
  }
  return nullptr;
}

}  // namespace

Updater::Stop Updater::secureWayBack(UpdateRun& run) {
  if (!looksAfter(run) || !run.settings->health->rollback) return std::nullopt;
  run.noWayBack = findWayBack(run);
  if (run.isInterrupted()) return std::nullopt;
  if (run.noWayBack.empty()) {
    QDLOG(ROOT, NFY, "The way back : " << run.kept.version << ", kept since " << run.kept.since);
  } else {
    QDLOG(ROOT, WRN, "No way back : " << run.noWayBack);
  }
  return std::nullopt;
}

std::string Updater::findWayBack(UpdateRun& run) {
  if (!canRollBack(distrib)) return "this system's tools put no former version back";
  if (!run.keep.isOpen()) return "packages can't be kept here";
  if (run.release != nullptr && !run.release->release.rollback) {
    return versionText(run.available) + " is released without a way back";
  }
  const std::string version = versionText(run.installed);
  const std::vector<KeptPackage> packages = run.keep.list();
  const KeptPackage* const kept = findKept(packages, version);
  const SignedRelease* const former = findFormer(run);
  const bool mayReturn =
      former != nullptr ? former->release.rollback : kept == nullptr || kept->mayReturn;
  if (!mayReturn) return "no machine may go back to " + version + ", as its release says";
  if (kept != nullptr) {
    const std::string fault = faultOf(run.keep, *kept);
    run.kept = *kept;
    if (fault.empty()) return {};
    QDLOG(ROOT, WRN, fault);
    run.keep.drop(*kept);
  }
  if (former != nullptr && fetchFormer(run, *former)) return {};
  if (findFormerInCache(run)) return {};
  return "no package of " + version + " that could be verified was found";
}

bool Updater::fetchFormer(UpdateRun& run, const SignedRelease& former) {
  const std::string path = run.keep.pathOf(kIncoming);
  ScopedFd fd;
  if (!utils::missingRoom(run.keep.path(), former.file.length, run.settings->install.reserve)
           .empty() ||
      osal_openOwnFile(path.c_str(), OwnFileUse::Overwrite, 0600, fd) != 0) {
    return false;
  }
  QDLOG(ROOT, NFY, "Fetching the version that runs, for the way back");
  httpClient.setDownloadLimit(former.file.length);
  const auto download = [&](const std::string& address) {
    const int r = httpClient.download(address, fd.get(), run.headers, path);
    if (r != 0 && !httpClient.downloadWasTooLong()) return UpdateResult::TransferFailed;
    const bool isIt = r == 0 && httpClient.sha256OfDownload() == former.sha256();
    return isIt ? UpdateResult::Done : UpdateResult::NotTrusted;
  };
  const UpdateResult result = askServers(run, former, false, download);
  run.recorder->progress(0);  // the package that counts is still to come
  if (result == UpdateResult::Done && !former.sha256().empty()) {
    return keep(run, path,
                describe(run.installed, distrib, former.sha256(), httpClient.md5OfDownload()));
  }
  ::unlink(path.c_str());
  return false;
}

bool Updater::findFormerInCache(UpdateRun& run) const {
  const std::string path = run.keep.pathOf(kIncoming);
  for (const std::string& cached : utils::cachedPackages(distrib, run.installed)) {
    ScopedFd fd;
    // What is verified is the copy.
    if (!utils::copyFile(cached, path) ||
        osal_openOwnFile(path.c_str(), OwnFileUse::Read, 0600, fd) != 0) {
      continue;
    }
    const FileDigests digests = digestsOf(fd.get());
    if (!utils::isInstalledPackage(distrib, path, digests.sha256)) continue;
    QDLOG(ROOT, NFY, "Found in the package manager's cache : " << cached);
    return keep(run, path, describe(run.installed, distrib, digests.sha256, digests.md5));
  }
  return false;
}

bool Updater::keep(UpdateRun& run, const std::string& path, const KeptPackage& package) const {
  const int error = run.keep.take(path, package, run.settings->health->keep);
  if (error == 0) {
    run.kept = package;
  } else {
    QDLOG(ROOT, WRN, "Cannot keep " << package.file << " : " << std::strerror(error));
  }
  return error == 0;
}

/// What the way back takes besides the package: the configuration files as they are, and room.
Updater::Stop Updater::prepareWayBack(UpdateRun& run) {
  if (run.kept.file.empty() || !run.noWayBack.empty()) return std::nullopt;
  if (!utils::saveConfigurationFiles(distrib, run.keep.pathOf(kSavedConfiguration))) {
    QDLOG(ROOT, WRN, "Cannot save the agent's configuration files");
  }
  if (run.kept.room == 0) {
    const std::string kept = run.keep.pathOf(run.kept.file);
    run.kept.room = roomFor(kept, utils::readPackageFacts(distrib, kept));
  }
  const unsigned long long room = run.kept.room + kForDatabase;
  // The installation that comes first must not lack it.
  const std::string missing =
      utils::missingRoom(run.keep.path(), room, run.roomNeeded + kForDatabase);
  if (!missing.empty() || run.keep.setRoomAside(room) != 0) {
    QDLOG(ROOT, WRN, "No room is set aside for the way back : " << missing);
  }
  return std::nullopt;
}

/// The package that was just installed is the one to go back to from the next.
void Updater::keepInstalled(UpdateRun& run) const {
  if (!run.keep.isOpen() || !canRollBack(distrib)) return;
  if (run.downloadFolder.empty() || run.sha256.empty()) {
    QDLOG(ROOT, WRN, "The package is not kept: it lies outside the folder of the records");
    return;
  }
  KeptPackage package = describe(run.available, distrib, run.sha256, run.expectedMd5);
  package.mayReturn = run.mayReturn;
  package.room = run.roomNeeded;
  keep(run, run.setup.setupPath, package);
}
