// The window in which the agent is stopped. Nothing in it may keep the agent from being started
// again: no exception, no signal, no missing memory.

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "Updater/command/utilsShell.h"
#include "Updater/procedure/Updater.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/process/SignalDelay.h"
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

/// A command that writes where nobody reads any more is ended by it, an installation in its middle:
/// the agent that started this program, and read from it, may just have been stopped.
void replaceBrokenOutputs() noexcept {
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    pollfd state{fd, POLLOUT, 0};
    if (::poll(&state, 1, 0) != 1 || (state.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0)
      continue;
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0) continue;
    ::dup2(null, fd);
    ::close(null);
  }
}

int execute(const char* command) noexcept {
  replaceBrokenOutputs();
  return std::system(command);
}

/// Whether system() found no shell, or the shell no command. A lack of processes or memory looks
/// so, too: POSIX wants it told as a shell that ended with 127.
bool neverRan(int r) noexcept { return r == -1 || (WIFEXITED(r) && WEXITSTATUS(r) == 127); }

/// Runs `command` like system(), but does not take a momentary lack of processes or memory for an
/// answer: an agent that is not started again is what must not happen.
int systemPersistently(const char* command) noexcept {
  constexpr int kAttempts = 5;
  int r = execute(command);
  for (int attempt = 1; neverRan(r) && attempt < kAttempts; ++attempt) {
    ::sleep(1);
    r = execute(command);
  }
  return r;
}

}  // namespace

Updater::Stop Updater::replaceAgent(UpdateRun& run) {
  if (usesDiskImage()) {
    run.setup.installCmd += '"' + utils::shellQuotedText(run.image.pkgPath) + '"';
  }
  const bool withXCBDeps = needsXCBDeps(os, run.installed, run.available);
  const SignalDelay delay;
  stopAgent(run);
  if (!skipInstall) installAgent(run, withXCBDeps);
  startAgent(run);
  QD_LOG_QUIETLY(NFY, "Agent Update done");
  return UpdateResult::Done;
}

void Updater::stopAgent(const UpdateRun& run) const noexcept {
  QD_LOG_QUIETLY(NFY, "Agent Stopping ....");
  if (const int r = execute(run.setup.stopCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to stop agent: [" << r << "]");
  } else {
    QD_LOG_QUIETLY(NFY, "Agent Stopped");
  }
}

void Updater::installAgent(const UpdateRun& run, bool withXCBDeps) const noexcept {
  QD_LOG_QUIETLY(NFY, "Upgrading agent ...'");
  if (withXCBDeps) installXCBDeps();
  if (const int r = execute(run.setup.installCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to install agent : [" << r << "]");
    return;
  }
  QD_LOG_QUIETLY(NFY, "Agent Installed");
  if (run.setup.postInstallCmd.empty()) return;
  if (const int r = execute(run.setup.postInstallCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to run post install command: [" << r << "]");
  }
}

void Updater::installXCBDeps() const noexcept {
  QD_LOG_QUIETLY(NFY, "installXCBDeps ...");
  const XCBCommands commands = xcbCommands(distrib);
  if (commands.query == nullptr || execute(commands.query) != 0) {
    QD_LOG_QUIETLY(NFY, "X11 not found");
    return;
  }
  QD_LOG_QUIETLY(NFY, "Found x11");
  const int r = execute(commands.install);
  QD_LOG_QUIETLY(NFY, "Install xcb dependencies" << r);
}

void Updater::startAgent(const UpdateRun& run) const noexcept {
  if (usesDiskImage()) execute(run.image.detachCmd.c_str());
  if (const int r = systemPersistently(run.setup.startCmd.c_str()); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to re-start agent : [" << r << "]");
  } else {
    QD_LOG_QUIETLY(NFY, "Agent Started");
  }
}
