// The window in which the agent is stopped. Nothing in it may keep the agent from being started
// again: no exception, no signal, no missing memory.

#include <unistd.h>

#include <cstdlib>

#include "Updater/SignalDelay.h"
#include "Updater/Updater.h"
#include "Updater/updateRules.h"
#include "Updater/utilsPackage.h"
#include "Updater/utilsShell.h"
#include "logging/QDLog.h"

/// Logs where an exception would keep the agent from being started.
#define QD_LOG_QUIETLY(level, ...)     \
  do {                                 \
    try {                              \
      QDLOG(ROOT, level, __VA_ARGS__); \
    } catch (...) {                    \
      /* The restart is worth more. */ \
    }                                  \
  } while (false)

namespace {

/// Runs `command` like system(), but does not take a momentary lack of processes or memory (-1) for
/// an answer: an agent that is not started again is what must not happen.
int systemPersistently(const char* command) noexcept {
  constexpr int kAttempts = 5;
  int r = std::system(command);
  for (int attempt = 1; r == -1 && attempt < kAttempts; ++attempt) {
    ::sleep(1);
    r = std::system(command);
  }
  return r;
}

}  // namespace

Updater::Stop Updater::replaceAgent(UpdateRun& run) {
  if (usesDiskImage()) {
    run.setup.installCmd += '"' + utils::shellQuotedText(run.pkgPath) + '"';
  }
  const SignalDelay delay;
  stopAgent(run);
  if (!skipInstall) installAgent(run);
  startAgent(run);
  QD_LOG_QUIETLY(NFY, "Agent Update done");
  return UpdateResult::Done;
}

void Updater::stopAgent(const UpdateRun& run) const noexcept {
  QD_LOG_QUIETLY(NFY, "Agent Stopping ....");
  if (const int r = std::system(run.setup.stopCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to stop agent: [" << r << "]");
  } else {
    QD_LOG_QUIETLY(NFY, "Agent Stopped");
  }
}

void Updater::installAgent(const UpdateRun& run) const noexcept {
  QD_LOG_QUIETLY(NFY, "Upgrading agent ...'");
  if (needsXCBDeps(os, run.installed, run.available)) installXCBDeps();
  if (const int r = std::system(run.setup.installCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to install agent : [" << r << "]");
    return;
  }
  QD_LOG_QUIETLY(NFY, "Agent Installed");
  if (run.setup.postInstallCmd.empty()) return;
  if (const int r = std::system(run.setup.postInstallCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to run post install command: [" << r << "]");
  }
}

void Updater::installXCBDeps() const noexcept {
  QD_LOG_QUIETLY(NFY, "installXCBDeps ...");
  const XCBCommands commands = xcbCommands(distrib);
  if (commands.query == nullptr || std::system(commands.query) != 0) {
    QD_LOG_QUIETLY(NFY, "X11 not found");
    return;
  }
  QD_LOG_QUIETLY(NFY, "Found x11");
  const int r = std::system(commands.install);
  QD_LOG_QUIETLY(NFY, "Install xcb dependencies" << r);
}

void Updater::detachImage(const UpdateRun& run) const noexcept {
  try {
    utils::unmount(run.setup.mountedDevice);
  } catch (...) {
    // An image that stays attached does no harm.
  }
}

void Updater::startAgent(const UpdateRun& run) const noexcept {
  if (usesDiskImage()) detachImage(run);
  if (const int r = systemPersistently(run.setup.startCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to re-start agent : [" << r << "]");
  } else {
    QD_LOG_QUIETLY(NFY, "Agent Started");
  }
}
