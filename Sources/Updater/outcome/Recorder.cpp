#include "Updater/outcome/Recorder.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <random>

#include "base/ground/target.h"
#include "ground/osal_hex.h"
#include "ground/osal_ownfile.h"
#include "ground/osal_replacefile.h"
#include "logging/QDLog.h"

namespace {

std::string newRunId() {
  std::random_device random;
  std::array<std::uint8_t, 16> bytes{};
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  std::string digits(2 * bytes.size(), '0');
  osal_writeHex(bytes.data(), bytes.size(), true, digits.data());
  return digits;
}

/// A clock that was never set stands at 0, which would say that there is no time.
std::time_t timeNow() { return std::max<std::time_t>(1, std::time(nullptr)); }

}  // namespace

RunRecord newRecord(const std::string& from) {
  RunRecord record;
  record.run = newRunId();
  record.program = targetProgramVersion();
  record.from = plainLine(from);
  record.started = timeNow();
  return record;
}

void endRecord(RunRecord& record, UpdateResult result, bool updated, const std::string& message) {
  const UpdateStatus& status = statusOf(result);
  const bool isDone = result == UpdateResult::Done;
  record.status = static_cast<int>(result);
  record.outcome = updated && isDone ? RunOutcome::Updated : status.outcome;
  record.cause = status.cause;
  record.message = plainLine(message.empty() && !isDone ? status.meaning : message);
  record.ended = timeNow();
  if (isDone) record.phase = Phase::Done;
}

Recorder::Recorder(StateFolder& folder, Places places)
    : folder_(folder), places_(std::move(places)), record_(newRecord({})) {}

void Recorder::begin(const std::string& from) {
  record_.from = plainLine(from);
  if (folder_.isOpen()) {
    folder_.tidy();
    addFormerRun();
  }
  write(false);
}

bool Recorder::resume(const std::string& run, const std::string& from, const std::string& to) {
  record_.run = run;
  record_.from = from;
  record_.to = to;
  if (!folder_.isOpen()) return true;
  folder_.tidy();
  const auto former = readStatus(folder_.path());
  if (!former || former->run != run) {
    addFormerRun();
    return true;
  }
  record_ = *former;
  if (former->outcome == RunOutcome::Running) return true;
  addFormerRun();
  writeMetrics();
  return false;
}

void Recorder::enter(Phase phase) noexcept {
  const bool isAnother = phase != record_.phase;
  if (!isAnother && record_.attempts == attempts_) return;
  attempts_ = record_.attempts;
  try {
    if (isAnother && beforePhase) beforePhase(phase);
  } catch (...) {
    // The run is worth more.
  }
  spendTime();
  record_.phase = phase;
  write(agentMayBeStopped(phase));
}

void Recorder::progress(std::uint64_t bytes) noexcept {
  record_.bytes = bytes;
  observe();
}

void Recorder::finish(UpdateResult result, bool updated, const std::string& message,
                      const std::string& cause) {
  spendTime();
  endRecord(record_, result, updated, message);
  if (!cause.empty()) record_.cause = cause;
  write(true);
  if (folder_.isOpen()) {
    warn("history.jsonl", folder_.appendHistory(historyLine(record_), places_.historyLimit));
  }
  writeMetrics();
}

/// A run that died has left its record where it stood, and no line in the history.
void Recorder::addFormerRun() {
  auto former = readStatus(folder_.path());
  if (!former) return;
  const auto latest = folder_.latestInHistory();
  if (latest && latest->run == former->run) return;
  if (former->outcome == RunOutcome::Running) {
    former->outcome = RunOutcome::Failed;
    former->status = static_cast<int>(UpdateResult::Exception);
    former->cause = statusOf(UpdateResult::Exception).cause;
    former->message = "the run died";
  }
  folder_.appendHistory(historyLine(*former), places_.historyLimit);
}

/// Where it fails, the former record stays.
void Recorder::write(bool durable) noexcept {
  try {
    if (folder_.isOpen()) {
      warn("status.json", folder_.replace("status.json", statusText(record_), durable));
    }
  } catch (...) {
    warn("status.json", ENOMEM);
  }
  observe();
}

void Recorder::writeMetrics() {
  if (places_.textfile.empty()) return;
  const std::string path = places_.textfile + "/qd_update.prom";
  if (osal_folderIsShared(places_.textfile.c_str())) {
    QDLOG(ROOT, WRN,
          "No metrics: " << places_.textfile
                         << " must be a folder of root's own that nobody else may write to");
    return;
  }
  std::time_t success = record_.status == 0 ? record_.ended : 0;
  if (success == 0 && folder_.isOpen()) success = folder_.lastSuccess();
  const std::string text = metricsText(record_, places_.channel, success);
  warn("qd_update.prom", osal_replaceFile(path.c_str(), text, 0644, false));
}

void Recorder::warn(const char* what, int error) noexcept try {
  if (error == 0 || warned_) return;
  warned_ = true;
  QDLOG(ROOT, WRN, "Cannot write " << what << " : " << std::strerror(error));
} catch (...) {
  // The run is worth more.
}

void Recorder::spendTime() {
  const auto now = std::chrono::steady_clock::now();
  record_.seconds[static_cast<std::size_t>(record_.phase)] +=
      std::chrono::duration<double>(now - since_).count();
  since_ = now;
}

void Recorder::observe() noexcept try {
  if (observer) observer(record_);
} catch (...) {
  // Showing it is worth less than doing it.
}
