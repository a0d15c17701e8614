#include <unistd.h>

#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <string>

#include "Updater/commandLine.h"
#include "Updater/config/SettingsFile.h"
#include "Updater/net/HttpClient.h"
#include "Updater/procedure/ConfiguredRun.h"
#include "Updater/procedure/Updater.h"
#include "Updater/process/agentPlaces.h"
#include "Updater/process/agentUnit.h"
#include "Updater/process/processStart.h"
#include "logging/FileQDLogCb.h"
#include "logging/QDLog.h"

/// The sink of this run; LogEnd deletes it.
FileQDLogCb* g_QDLogCb = nullptr;

namespace {

/// Sets the levels and sends the log to the agent's log folder, or to the temporary folder when the
/// agent's is not known. `echo`: to standard output as well. `anyway`: to /tmp where there is no
/// temporary folder.
void init_logging(bool echo, bool anyway) {
  QDLog* const logger = QDLog::getLogger();
  if (logger == nullptr) throw std::bad_alloc();
  logger->setLevels("ROOT:5;");
  logger->setLogCb(nullptr);  // the search for the place of the log is not logged

  const LogPlace place = anyway ? findLogPlaceAnyway() : findLogPlace();
  g_QDLogCb = new FileQDLogCb(place.file, echo, place.shared);
  logger->setLogCb(g_QDLogCb);
}

/// Takes the sink off the logger and deletes it, on every way out.
class LogEnd {
 public:
  LogEnd() : logger_(QDLog::getLogger()) {}  // created here: at the end there may be no memory
  LogEnd(const LogEnd&) = delete;
  LogEnd& operator=(const LogEnd&) = delete;
  ~LogEnd() {
    if (logger_ != nullptr) logger_->setLogCb(nullptr);
    delete g_QDLogCb;
    g_QDLogCb = nullptr;
  }

 private:
  QDLog* logger_;
};

int usage() {
  std::cout << "Usage : \nupdate [-D] <url> <version>\n";
  return 1;
}

int runUpdate(const CommandLine& arguments) {
  const std::string staysInUnit = leaveAgentUnit();
  const RunPlaces places = RunPlaces::ofInstance(agentInstance());
  const SettingsRead settings = readSettingsFile(places.settingsFile);
  const bool isConfigured = settings.settings || !settings.fault.empty();
  const LogEnd logEnd;
  init_logging(arguments.echo, isConfigured);
  if (!staysInUnit.empty()) QDLOG(ROOT, WRN, "Cannot leave the agent's unit : " << staysInUnit);
  std::string url = utils::decodeURL(arguments.url);
  if (url.ends_with('/')) url.pop_back();
  if (!isConfigured) {
    return Updater(arguments.skipInstall).checkAndUpdate(url, arguments.version);
  }
  const RunRequest request{url, arguments.version, arguments.skipInstall};
  ConfiguredRun run(settings, places);
  const int status = run.perform(request);
  if (status == static_cast<int>(UpdateResult::ConfigurationFaulty)) {
    std::cerr << run.record().message << '\n';
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  setpgrp();
  try {
    prepareProcess();
    const std::optional<CommandLine> arguments = readCommandLine(argc, argv);
    return arguments ? runUpdate(*arguments) : usage();
  } catch (const std::exception& e) {
    std::cout << e.what();
    return 0;
  } catch (...) {
    return usage();
  }
}
