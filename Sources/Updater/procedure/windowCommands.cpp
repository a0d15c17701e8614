#include "Updater/procedure/windowCommands.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "Updater/command/childRun.h"

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

/// Whether system() could not start a shell, or the shell found no command. A lack of processes or
/// memory looks the same: POSIX has system() answer as if the shell had ended with 127.
bool neverRan(int r) noexcept { return r == -1 || (WIFEXITED(r) && WEXITSTATUS(r) == 127); }

bool says(const CommandOutput* output, const char* text) noexcept {
  return output != nullptr && output->text().find(text) != std::string::npos;
}

}  // namespace

int execute(const char* command, CommandOutput* output, std::chrono::seconds limit) noexcept {
  if (output != nullptr) {
    const int r = utils::runShell(command, output->fd(), limit);
    output->log();
    return r;
  }
  replaceBrokenOutputs();
  return std::system(command);
}

int executePersistently(const char* command, CommandOutput* output,
                        std::chrono::seconds limit) noexcept {
  constexpr int kAttempts = 5;
  int r = execute(command, output, limit);
  for (int attempt = 1; neverRan(r) && attempt < kAttempts; ++attempt) {
    ::sleep(1);
    r = execute(command, output, limit);
  }
  return r;
}

int executeInstallation(const char* command, CommandOutput* output) noexcept {
  constexpr int kSeconds = 60;
  int r = execute(command, output);
  for (int second = 0; r != 0 && says(output, "create transaction lock") && second < kSeconds;
       ++second) {
    ::sleep(1);
    r = execute(command, output);
  }
  return r;
}

bool scriptFailed(const CommandOutput* output) noexcept {
  return says(output, "scriptlet failed") || says(output, "lua script failed");
}
