#include <iostream>
#include <memory>
#include <utility>

#include "Updater/package/installedAgent.h"
#include "Updater/process/agentPlaces.h"
#include "Updater/process/agentUnit.h"
#include "logging/FileQDLogCb.h"
#include "logging/QDLog.h"
#include "qd-update/commands.h"
#include "qd-update/display.h"

namespace {

/// Off a terminal the log is what is shown of a run.
bool isEchoed(const Job& job) {
  return !job.screen.isTerminal() && !job.options.quiet && !job.options.json;
}

/// The log of a run, taken off the logger at its end.
class RunLog {
 public:
  RunLog(const Job& job, const LogPlace& place)
      : file_(place.file, isEchoed(job), place.shared), screenLog_(job.screen, &file_) {
    QDLog* const logger = QDLog::getLogger();
    if (logger == nullptr) throw std::bad_alloc();
    logger->setLevels("ROOT:5;");
    const bool above = job.options.verbose && !job.options.json && job.screen.isTerminal();
    logger->setLogCb(above ? static_cast<QDLogCb*>(&screenLog_) : &file_);
  }
  RunLog(const RunLog&) = delete;
  RunLog& operator=(const RunLog&) = delete;
  ~RunLog() { QDLog::getLogger()->setLogCb(nullptr); }

 private:
  FileQDLogCb file_;
  ScreenLog screenLog_;
};

Colour colourOf(const RunRecord& record) {
  if (record.status == 0) return Colour::Green;
  return record.outcome == RunOutcome::Deferred ? Colour::Yellow : Colour::Red;
}

void tellEnd(const Job& job, const RunRecord& record) {
  job.screen.clearLast();
  if (job.options.json) {
    job.screen.print(statusText(record).substr(0, statusText(record).size() - 1));
  } else if (record.status != 0 && !job.screen.isTerminal()) {
    std::cerr << outcomeText(record) << '\n';
  } else if (!job.options.quiet || record.status != 0) {
    job.screen.print(outcomeText(record), colourOf(record));
  }
}

}  // namespace

SettingsRead neededSettings(const RunPlaces& places) {
  SettingsRead read = readSettingsFile(places.settingsFile);
  if (!read.fault.empty()) return read;
  if (!read.settings) {
    read.fault = places.settingsFile +
                 ": is not there; it names the server to ask: copy the "
                 "example from the documents and set \"server\"";
  } else if (read.settings->server.empty()) {
    read.fault = places.settingsFile +
                 ": names no server; set \"server\" to the address that the "
                 "updates come from";
  }
  return read;
}

std::string installedVersion(const Options& options) {
  if (options.installed) return *options.installed;
  const auto agent = utils::queryInstalledAgent(utils::installedKind());
  return agent ? agent->version : std::string();
}

int runUpdate(const Job& job) {
  const std::string staysInUnit = leaveAgentUnit();
  const RunLog log(job, findLogPlaceAnyway());
  if (!staysInUnit.empty()) QDLOG(ROOT, WRN, "Cannot leave the agent's unit : " << staysInUnit);
  SettingsRead settings = neededSettings(job.places);
  const RunRequest request{.server = settings.settings ? settings.settings->server : "",
                           .installed = installedVersion(job.options)};
  RunDisplay display(job.screen);
  ConfiguredRun run(std::move(settings), job.places);
  if (job.screen.isTerminal() && !job.options.quiet && !job.options.json) {
    run.observer = [&display](const RunRecord& record) { display.show(record); };
    run.onPause = [&display](const std::string& why, auto time) { display.showPause(why, time); };
  }
  const int status = run.perform(request);
  tellEnd(job, run.record());
  return status;
}

int recoverUpdate(const Job& job) {
  const RunLog log(job, findLogPlaceAnyway());
  ConfiguredRun run(readSettingsFile(job.places.settingsFile), job.places);
  const int status = run.recover();
  if (run.record().ended != 0) tellEnd(job, run.record());
  return status;
}
