#include "Updater/process/recoveryTimer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <boost/algorithm/string/classification.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <vector>

#include "Updater/command/childRun.h"
#include "ground/osal_hex.h"

namespace fs = boost::filesystem;

namespace {

/// Whether only root, or this user, decides what is run there.
bool isOwnProgram(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         (info.st_mode & S_IXUSR) != 0 && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
         (info.st_uid == 0 || info.st_uid == ::geteuid());
}

std::string recoveryProgram() {
  boost::system::error_code failed;
  const std::string own = fs::read_symlink("/proc/self/exe", failed).parent_path().string();
  for (const std::string& folder : {own, std::string("/usr/sbin"), std::string("/usr/bin"),
                                    std::string("/sbin"), std::string("/bin")}) {
    std::string path = folder + "/qd-update";
    if (!folder.empty() && isOwnProgram(path)) return path;
  }
  return {};
}

/// What the program finds in its environment besides systemd's own: this run's instance and
/// temporary folder, and what the administrator asked of the package manager.
std::vector<std::string> environmentOptions() {
  std::vector<std::string> options;
  for (const char* const name : {"QD_AGENT_INSTANCE", "TMPDIR", "DPKG_FORCE"}) {
    const char* const value = std::getenv(name);
    if (value != nullptr) options.push_back(std::string("--setenv=") + name + "=" + value);
  }
  return options;
}

utils::ChildEnd quietly(const std::string& program, std::vector<std::string> arguments,
                        std::string* said) {
  utils::ChildRun run;
  run.program = program;
  run.arguments = std::move(arguments);
  run.onLine = [said](const std::string& line) {
    if (said != nullptr) *said = line;
  };
  return utils::runChild(run);
}

}  // namespace

std::string recoveryTimerName(const std::string& instance) {
  std::string name = "qd-update-window";
  if (!instance.empty()) name += '-';
  for (const char c : instance) {
    if (boost::is_alnum()(c) || c == '_' || c == '.') {
      name += c;
    } else {
      char digits[2];
      const auto byte = static_cast<unsigned char>(c);
      osal_writeHex(&byte, 1, true, digits);
      name.append("\\x").append(digits, sizeof digits);
    }
  }
  return name + ".timer";
}

std::string startRecoveryTimer(const std::string& instance) {
  const std::string program = recoveryProgram();
  if (program.empty()) return "there is no program qd-update";
  const std::string unit = recoveryTimerName(instance);
  std::vector<std::string> arguments = environmentOptions();
  arguments.insert(arguments.begin(),
                   {"--quiet", "--collect", "--unit=" + unit,
                    "--description=Bring an interrupted update of the backup agent to an end",
                    "--on-active=20s", "--on-unit-active=20s", "--timer-property=AccuracySec=1s",
                    "--property=Type=oneshot", "--property=KillMode=mixed",
                    "--property=TimeoutStopSec=infinity", "--property=SuccessExitStatus=12"});
  arguments.insert(arguments.end(), {program, "recover"});
  std::string said;
  const utils::ChildEnd end = quietly("systemd-run", arguments, &said);
  if (end.isGood()) return {};
  if (quietly("systemctl", {"is-active", "--quiet", unit}, nullptr).isGood()) return {};
  return said.empty() ? utils::faultText("systemd-run", end, std::chrono::minutes(1)) : said;
}

void stopRecoveryTimer(const std::string& instance) {
  quietly("systemctl", {"stop", recoveryTimerName(instance)}, nullptr);
}
