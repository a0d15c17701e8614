#include "Updater/command/childRun.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

#include "Updater/command/ChildFamily.h"
#include "Updater/command/utilsExec.h"
#include "ground/osal_io.h"
#include "ground/osal_scoped.h"

#if defined(__linux__)
#include <sys/syscall.h>
#endif

extern char** environ;

namespace utils {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTickMs = 20;
constexpr std::size_t kMostLine = 4096;

/// What becomes of the child's descriptors and signals, released at the end.
class SpawnPlan {
 public:
  explicit SpawnPlan(int output, bool withErrors = true) noexcept {
    posix_spawn_file_actions_init(&files_);
    posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
    if (withErrors) {
      posix_spawn_file_actions_adddup2(&files_, output, STDERR_FILENO);
    } else {
      posix_spawn_file_actions_addopen(&files_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawnattr_init(&attributes_);
    // A session of its own: the terminal's signals do not reach it, and without a terminal nothing
    // in it can wait for somebody to type.
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&files_);
    posix_spawnattr_destroy(&attributes_);
  }

  /// The child's process id; where it could not be started, a negative errno value.
  [[nodiscard]] pid_t start(const char* program, char* const* words,
                            char* const* variables) const noexcept {
    pid_t child = -1;
    const int error = ::posix_spawnp(&child, program, &files_, &attributes_, words, variables);
    return error == 0 ? child : -error;
  }

 private:
  posix_spawn_file_actions_t files_{};
  posix_spawnattr_t attributes_{};
};

/// The wait status, once the child has ended.
std::optional<int> endOf(pid_t child) {
  int status = 0;
  const pid_t ended = ::waitpid(child, &status, WNOHANG);
  if (ended == 0 || (ended < 0 && errno == EINTR)) return std::nullopt;
  return ended == child ? status : -1;
}

/// Readable when the child has ended; empty where the system has no such descriptors.
ScopedFd openEndOf([[maybe_unused]] pid_t child) noexcept {
#if defined(__linux__) && defined(SYS_pidfd_open)
  return ScopedFd(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
#else
  return ScopedFd();
#endif
}

/// Passes a text that comes in pieces on by lines; one that is very long in parts.
class LineCutter {
 public:
  explicit LineCutter(const std::function<void(const std::string&)>& onLine) : onLine_(onLine) {}

  void add(std::string_view piece) {
    for (const char c : piece) {
      if (c == '\n' || begun_.size() == kMostLine) flush();
      if (c != '\n') begun_ += c;
    }
  }
  void end() {
    if (!begun_.empty()) flush();
  }

 private:
  void flush() {
    if (onLine_) onLine_(begun_);
    begun_.clear();
  }

  const std::function<void(const std::string&)>& onLine_;
  std::string begun_;
};

/// Reads what is there, without waiting. Returns false when nobody can write any more.
bool readAvailable(int fd, LineCutter& lines) {
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t count = osal_readSome(fd, block.data(), block.size());
    if (count == 0) return false;
    if (count < 0) return errno == EAGAIN;
    lines.add({block.data(), static_cast<std::size_t>(count)});
  }
}

bool openPipe(ScopedFd& read, ScopedFd& write) {
  int ends[2];
  if (::pipe(ends) != 0) return false;
  read.reset(ends[0]);
  write.reset(ends[1]);
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
}

/// This process's environment with what is added in place of what has the same names.
std::vector<std::string> mergedEnvironment(const ChildRun& run) {
  std::vector<std::string> variables;
  for (const auto& [name, value] : run.environment) {
    variables.emplace_back(name).append("=").append(value);
  }
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    const std::string_view name = text.substr(0, text.find('='));
    bool replaced = false;
    for (const auto& added : run.environment) replaced = replaced || added.first == name;
    if (!replaced) variables.emplace_back(text);
  }
  return variables;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

ChildEnd watch(pid_t child, int output, const ChildRun& run, const ChildFamily& family) {
  LineCutter lines(run.onLine);
  const auto until = Clock::now() + run.limit;
  const ScopedFd ended = openEndOf(child);
  ChildEnd end;
  bool open = true;
  for (;;) {
    const auto status = endOf(child);
    // A negative descriptor is passed over.
    std::array<pollfd, 2> readable{{{open ? output : -1, POLLIN, 0}, {ended.get(), POLLIN, 0}}};
    ::poll(readable.data(), readable.size(), status ? 0 : kTickMs);
    open = open && readAvailable(output, lines);
    if (status) {
      end = {ChildEnd::How::Exited,
             WIFSIGNALED(*status) ? 128 + WTERMSIG(*status) : exitStatusOf(*status)};
      break;
    }
    const bool cancelled = run.cancelled && run.cancelled();
    if (!cancelled && Clock::now() < until) continue;
    end.how = cancelled ? ChildEnd::How::Cancelled : ChildEnd::How::TookTooLong;
    family.end(child);
    if (open) readAvailable(output, lines);
    break;
  }
  lines.end();
  return end;
}

}  // namespace

ChildEnd runChild(const ChildRun& run) {
  ScopedFd read;
  ScopedFd write;
  if (!openPipe(read, write)) return {};
  std::vector<std::string> words = {run.program};
  words.insert(words.end(), run.arguments.begin(), run.arguments.end());
  std::vector<std::string> variables = mergedEnvironment(run);
  const ChildFamily family(run.adopts);
  const pid_t child =
      SpawnPlan(write.get(), run.withErrors)
          .start(run.program.c_str(), pointers(words).data(), pointers(variables).data());
  write.reset();
  if (child < 0) return {.how = ChildEnd::How::NotStarted, .status = -child};
  return watch(child, read.get(), run, family);
}

std::string faultText(const std::string& what, const ChildEnd& end, std::chrono::seconds limit) {
  switch (end.how) {
    case ChildEnd::How::Exited:
      return end.status == 0 ? std::string() : what + " ended with " + std::to_string(end.status);
    case ChildEnd::How::TookTooLong:
      return what + " took more than " + std::to_string(limit.count()) + " s and was ended";
    case ChildEnd::How::Cancelled:
      return what + " was interrupted";
    case ChildEnd::How::NotStarted:
      break;
  }
  return what + " could not be started" +
         (end.status == 0 ? std::string() : std::string(": ") + std::strerror(end.status));
}

int runShell(const char* command, int output, std::chrono::seconds limit) noexcept {
  char shell[] = "sh";
  char option[] = "-c";
  char* const words[] = {shell, option, const_cast<char*>(command), nullptr};
  const auto until = Clock::now() + limit;
  const pid_t child = SpawnPlan(output).start("/bin/sh", words, environ);
  if (child < 0) return -1;
  if (limit.count() > 0) {
    const ScopedFd ended = openEndOf(child);
    for (;;) {
      if (const auto status = endOf(child)) return *status;
      if (Clock::now() >= until) break;
      pollfd end{ended.get(), POLLIN, 0};
      ::poll(&end, 1, kTickMs);
    }
    ChildFamily(false).end(child);
    return kTookTooLong;
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

}  // namespace utils
