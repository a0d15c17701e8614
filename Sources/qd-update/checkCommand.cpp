#include <algorithm>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "Updater/download/PatientTransport.h"
#include "Updater/procedure/LastError.h"
#include "Updater/procedure/UpdateRun.h"
#include "Updater/process/Interrupts.h"
#include "Updater/trust/trustedRoot.h"
#include "fetch/address.h"
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
  std::string cause;                   ///< in place of the result's own, where that has several
  std::string message;                 ///< why nothing could be found, or is held back
  unsigned long long bytes = 0;        ///< of the package; 0: not known yet
  std::time_t deferredUntil = 0;       ///< 0: not known, or not deferred
  std::vector<std::string> obstacles;  ///< what keeps a run from installing it now
  std::vector<std::string> notes;      ///< what else the administrator may want to know
};

/// For people; empty when all is well.
std::string explain(UpdateResult result, const UpdateRun& run, const PatientTransport& requests,
                    const LastError& lastError) {
  if (!run.message.empty()) return run.message;
  if (result == UpdateResult::Done || result == UpdateResult::UpdateAvailable) return {};
  if (result == UpdateResult::TransferFailed) return requests.failure();
  return lastError.text().empty() ? std::string(statusOf(result).meaning) : lastError.text();
}

void askServer(Settings settings, const RunPlaces& places, const std::vector<BadVersion>& bad,
               const fetch::PauseListener& onPause, Findings& found) {
  // Somebody waits for the answer.
  settings.fetch.deadline = std::min(settings.fetch.deadline, std::chrono::seconds(30));
  const LastError lastError;
  const Interrupts interrupts;
  std::optional<TrustCopy> trust;
  if (settings.trust) trust.emplace(trustFolderOf(places));
  UpdateRun run;
  run.settings = &settings;
  run.trustFolder = trust ? trust->path() : std::string();
  run.dropInFolder = places.dropInFolder;
  run.installedText = found.installed;
  run.bad = bad;
  run.server = settings.server;
  run.onPause = onPause;
  PatientTransport requests(settings.fetch, settings.serversFrom(settings.server),
                            settings.fetch.deadline);
  requests.setWatcher([](unsigned long long) { return !Interrupts::came(); });
  requests.setPauseListener(onPause);
  Updater updater(false);
  updater.httpClient.setTransport(&requests);
  found.result = updater.checkOnly(withoutPassword(settings.server), run);
  if (run.available.isValid()) found.available = versionText(run.available);
  found.bytes = run.expectedSize;
  found.deferredUntil = run.deferredUntil;
  if (found.result == UpdateResult::InstallFailed) {  // it is there, without a digest
    found.result = UpdateResult::UpdateAvailable;
    found.obstacles.push_back(withoutPassword(run.message, settings.server));
    return;
  }
  found.cause = run.cause;
  const std::string message = explain(found.result, run, requests, lastError);
  found.message = plainLine(withoutPassword(message, settings.server));
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
  found.notes = programs.notes;
  if (!found.message.empty()) {
    found.result = UpdateResult::ConfigurationFaulty;
    return found;
  }
  found.server = withoutPassword(read.settings->server);
  found.installed = installedVersion(job.options);
  if (found.installed.empty()) {
    found.result = UpdateResult::InvalidInstalledVersion;
    found.message = kNoAgent;
    return found;
  }
  fetch::PauseListener onPause;
  RunDisplay display(job.screen);
  if (!job.options.json) {
    onPause = [&display](const std::string& why, auto time) { display.showPause(why, time); };
  }
  askServer(*read.settings, job.places, bad, onPause, found);
  job.screen.clearLast();
  if (found.result == UpdateResult::UpdateAvailable) {
    std::ranges::move(obstaclesNow(job.places, found.bytes, read.settings->install.reserve),
                      std::back_inserter(found.obstacles));
  }
  return found;
}

std::string verdict(const Findings& found) {
  if (found.result == UpdateResult::Done) {
    return "The installed version is up to date" +
           (found.message.empty() ? "." : "; " + found.message + ".");
  }
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
  for (const std::string& note : found.notes) job.screen.print(plainLine(note), Colour::Yellow);
  if (found.message.empty() || found.result == UpdateResult::Done ||
      found.result == UpdateResult::HeldBack) {
    job.screen.print(verdict(found));
  } else {
    std::cerr << plainLine(found.message) << '\n';
  }
}

void printJson(const Job& job, const Findings& found) {
  const auto last = readStatus(job.places.stateFolder);
  const Json json = {
      {"installed", found.installed},
      {"available", found.available},
      {"server", found.server},
      {"status", static_cast<int>(found.result)},
      {"cause", found.cause.empty() ? statusOf(found.result).cause : found.cause},
      {"message", found.message},
      {"deferred_until", found.deferredUntil == 0 ? Json() : Json(utcText(found.deferredUntil))},
      {"obstacles", found.obstacles},
      {"notes", found.notes},
      {"last_run", last ? Json::parse(statusText(*last)) : Json()}};
  job.screen.print(json.dump(2, ' ', false, Json::error_handler_t::replace));
}

}  // namespace

int checkForUpdate(const Job& job) {
  ScreenLog console(job.screen);
  if (QDLog* const logger = QDLog::getLogger(); logger != nullptr) {
    logger->setLevels("ROOT:5;");
    logger->setLogCb(job.options.verbose && !job.options.json ? &console : nullptr);
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
