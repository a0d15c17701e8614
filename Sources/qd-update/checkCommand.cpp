#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Updater/download/PatientTransport.h"
#include "Updater/procedure/LastError.h"
#include "Updater/procedure/UpdateRun.h"
#include "Updater/process/agentUnit.h"
#include "Updater/trust/trustedRoot.h"
#include "logging/QDLog.h"
#include "qd-update/commands.h"
#include "qd-update/display.h"

namespace {

using Json = nlohmann::ordered_json;

/// What was found.
struct Findings {
  std::string installed;
  std::string available;
  std::string server;
  UpdateResult result = UpdateResult::Done;
  std::string message;                 ///< why nothing could be found, or is held back
  std::time_t deferredUntil = 0;       ///< 0: not known, or not deferred
  std::vector<std::string> obstacles;  ///< what keeps a run from installing it now
};

void askServer(Settings settings, const RunPlaces& places, const std::vector<BadVersion>& bad,
               Findings& found) {
  // Somebody waits for the answer.
  settings.fetch.deadline = std::min(settings.fetch.deadline, std::chrono::seconds(30));
  const LastError lastError;
  const TrustCopy trust(trustFolderOf(places));
  UpdateRun run;
  run.settings = &settings;
  run.trustFolder = trust.path();
  run.dropInFolder = places.dropInFolder;
  run.installedText = found.installed;
  run.bad = bad;
  run.server = settings.server;
  PatientTransport requests(settings.fetch, settings.server, settings.fetch.deadline);
  Updater updater(false);
  updater.httpClient.setTransport(&requests);
  found.result = updater.checkOnly(withoutPassword(settings.server), run);
  if (run.available.isValid()) found.available = versionText(run.available);
  if (found.result == UpdateResult::Done || found.result == UpdateResult::UpdateAvailable) return;
  found.deferredUntil = run.deferredUntil;
  found.message = withoutPassword(run.message, settings.server);
  if (!found.message.empty()) return;
  found.message = lastError.text().empty() ? std::string(statusOf(found.result).meaning)
                                           : withoutPassword(lastError.text(), settings.server);
}

Findings find(const Job& job) {
  const SettingsRead read = neededSettings(job.places);
  Findings found;
  OwnPrograms programs;
  std::vector<BadVersion> bad;
  found.message = read.fault;
  if (found.message.empty()) found.message = checkTrust(*read.settings, job.places);
  if (found.message.empty()) found.message = checkDropIns(job.places, programs);
  if (found.message.empty()) found.message = readBadVersions(job.places, bad);
  if (!found.message.empty()) {
    found.result = UpdateResult::ConfigurationFaulty;
    return found;
  }
  found.server = withoutPassword(read.settings->server);
  found.installed = installedVersion(job.options);
  if (found.installed.empty()) {
    found.result = UpdateResult::InvalidInstalledVersion;
    found.message = "the package manager knows no installed agent; --installed says its version";
    return found;
  }
  askServer(*read.settings, job.places, bad, found);
  found.obstacles = obstaclesNow(*read.settings, job.places);
  return found;
}

std::string verdict(const Findings& found) {
  if (found.result == UpdateResult::Done) return "The installed version is up to date.";
  if (found.result == UpdateResult::HeldBack) {
    const std::string until =
        found.deferredUntil == 0 ? "" : ", until " + localText(found.deferredUntil);
    return "An update is available, and held back: " + found.message + until + ".";
  }
  const std::string begin = "An update is available. `qd-update run` would ";
  if (found.obstacles.empty()) return begin + "install it now.";
  std::string text = begin + "not install it now: ";
  for (const std::string& obstacle : found.obstacles) {
    if (&obstacle != &found.obstacles.front()) text += "; ";
    text += obstacle;
  }
  return text + ".";
}

void print(const Job& job, const Findings& found) {
  if (!found.installed.empty()) job.screen.print("Installed   " + found.installed);
  if (!found.available.empty()) {
    job.screen.print("Available   " + found.available + "   from " + found.server);
  }
  if (const auto last = readStatus(job.places.stateFolder); last && last->ended != 0) {
    std::string outcome(outcomeToString(last->outcome));
    std::ranges::replace(outcome, '-', ' ');
    job.screen.print("Last run    " + localText(last->ended) + ", " + outcome);
  }
  if (found.message.empty() || found.result == UpdateResult::HeldBack) {
    job.screen.print(verdict(found));
  } else {
    std::cerr << found.message << '\n';
  }
}

void printJson(const Job& job, const Findings& found) {
  const auto last = readStatus(job.places.stateFolder);
  const Json json = {
      {"installed", found.installed},
      {"available", found.available},
      {"server", found.server},
      {"status", static_cast<int>(found.result)},
      {"cause", statusOf(found.result).cause},
      {"message", found.message},
      {"deferred_until", found.deferredUntil == 0 ? Json() : Json(utcText(found.deferredUntil))},
      {"obstacles", found.obstacles},
      {"last_run", last ? Json::parse(statusText(*last)) : Json()}};
  job.screen.print(json.dump(2, ' ', false, Json::error_handler_t::replace));
}

}  // namespace

int checkForUpdate(const Job& job) {
  QDLog::QDLogDefCb console;
  if (QDLog* const logger = QDLog::getLogger(); logger != nullptr) {
    logger->setLevels("ROOT:5;");
    logger->setLogCb(job.options.verbose ? &console : nullptr);
  }
  const Findings found = find(job);
  if (QDLog* const logger = QDLog::getLogger(); logger != nullptr) logger->setLogCb(nullptr);
  if (job.options.json) {
    printJson(job, found);
  } else {
    print(job, found);
  }
  return static_cast<int>(found.result);
}
