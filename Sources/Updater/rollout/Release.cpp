#include "Updater/rollout/Release.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "ground/osal_utc.h"

using nlohmann::json;

namespace {

[[noreturn]] void refuse(const std::string& member) {
  throw std::runtime_error("the release's member \"" + member + "\" is missing or faulty");
}

const json& memberOf(const json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end()) refuse(name);
  return *found;
}

std::string textOf(const json& object, const char* name) {
  const json& member = memberOf(object, name);
  return member.is_string() ? member.get<std::string>() : (refuse(name), std::string());
}

double numberOf(const json& object, const char* name, double most) {
  const json& member = memberOf(object, name);
  const double number = member.is_number() ? member.get<double>() : -1;
  if (!(number >= 0 && number <= most)) refuse(name);
  return number;
}

int enumeratorOf(const json& object, const char* name, int last) {
  const double number = numberOf(object, name, last);
  if (number != std::floor(number)) refuse(name);
  return static_cast<int>(number);
}

bool flagOf(const json& object, const char* name, bool otherwise) {
  const auto found = object.find(name);
  if (found == object.end()) return otherwise;
  return found->is_boolean() ? found->get<bool>() : (refuse(name), otherwise);
}

Version versionOf(const json& object, const char* name) {
  const std::string text = textOf(object, name);
  Version version(text);
  if (!version.isValid() || versionText(version) != text) refuse(name);
  return version;
}

Ramp rampOf(const json& channel) {
  constexpr double kMostHours = 24 * 366;
  if (!channel.is_object()) refuse("channels");
  Ramp ramp;
  ramp.percent = numberOf(channel, "percent", 100);
  if (channel.contains("from")) ramp.from = numberOf(channel, "from", 100);
  ramp.hours = numberOf(channel, "hours", kMostHours);
  const std::optional<UnixTime> start = parseUtc(textOf(channel, "start"));
  if (!start) refuse("start");
  ramp.start = *start;
  return ramp;
}

/// A whole number as one: signed metadata knows no others.
json numberToJson(double number) { return std::llround(number); }

}  // namespace

std::string utcText(UnixTime instant) { return osal_utcText(instant.time_since_epoch().count()); }

std::optional<UnixTime> parseUtc(const std::string& text) {
  const auto seconds = osal_parseUtc(text);
  return seconds ? std::optional(UnixTime(std::chrono::seconds(*seconds))) : std::nullopt;
}

Release releaseFromJson(const json& qd) {
  if (!qd.is_object()) throw std::runtime_error("the target is no release");
  Release release;
  release.version = versionOf(qd, "version");
  release.os = static_cast<utils::AgentOS>(enumeratorOf(qd, "os", utils::OsLinux));
  release.arch = static_cast<utils::AgentArch>(enumeratorOf(qd, "arch", utils::ArchArm));
  release.kind = utils::stringToAgentDistrib(textOf(qd, "kind"));
  const json& channels = memberOf(qd, "channels");
  if (!channels.is_object()) refuse("channels");
  for (const auto& [name, channel] : channels.items()) release.channels[name] = rampOf(channel);
  if (qd.contains("min_from") && !qd["min_from"].is_null()) {
    release.minFrom = versionOf(qd, "min_from");
  }
  release.halted = flagOf(qd, "halted", false);
  release.rollback = flagOf(qd, "rollback", true);
  return release;
}

json toJson(const Release& release) {
  json channels = json::object();
  for (const auto& [name, ramp] : release.channels) {
    channels[name] = {{"percent", numberToJson(ramp.percent)},
                      {"from", numberToJson(ramp.from)},
                      {"start", utcText(ramp.start)},
                      {"hours", numberToJson(ramp.hours)}};
  }
  return {{"version", versionText(release.version)},
          {"os", static_cast<int>(release.os)},
          {"arch", static_cast<int>(release.arch)},
          {"kind", utils::agentDistribToString(release.kind)},
          {"channels", channels},
          {"min_from", release.minFrom ? json(versionText(*release.minFrom)) : json()},
          {"halted", release.halted},
          {"rollback", release.rollback}};
}
