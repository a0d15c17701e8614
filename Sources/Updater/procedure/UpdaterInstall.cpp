// The window in which the agent is stopped. Nothing in it may keep the agent from being started
// again: no exception, no signal, no missing memory.

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "Updater/command/childRun.h"
#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"
#include "Updater/package/installedAgent.h"
#include "Updater/prepare/packageOutput.h"
#include "Updater/procedure/Updater.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/process/SignalDelay.h"
#include "Updater/process/processStart.h"
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

/// Leads standard output and error to /dev/null where their reader is gone: the agent that started
/// this program, and read from it, may just have been stopped. Otherwise SIGPIPE would end a
/// command that writes something, perhaps in the middle of the installation.
void replaceBrokenOutputs() noexcept {
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    // Nothing else counts: for devices that are in order macOS answers POLLNVAL.
    pollfd state{fd, 0, 0};
    if (::poll(&state, 1, 0) != 1 || (state.revents & (POLLERR | POLLHUP)) == 0) continue;
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0) continue;
    ::dup2(null, fd);
    ::close(null);
  }
}

/// Like system(). With a settings file what the command prints goes into the log, and the
/// terminal's signals do not reach it.
int execute(const char* command, const UpdateRun& run) noexcept {
  if (run.output != nullptr) {
    const int r = utils::runShell(command, run.output->fd());
    run.output->log();
    return r;
  }
  replaceBrokenOutputs();
  return std::system(command);
}

/// Whether system() could not start a shell, or the shell found no command. A lack of processes or
/// memory looks the same: POSIX has system() answer as if the shell had ended with 127.
bool neverRan(int r) noexcept { return r == -1 || (WIFEXITED(r) && WEXITSTATUS(r) == 127); }

/// Runs `command` as above, but does not take a momentary lack of processes or memory for an
/// answer: an agent that is not started again is what must not happen.
int executePersistently(const char* command, const UpdateRun& run) noexcept {
  constexpr int kAttempts = 5;
  int r = execute(command, run);
  for (int attempt = 1; neverRan(r) && attempt < kAttempts; ++attempt) {
    ::sleep(1);
    r = execute(command, run);
  }
  return r;
}

/// rpm takes a package whose script failed for installed, and says so in its output alone.
bool scriptFailed(const UpdateRun& run) noexcept {
  if (run.output == nullptr) return false;
  const std::string& text = run.output->text();
  return text.find("scriptlet failed") != std::string::npos ||
         text.find("lua script failed") != std::string::npos;
}

/// Whether rpm found its lock taken.
bool lostLock(const UpdateRun& run) noexcept {
  return run.output != nullptr &&
         run.output->text().find("create transaction lock") != std::string::npos;
}

}  // namespace

Updater::Stop Updater::replaceAgent(UpdateRun& run) {
  if (usesDiskImage()) {
    run.setup.installCmd += '"' + utils::shellQuotedText(run.image.pkgPath) + '"';
  }
  // With settings they have come before.
  const bool withXCBDeps =
      run.settings == nullptr && needsXCBDeps(os, run.installed, run.available);
  const SignalDelay delay;
  endStandardInput();  // a question would be waited for with the agent stopped
  stopAgent(run);
  if (!skipInstall) run.enter(Phase::Install);
  const bool installed = skipInstall || installAgent(run, withXCBDeps);
  run.enter(Phase::Start);
  const bool started = startAgent(run);
  QD_LOG_QUIETLY(NFY, "Agent Update done");
  if (run.settings == nullptr) return UpdateResult::Done;
  const UpdateResult result = judgeReplacement(run, installed, started);
  return result == UpdateResult::Done && looksAfter(run) ? judgeHealth(run) : result;
}

void Updater::stopAgent(const UpdateRun& run) const noexcept {
  QD_LOG_QUIETLY(NFY, "Agent Stopping ....");
  if (const int r = execute(run.setup.stopCmd.c_str(), run); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to stop agent: [" << r << "]");
  } else {
    QD_LOG_QUIETLY(NFY, "Agent Stopped");
  }
}

/// rpm's lock can't be held for it: where somebody took it since, rpm fails at once.
int Updater::runInstallation(UpdateRun& run) const noexcept {
  constexpr int kSeconds = 60;
  int r = execute(run.setup.installCmd.c_str(), run);
  for (int second = 0; r != 0 && lostLock(run) && second < kSeconds; ++second) {
    ::sleep(1);
    r = execute(run.setup.installCmd.c_str(), run);
  }
  if (run.output == nullptr || (r == 0 && !scriptFailed(run))) return r;
  try {
    run.refusal = utils::reasonIn(utils::splitLines(run.output->text()));
  } catch (...) {
    // The restart is worth more.
  }
  return r;
}

bool Updater::installAgent(UpdateRun& run, bool withXCBDeps) const noexcept {
  QD_LOG_QUIETLY(NFY, "Upgrading agent ...'");
  if (withXCBDeps) installXCBDeps(run);
  if (const int r = runInstallation(run); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to install agent : [" << r << "]");
    return false;
  }
  QD_LOG_QUIETLY(NFY, "Agent Installed");
  if (run.setup.postInstallCmd.empty()) return !scriptFailed(run);
  if (const int r = execute(run.setup.postInstallCmd.c_str(), run); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to run post install command: [" << r << "]");
    return false;
  }
  return true;
}

void Updater::installXCBDeps(const UpdateRun& run) const noexcept {
  QD_LOG_QUIETLY(NFY, "installXCBDeps ...");
  const XCBCommands commands = xcbCommands(distrib);
  if (commands.query == nullptr || execute(commands.query, run) != 0) {
    QD_LOG_QUIETLY(NFY, "X11 not found");
    return;
  }
  QD_LOG_QUIETLY(NFY, "Found x11");
  const int r = execute(commands.install, run);
  QD_LOG_QUIETLY(NFY, "Install xcb dependencies" << r);
}

bool Updater::startAgent(const UpdateRun& run) const noexcept {
  if (usesDiskImage()) execute(run.image.detachCmd.c_str(), run);
  if (const int r = executePersistently(run.setup.startCmd.c_str(), run); r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to re-start agent : [" << r << "]");
    return false;
  }
  QD_LOG_QUIETLY(NFY, "Agent Started");
  return true;
}

/// The exit status of a package manager is not believed alone: its database is asked.
UpdateResult Updater::judgeReplacement(UpdateRun& run, bool installed, bool started) const {
  const auto agent = skipInstall ? std::nullopt : utils::queryInstalledAgent(distrib);
  const std::string there = agent ? "; there is now: " + agent->text() : std::string();
  if (agent) installed = installed && agent->isWhole && Version(agent->version) == run.available;
  if (!started) {
    run.message = std::string(installed ? "" : "the installation failed, and ") +
                  "the agent could not be started" + there;
    return UpdateResult::StartFailed;
  }
  if (!installed) {
    run.message =
        "the installation failed" + (run.refusal.empty() ? "" : ": " + run.refusal) + there;
    return UpdateResult::InstallFailed;
  }
  if (skipInstall) run.message = "the agent was only restarted";
  run.updated = !skipInstall;
  return UpdateResult::Done;
}
