#include <ctime>
#include <exception>
#include <iostream>

#include "Updater/process/agentPlaces.h"
#include "Updater/process/processStart.h"
#include "Updater/terms/UpdateResult.h"
#include "Updater/terms/utilsPlatform.h"
#include "qd-update/commands.h"

namespace {

int carryOut(const Options& options) {
  Screen screen;
  const Job job{options, RunPlaces::ofInstance(agentInstance()), screen};
  if (job.places.settingsFile.empty()) {
    std::cerr << "QD_AGENT_INSTANCE is no name of an instance: it has a \"/\", or is too long\n";
    return static_cast<int>(UpdateResult::ConfigurationFaulty);
  }
  const bool changesTrustOrMarks =
      options.command == Options::Command::Trust || options.command == Options::Command::Forgive;
  if (changesTrustOrMarks && !utils::checkAdmin()) {
    std::cerr << "needs root\n";
    return static_cast<int>(UpdateResult::NotAdministrator);
  }
  switch (options.command) {
    case Options::Command::Run:
      return runUpdate(job);
    case Options::Command::Recover:
      return recoverUpdate(job);
    case Options::Command::Check:
      return checkForUpdate(job);
    case Options::Command::Status:
      return showStatus(job);
    case Options::Command::Trust:
      return trustRoot(job);
    case Options::Command::Forgive:
      return forgiveVersion(job);
    case Options::Command::History:
      break;
  }
  return showHistory(job);
}

}  // namespace

int main(int argc, char** argv) try {
  prepareProcess();
  const OptionsRead read = readOptions(argc, argv, std::time(nullptr));
  if (read.options) return carryOut(*read.options);
  (read.status == 0 ? std::cout : std::cerr) << read.text;
  return read.status;
} catch (const std::exception& e) {
  std::cerr << "qd-update: " << e.what() << '\n';
  return static_cast<int>(UpdateResult::Exception);
}
