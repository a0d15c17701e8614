#include "Updater/procedure/RollBack.h"

#include <unistd.h>

#include <exception>
#include <utility>

#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"
#include "Updater/download/RunningDigests.h"
#include "Updater/health/journal.h"
#include "Updater/package/installedAgent.h"
#include "Updater/prepare/configurationFiles.h"
#include "Updater/prepare/packageOutput.h"
#include "Updater/procedure/windowCommands.h"
#include "Updater/terms/Version.h"
#include "ground/osal_ownfile.h"

namespace {

std::string installCommand(utils::AgentDistrib kind, const std::string& path) {
  const bool isRpm = kind == utils::DistribRpm;
  return (isRpm ? "rpm -U --oldpackage --replacepkgs " : "dpkg --force-downgrade -i ") +
         utils::shellWord(path);
}

}  // namespace

FileDigests digestsOf(int fd) {
  RunningDigests digests(fd, {.md5 = true, .sha256 = true});
  const off_t size = ::lseek(fd, 0, SEEK_END);
  if (size < 0) return {};
  digests.extend(static_cast<std::uint64_t>(size));
  digests.finish();
  return {digests.md5(), digests.sha256()};
}

bool canRollBack(utils::AgentDistrib kind) {
  return kind == utils::DistribDeb || kind == utils::DistribRpm;
}

std::string faultOf(const KeepFolder& folder, const KeptPackage& package) {
  ScopedFd fd;
  const std::string path = folder.pathOf(package.file);
  const std::string name = "the kept package of " + package.version;
  if (osal_openOwnFile(path.c_str(), OwnFileUse::Read, 0600, fd) != 0) return name + " is gone";
  const std::string sha256 = digestsOf(fd.get()).sha256;
  return !sha256.empty() && sha256 == package.sha256 ? "" : name + " is damaged";
}

std::string notPutBackText(const std::string& ailment, const std::string& why,
                           utils::AgentDistrib kind) {
  const auto agent = utils::queryInstalledAgent(kind);
  return "the agent is unhealthy: " + ailment + "; the former version was not put back, since " +
         why + (agent ? "; there is now: " + agent->text() : "");
}

std::string whatToDoText() {
  const auto runs = utils::agentRuns();
  const std::string text =
      runs ? std::string("; the agent ") + (*runs ? "runs" : "does not run") : "";
  return text + "; install a version that works by hand";
}

RollBack::RollBack(RollBackOrder order, Recorder& recorder, CommandOutput& output,
                   PackageManagerLock& lock)
    : order_(std::move(order)),
      recorder_(recorder),
      output_(output),
      lock_(lock),
      service_(order_.startCmd, order_.stopCmd, &output),
      installCmd_(installCommand(order_.kind, order_.folder.pathOf(order_.package.file))) {}

RollBack::End RollBack::perform() noexcept {
  End end;
  try {
    end = attempt();
  } catch (...) {
    // No memory. What is left to do needs none.
    if (stopped_) service_.start(order_.care.health.timeout);
  }
  lock_.release();
  return end;
}

RollBack::End RollBack::attempt() {
  recorder_.enter(Phase::Rollback);
  QDLOG(ROOT, ERR,
        "Rolling back from " << order_.failedVersion << " to " << order_.package.version << " : "
                             << order_.ailment);
  if (!canRollBack(order_.kind)) return failed("this system's tools put no former version back");
  order_.folder.giveRoomBack();
  if (const std::string fault = faultOf(order_.folder, order_.package); !fault.empty()) {
    return failed(fault);
  }
  // Whatever the agent still does, it does while somebody else is at work.
  if (const std::string fault = lockFault(); !fault.empty()) return failed(fault);
  keepJournal();
  stopped_ = true;
  service_.stop(AgentService::kStopLimit);
  putBack();
  service_.refresh();
  const bool started = service_.start(order_.care.health.timeout);
  stopped_ = false;
  lock_.release();
  return judge(started);
}

std::string RollBack::lockFault() {
  if (lock_.acquire(order_.kind, order_.lockWait, {}) == PackageManagerLock::Result::Free)
    return {};
  return "the package manager is busy: " + lock_.holder();
}

void RollBack::putBack() noexcept {
  QD_LOG_QUIETLY(NFY, "Putting " << order_.package.version << " back ...");
  const int r = executeInstallation(installCmd_.c_str(), &output_);
  restoreConfiguration(r == 0);
  if (r == 0) return;
  QD_LOG_QUIETLY(ERR, "Fail to put it back : [" << r << "]");
  try {
    refusal_ = utils::reasonIn(utils::splitLines(output_.text()));
  } catch (...) {
    // The restart is worth more.
  }
}

/// A failed version that did not go keeps its own.
void RollBack::restoreConfiguration(bool isBack) const noexcept try {
  const auto agent = isBack ? std::nullopt : utils::queryInstalledAgent(order_.kind);
  if (agent && Version(agent->version) == Version(order_.failedVersion)) return;
  const std::string archive = order_.folder.pathOf(kSavedConfiguration);
  if (!utils::restoreConfigurationFiles(archive)) {
    QDLOG(ROOT, WRN, "Cannot put the configuration files back");
  }
  if (isBack && order_.kind == utils::DistribDeb) utils::removeForeignConfiguration(archive);
} catch (...) {
  // The restart is worth more.
}

void RollBack::keepJournal() const noexcept try {
  if (service_.unit().empty()) return;
  const std::string journal = unitJournal(service_.unit(), order_.failedSince);
  if (journal.empty()) return;
  if (order_.folder.keepJournal(order_.failedVersion, journal) == 0) {
    QDLOG(ROOT, NFY,
          "Its journal is kept : " << order_.folder.pathOf(order_.failedVersion) << ".journal");
  } else {
    QDLOG(ROOT, WRN, "Cannot keep its journal");
  }
} catch (...) {
  // The former version is worth more.
}

/// The exit status of a package manager is not believed alone: its database is asked.
RollBack::End RollBack::judge(bool started) {
  const auto agent = utils::queryInstalledAgent(order_.kind);
  const bool isBack =
      agent && agent->isWhole && Version(agent->version) == Version(order_.package.version);
  if (!isBack) return failed(refusal_.empty() ? "the package manager failed" : refusal_);
  const std::string& version = order_.package.version;
  const std::string ailment =
      started ? service_.findAilment(order_.care, recorder_.record()) : "it could not be started";
  if (!ailment.empty()) {
    QDLOG(ROOT, ERR, version << " ails as well : " << ailment);
    return {.result = UpdateResult::Unhealthy,
            .message = order_.failedVersion + " ails: " + order_.ailment + "; " + version +
                       " was put back, and ails as well: " + ailment +
                       "; see `journalctl -u qdagent`, then install a version that works",
            .isBack = true};
  }
  QDLOG(ROOT, NFY, "Rolled back : " << version << " is healthy");
  return {.result = UpdateResult::RolledBack,
          .message = order_.failedVersion + " ails: " + order_.ailment + "; " + version +
                     " was put back, and is healthy",
          .isBack = true};
}

RollBack::End RollBack::failed(const std::string& why) const {
  QDLOG(ROOT, ERR, "Not rolled back : " << why);
  return {.result = UpdateResult::Unhealthy,
          .message = notPutBackText(order_.ailment, why, order_.kind) + whatToDoText()};
}
