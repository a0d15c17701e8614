#include "Updater/process/processStart.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/algorithm/string/split.hpp>
#include <boost/range/algorithm/find.hpp>
#include <exception>
#include <new>
#include <string_view>
#include <vector>

#include "Updater/terms/UpdateResult.h"

namespace {

void openMissingDescriptors() {
  int fd = 0;
  do {
    fd = ::open("/dev/null", O_RDWR);  // the lowest free number; stays open for all that follows
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd > STDERR_FILENO) ::close(fd);
}

void doNothing(int) {}

void setSignal(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

void resetSignals() {
  setSignal(SIGCHLD, SIG_DFL);     // where it is ignored, waiting for a command fails
  setSignal(SIGPIPE, &doNothing);  // a handler: commands must not inherit an ignored SIGPIPE
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Reading its terminal would stop a background process for good.
void leaveTerminal() {
  if (::isatty(STDIN_FILENO) == 0 || ::tcgetpgrp(STDIN_FILENO) == ::getpgrp()) return;
  endStandardInput();
}

const std::terminate_handler formerTerminate = std::get_terminate();

/// Ends the process where lack of memory may not be thrown, so that it does not look like a crash:
/// the JSON library asks for memory while it frees a text.
[[noreturn]] void endWithoutMemory() {
  try {
    if (std::current_exception() != nullptr) throw;
  } catch (const std::bad_alloc&) {
    constexpr std::string_view kMessage = "Update failed : no memory\n";
    (void)!::write(STDERR_FILENO, kMessage.data(), kMessage.size());
    ::_exit(static_cast<int>(UpdateResult::Exception));
  } catch (...) {
  }
  formerTerminate();
  std::abort();
}

void prepareEnvironment() {
  ::setenv("PATH", completedPath(::getenv("PATH")).c_str(), 1);
  ::unsetenv("BASH_ENV");
  ::unsetenv("ENV");
#if defined(__linux__)
  ::setenv("DEBIAN_FRONTEND", "noninteractive", 0);
  // A configuration file that the administrator has changed is kept, without a question. The
  // variable replaces dpkg's defaults, which are the first two.
  ::setenv("DPKG_FORCE", "security-mac,downgrade,confdef,confold", 0);
#endif
}

}  // namespace

std::string completedPath(const char* path) {
  std::string completed = path != nullptr ? path : "";
  std::vector<std::string> folders;
  boost::split(folders, completed, [](char c) { return c == ':'; });
  for (const char* const folder : {"/usr/sbin", "/usr/bin", "/sbin", "/bin"}) {
    if (boost::range::find(folders, folder) != folders.end()) continue;
    if (!completed.empty()) completed += ':';
    completed += folder;
  }
  return completed;
}

void prepareProcess() {
  std::set_terminate(&endWithoutMemory);
  openMissingDescriptors();
  resetSignals();
  ::umask(::umask(0) | (S_IWGRP | S_IWOTH));
  prepareEnvironment();
  leaveTerminal();
}

void endStandardInput() noexcept {
  const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  ::dup2(fd, STDIN_FILENO);
  ::close(fd);
}
