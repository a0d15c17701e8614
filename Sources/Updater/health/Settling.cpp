#include "Updater/health/Settling.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

unsigned long numberIn(std::string_view text) {
  unsigned long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

std::string secondsText(std::chrono::milliseconds time) {
  return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count()) + " s";
}

/// Whether systemd should know the main process of such a unit, which is active.
bool lacksProcess(const UnitState& unit) {
  if (unit.mainPid != 0) return false;
  const bool isForking = unit.type == "forking" && unit.sub == "running";
  return unit.type != "oneshot" && !isForking;
}

}  // namespace

UnitState readUnitState(const std::vector<std::string>& lines) {
  UnitState unit;
  for (const std::string& line : lines) {
    const std::size_t sign = line.find('=');
    if (sign == std::string::npos) continue;
    const std::string_view name = std::string_view(line).substr(0, sign);
    const std::string_view value = std::string_view(line).substr(sign + 1);
    if (name == "Type") unit.type = value;
    if (name == "ActiveState") unit.active = value;
    if (name == "SubState") unit.sub = value;
    if (name == "MainPID") unit.mainPid = numberIn(value);
    if (name == "NRestarts") unit.restarts = numberIn(value);
    if (name == "ActiveEnterTimestampMonotonic") {
      unit.activeSince = std::chrono::microseconds(numberIn(value));
    }
  }
  return unit;
}

std::optional<std::string> Settling::observe(std::chrono::milliseconds at, const UnitState& unit) {
  if (!answered_) answered_ = at;
  if (unit.active.empty()) {
    if (at - *answered_ < timeout_) return std::nullopt;
    return "systemd has not said for " + secondsText(timeout_) + " how its unit is";
  }
  answered_ = at;
  // systemd calls that activating, too.
  if (unit.sub.starts_with("auto-restart")) return "it ended, and systemd restarts it";
  if (unit.active == "activating" && !since_) {
    if (at < timeout_) return std::nullopt;
    return "its unit is still activating after " + secondsText(timeout_);
  }
  if (unit.active != "active" && unit.active != "reloading") {
    return "its unit is " + unit.active + " (" + unit.sub + ")";
  }
  if (lacksProcess(unit)) return "its unit is " + unit.active + " without a main process";
  if (!since_) {
    since_ = activeSince(at, unit);
    first_ = unit;
  }
  if (unit.mainPid != first_.mainPid || unit.restarts != first_.restarts) {
    return "it ended, and systemd restarted it";
  }
  if (at - *since_ < settle_) return std::nullopt;
  return std::string();
}

/// Of a unit that runs since before the start only what comes after that counts.
std::chrono::milliseconds Settling::activeSince(std::chrono::milliseconds at,
                                                const UnitState& unit) const {
  if (unit.activeSince.count() == 0) return at;
  const auto since = std::chrono::ceil<std::chrono::milliseconds>(unit.activeSince - begun_);
  return std::clamp(since, std::chrono::milliseconds(0), at);
}

std::chrono::milliseconds Settling::pauseAfter(std::chrono::milliseconds at,
                                               std::chrono::milliseconds usual) const {
  return since_ ? std::clamp(*since_ + settle_ - at, std::chrono::milliseconds(1), usual) : usual;
}
