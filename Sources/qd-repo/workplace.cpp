#include "qd-repo/workplace.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"
#include "tufrepo/Repository.h"

namespace {

namespace fs = std::filesystem;

/// The terminal without echo, for as long as it lives.
class SilentTerminal {
 public:
  SilentTerminal() : fd_(::open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (!fd_ || ::tcgetattr(fd_.get(), &before_) != 0) {
      throw std::runtime_error(
          "A passphrase is needed, and there is no terminal to ask on: give "
          "it by --passphrase-fd");
    }
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(fd_.get(), TCSAFLUSH, &silent);
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;
  ~SilentTerminal() { ::tcsetattr(fd_.get(), TCSAFLUSH, &before_); }

  [[nodiscard]] std::string ask(const std::string& question) const {
    osal_writeAll(fd_.get(), question + ": ");
    std::string line;
    char c = 0;
    while (osal_readSome(fd_.get(), &c, 1) == 1 && c != '\n') line += c;
    osal_writeAll(fd_.get(), "\n");
    return line;
  }

 private:
  ScopedFd fd_;
  termios before_{};
};

std::string readLine(int fd) {
  constexpr std::size_t kMost = 1024;
  std::string line;
  char c = 0;
  ssize_t count = 0;
  while (line.size() < kMost && (count = osal_readSome(fd, &c, 1)) == 1 && c != '\n') line += c;
  if (count >= 0 && !line.empty()) return line;
  throw std::runtime_error("There is no passphrase at descriptor " + std::to_string(fd) +
                           ": give one line");
}

bool isWithin(const fs::path& path, const fs::path& folder) {
  // A relative path of which nothing exists yet would stay relative.
  const fs::path whole = fs::weakly_canonical(fs::absolute(path));
  fs::path top = fs::weakly_canonical(fs::absolute(folder));
  if (!top.has_filename()) top = top.parent_path();  // there was a slash at the end
  return std::mismatch(top.begin(), top.end(), whole.begin(), whole.end()).first == top.end();
}

}  // namespace

tufrepo::AskPassphrase passphraseSource(const RepoOptions& options) {
  const auto given = std::make_shared<std::string>();
  return [fd = options.passphraseFd, given](const std::string& file) {
    if (fd < 0) return SilentTerminal().ask("Passphrase of " + file);
    if (given->empty()) *given = readLine(fd);
    return *given;
  };
}

std::string newPassphrase(const RepoOptions& options) {
  if (options.passphraseFd >= 0) return readLine(options.passphraseFd);
  const SilentTerminal terminal;
  std::string passphrase = terminal.ask("New passphrase of the keys of root and targets");
  if (passphrase.empty() || terminal.ask("Again") != passphrase) {
    throw std::runtime_error("The passphrase is empty, or was not the same twice: begin again");
  }
  return passphrase;
}

tufrepo::KeyRing keysOf(const RepoOptions& options) {
  using enum RepoOptions::Command;
  const bool canDoWithout = options.command == Rotate || options.command == Sign;
  if (options.keys.empty() && !canDoWithout) {
    throw std::runtime_error("Nothing to sign with: name the folder of the keys by --keys");
  }
  tufrepo::KeyRing keys(passphraseSource(options));
  for (const std::string& place : {options.keys, options.keyFile}) {
    if (!place.empty() && isWithin(place, options.repository)) {
      throw std::runtime_error("The private keys " + place + " lie in the repository " +
                               options.repository + ", which is public: move them away");
    }
  }
  if (!options.keyFile.empty()) keys.addFile(options.keyFile);
  if (!options.keys.empty() && options.command != Init) {
    keys.addFolder(options.keys);
  }
  return keys;
}

void requireOutside(const std::string& file, const std::string& repository) {
  if (!isWithin(file, repository)) return;
  throw std::runtime_error(file + " lies in the repository " + repository +
                           ", which is public: take a place outside");
}

void sayWaiting(const std::string& repository) {
  std::cerr << "qd-repo: another qd-repo is at work on " << repository << ": waiting for its end\n";
}

std::time_t present() { return std::time(nullptr); }

void warnOfExpiry(const tufrepo::Repository& repository, std::time_t now) {
  constexpr std::time_t kAhead = std::time_t{30} * 86400;
  const auto warn = [&](const char* role, const char* remedy) {
    const std::time_t expires = repository.expiryOf(role);
    const std::time_t life = tufrepo::livesOf(repository.rootContent()).at(role).count();
    if (expires - now >= std::min(kAhead, life / 2)) return;
    std::cerr << "qd-repo: warning: " << role << (expires > now ? " expires" : " has expired")
              << " at " << tufrepo::timeText(expires) << ": " << remedy << '\n';
  };
  warn("root", "rotate root without a change, with the root keys");
  warn("targets", "publish, or refresh --targets, with the targets key");
}
