#include "UpdateRun.h"

#include <fcntl.h>
#include <grp.h>
#include <openssl/evp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr const char* kCommands[] = {"systemctl", "dpkg",      "apt-get",   "rpm",    "dnf",
                                     "hdiutil",   "installer", "launchctl", "synopkg"};
constexpr int kCannotStart = 126;

std::string fromEnvironment(const char* name, const char* otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : otherwise;
}

/// The mappings of a user namespace in which this process's user is root.
struct RootMaps {
  std::string user = "0 " + std::to_string(::geteuid()) + " 1";
  std::string group = "0 " + std::to_string(::getegid()) + " 1";
};

bool writeWhole(const char* path, const std::string& text) {
  const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(fd);
  return written;
}

/// Makes this process root in a user namespace of its own.
bool enterUserNamespace(const RootMaps& maps) {
  return ::unshare(CLONE_NEWUSER) == 0 && writeWhole("/proc/self/setgroups", "deny") &&
         writeWhole("/proc/self/uid_map", maps.user) &&
         writeWhole("/proc/self/gid_map", maps.group);
}

/// Gives this process, which is root, another user's identity.
bool becomeUser(uid_t user) {
  return ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// Ends the process with all that it started, stopped ones and those in groups of their own, too.
void killTree(pid_t pid) {
  const std::string process = std::to_string(pid);
  std::istringstream children(content("/proc/" + process + "/task/" + process + "/children"));
  for (pid_t child = 0; children >> child;) killTree(child);
  ::kill(pid, SIGKILL);
}

std::vector<std::string> namesIn(const std::string& folder, const std::string& prefix) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(prefix + entry.path().filename().string());
  }
  return names;
}

}  // namespace

std::string updateExecutable() { return fromEnvironment("QD_UPDATE", QD_UPDATE); }
std::string updateExecutableMacOS() { return fromEnvironment("QD_UPDATE_MACOS", QD_UPDATE_MACOS); }
std::string updateExecutableSynology() {
  return fromEnvironment("QD_UPDATE_SYNOLOGY", QD_UPDATE_SYNOLOGY);
}

std::string whyNoRoot() {
  if (::geteuid() == 0) return {};
  const RootMaps maps;
  const pid_t child = ::fork();
  if (child == 0) ::_exit(enterUserNamespace(maps) ? 0 : 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  return status == 0 ? "" : "needs root or a user namespace";
}

std::string hexAddress(const std::string& address) {
  std::string hex;
  for (const char c : address) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned char>(c));
    hex += digits.data();
  }
  return hex;
}

std::string md5Of(const std::string& data) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  EVP_Digest(data.data(), data.size(), digest.data(), &size, EVP_md5(), nullptr);
  return hexAddress(std::string(digest.begin(), digest.begin() + size));
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> logRecords(const std::string& log) {
  static const std::regex kLine(
      R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] - ([A-Z]{4}):([A-Z0-9]{3}) - \[ \([\w.]+:\d+\)\] - )");
  std::vector<std::string> records = splitLines(log);
  for (std::string& line : records) {
    std::smatch match;
    if (!std::regex_search(line, match, kLine, std::regex_constants::match_continuous)) continue;
    const std::string module = match[1] == "ROOT" ? "" : match[1].str() + ":";
    line = module + match[2].str() + " " + match.suffix().str();
  }
  return records;
}

UpdateRun::UpdateRun(std::string executable) : executable_(std::move(executable)) {
  fs::permissions(folder_.path(), fs::perms(0755));
  for (const char* name : {"tmp", "bin", "work"}) fs::create_directory(folder_ / name);
  fs::permissions(temp(), fs::perms(01777));
  for (const char* name : kCommands) command(name, "");
  env = {{"PATH", side("bin") + ":/usr/sbin:/usr/bin:/sbin:/bin"},
         {"TMPDIR", temp()},
         {"QD_AGENT_INSTANCE", folder_.path().filename()}};
  for (const char* name : {"TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name); value != nullptr) env[name] = value;
  }
}

void UpdateRun::command(const std::string& name, const std::string& body) {
  const std::string path = side("bin") + "/" + name;
  writeFile(path, "#!/bin/sh\ncalls='" + side("calls") + "'\ntmp='" + temp() + "'\n" +
                      "printf '%s\\n' \"" + name + " $*\" >> \"$calls\"\n" + body + "\n");
  fs::permissions(path, fs::perms(0755));
}

void UpdateRun::start(std::vector<std::string> args) {
  args.insert(args.begin(), executable_);
  args.insert(args.begin(), launcher.begin(), launcher.end());
  std::vector<std::string> environment;
  for (const auto& [name, value] : env) environment.push_back(name + "=" + value);
  const std::vector<char*> argv = pointers(args);
  const std::vector<char*> envp = pointers(environment);
  // Opened here: another user may not reach the folder that the program was built in.
  const ScopedFd program(::open(argv[0], O_RDONLY | O_CLOEXEC));
  if (!program) throw std::runtime_error("cannot open " + args[0]);
  const ScopedFd out(::open(side("out").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  const ScopedFd err(::open(side("err").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  const ScopedFd null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const std::string work = side("work");
  const RootMaps maps;
  const bool privileged = ::geteuid() == 0;
  pid_ = ::fork();
  if (pid_ != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const bool placed = ::chdir(work.c_str()) == 0 && ::dup2(null.get(), 0) == 0 &&
                      ::dup2(stdoutFd < 0 ? out.get() : stdoutFd, 1) == 1 &&
                      ::dup2(err.get(), 2) == 2;
  bool identified = true;
  if (privileged && user != 0) identified = becomeUser(user);
  if (!privileged && user == 0) identified = enterUserNamespace(maps);
  if (inChild) inChild();
  if (placed && identified) ::fexecve(program.get(), argv.data(), envp.data());
  ::_exit(kCannotStart);
}

Outcome UpdateRun::finish() {
  const ScopedFd ended(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  pollfd wait{ended.get(), POLLIN, 0};
  const bool timedOut = ::poll(&wait, 1, timeoutSeconds * 1000) != 1;
  if (timedOut) killTree(pid_);
  int status = 0;
  rusage used{};
  ::wait4(pid_, &status, 0, &used);
  Outcome outcome;
  outcome.ended = timedOut            ? "timed out"
                  : WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                      : "signal " + std::to_string(WTERMSIG(status));
  outcome.log = logRecords(content(temp("agent_upd.log")));
  outcome.out = content(side("out"));
  outcome.err = content(side("err"));
  outcome.calls = splitLines(content(side("calls")));
  outcome.files = namesIn(temp(), "");
  for (std::string& name : namesIn(side("work"), "work/")) outcome.files.push_back(name);
  std::sort(outcome.files.begin(), outcome.files.end());
  outcome.peakKiB = used.ru_maxrss;
  return outcome;
}

Outcome UpdateRun::run(std::vector<std::string> args) {
  start(std::move(args));
  return finish();
}

LineGate::LineGate() {
  int ends[2];
  // A pipe of packets with one place: one line a write, one write at a time.
  if (::pipe2(ends, O_CLOEXEC | O_DIRECT) != 0) throw std::runtime_error("pipe2");
  read_.reset(ends[0]);
  write_.reset(ends[1]);
  if (::fcntl(ends[1], F_SETPIPE_SZ, ::getpagesize()) < 0) throw std::runtime_error("pipe size");
}

bool LineGate::readLine(int milliseconds) {
  pollfd wait{read_.get(), POLLIN, 0};
  if (::poll(&wait, 1, milliseconds) != 1) return false;
  std::array<char, 4096> line{};
  if (::read(read_.get(), line.data(), line.size()) <= 0) return false;
  ++linesRead_;
  return true;
}

bool LineGate::holdAt(const UpdateRun& run, const std::string& text) {
  constexpr int kPauses = 5000;
  for (int pause = 0; pause < kPauses; ++pause) {
    const std::vector<std::string> log = logRecords(content(run.temp("agent_upd.log")));
    // The line read, the line in the pipe, and the one in the log whose echo waits.
    if (log.size() < linesRead_ + 2) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      continue;
    }
    if (log.back().find(text) != std::string::npos) return true;
    if (!readLine(1000)) return false;
  }
  return false;
}

void LineGate::release() {
  write_.reset();
  while (readLine(-1)) {
  }
}
