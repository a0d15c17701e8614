#include "Updater/outcome/RunRecord.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <nlohmann/json.hpp>

#include "ground/osal_utc.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kSchema = 1;

constexpr std::array<std::string_view, kPhases> kPhaseNames = {
    "check",   "fetch", "verify", "prepare",  "stop",
    "install", "start", "health", "rollback", "done"};

constexpr RunOutcome kOutcomes[] = {
    RunOutcome::UpToDate, RunOutcome::Updated,    RunOutcome::Deferred, RunOutcome::Refused,
    RunOutcome::Failed,   RunOutcome::RolledBack, RunOutcome::Running};

Json textOrNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json timeOrNull(std::time_t time) { return textOrNull(utcText(time)); }

Json jsonOf(const RunRecord& r) {
  return {{"schema", kSchema},
          {"run", r.run},
          {"program", r.program},
          {"from", r.from},
          {"to", r.to},
          {"phase", phaseToString(r.phase)},
          {"outcome", outcomeToString(r.outcome)},
          {"status", r.status},
          {"cause", r.cause},
          {"message", r.message},
          {"started", utcText(r.started)},
          {"ended", timeOrNull(r.ended)},
          {"bytes", r.bytes},
          {"size", r.size},
          {"attempts", r.attempts},
          {"rolled_back_from", textOrNull(r.rolledBackFrom)},
          {"deferred_until", timeOrNull(r.deferredUntil)},
          {"bad", r.bad}};
}

/// Texts from outside may be no UTF-8: what is none is replaced.
std::string dump(const RunRecord& record, int indent) {
  return jsonOf(record).dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::time_t timeOf(const Json& value) {
  return value.is_string() ? osal_parseUtc(value.get<std::string>()).value_or(0) : 0;
}

std::string textOf(const Json& value) {
  return value.is_string() ? value.get<std::string>() : std::string();
}

/// A label's value: the format has "\\" and "\"" escaped, and takes nothing that is no UTF-8.
std::string labelValue(std::string_view value) {
  std::string escaped;
  for (const char c : value) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c < ' ' || c > '~' ? '?' : c;
  }
  return '"' + escaped + '"';
}

void addMetric(std::string& text, const std::string& name, const std::string& help) {
  text += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

void addMetric(std::string& text, const std::string& name, const std::string& help,
               std::uint64_t value) {
  addMetric(text, name, help);
  text += name + " " + std::to_string(value) + "\n";
}

}  // namespace

std::string_view phaseToString(Phase phase) { return kPhaseNames[static_cast<std::size_t>(phase)]; }

bool agentMayBeStopped(Phase phase) { return phase >= Phase::Stop && phase <= Phase::Rollback; }

std::string utcText(std::time_t time) { return time == 0 ? "" : osal_utcText(time); }

std::string plainLine(std::string_view text) {
  constexpr std::size_t kMost = 1000;
  std::string line(text.substr(0, kMost));
  for (std::size_t i = 0; i < line.size(); ++i) {
    const auto c = static_cast<unsigned char>(line[i]);
    if (c < ' ' || c == 0x7f) line[i] = ' ';
    // U+0080 to U+009F, which some terminals obey, in UTF-8.
    if (c >= 0x80 && c <= 0x9f && i > 0 && line[i - 1] == '\xc2') line[i - 1] = line[i] = ' ';
  }
  return text.size() > kMost ? line + "..." : line;
}

std::string statusText(const RunRecord& record) { return dump(record, 2); }

std::string historyLine(const RunRecord& record) { return dump(record, -1); }

std::optional<RunRecord> parseRecord(std::string_view text) try {
  const Json json = Json::parse(text);
  if (json.at("schema") != kSchema) return std::nullopt;
  const auto phase = std::ranges::find(kPhaseNames, textOf(json.at("phase")));
  const auto* const outcome =
      std::ranges::find(kOutcomes, textOf(json.at("outcome")), &outcomeToString);
  if (phase == kPhaseNames.end() || outcome == std::end(kOutcomes)) return std::nullopt;
  return RunRecord{.run = json.at("run"),
                   .program = json.at("program"),
                   .from = json.at("from"),
                   .to = json.at("to"),
                   .phase = static_cast<Phase>(phase - kPhaseNames.begin()),
                   .outcome = *outcome,
                   .status = json.at("status"),
                   .cause = json.at("cause"),
                   .message = json.at("message"),
                   .started = timeOf(json.at("started")),
                   .ended = timeOf(json.at("ended")),
                   .bytes = json.at("bytes"),
                   .size = json.at("size"),
                   .attempts = json.at("attempts"),
                   .rolledBackFrom = textOf(json.at("rolled_back_from")),
                   .deferredUntil = timeOf(json.at("deferred_until")),
                   .bad = json.at("bad"),
                   .seconds = {}};
} catch (const std::exception&) {
  return std::nullopt;
}

std::string metricsText(const RunRecord& r, const std::string& channel, std::time_t lastSuccess) {
  std::string text;
  addMetric(text, "qd_update_last_run_timestamp_seconds", "When the latest run ended.",
            static_cast<std::uint64_t>(r.ended));
  if (lastSuccess != 0) {
    addMetric(text, "qd_update_last_success_timestamp_seconds",
              "When the latest run that found or left all in order ended.",
              static_cast<std::uint64_t>(lastSuccess));
  }
  addMetric(text, "qd_update_status", "Exit status of the latest run.",
            static_cast<std::uint64_t>(r.status));
  addMetric(text, "qd_update_outcome", "1 for the outcome of the latest run.");
  for (const RunOutcome outcome : kOutcomes) {
    if (outcome == RunOutcome::Running) continue;
    text += "qd_update_outcome{outcome=" + labelValue(outcomeToString(outcome)) +
            (outcome == r.outcome ? "} 1\n" : "} 0\n");
  }
  addMetric(text, "qd_update_version_info", "Versions as the latest run left them.");
  // One that ails is installed, too.
  const bool isNew =
      r.outcome == RunOutcome::Updated ||
      (r.status == static_cast<int>(UpdateResult::Unhealthy) && r.rolledBackFrom.empty());
  const bool isKnown = !r.installed.empty() && r.rolledBackFrom.empty();
  const std::string& installed = isKnown ? r.installed : isNew ? r.to : r.from;
  text += "qd_update_version_info{installed=" + labelValue(installed) +
          ",available=" + labelValue(r.to) + ",channel=" + labelValue(channel) + "} 1\n";
  addMetric(text, "qd_update_bad_versions", "Versions that are not installed here any more.",
            r.bad.size());
  addMetric(text, "qd_update_downloaded_bytes", "Bytes of the package that had come by then.",
            r.bytes);
  addMetric(text, "qd_update_duration_seconds", "Time that the latest run spent in each phase.");
  for (std::size_t i = 0; i + 1 < kPhases; ++i) {
    text += "qd_update_duration_seconds{phase=" + labelValue(kPhaseNames[i]) + "} " +
            std::to_string(r.seconds[i]) + "\n";
  }
  return text;
}
