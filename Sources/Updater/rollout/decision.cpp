#include "Updater/rollout/decision.h"

#include <algorithm>
#include <boost/algorithm/string/join.hpp>

#include "Updater/rollout/slot.h"
#include "Updater/rollout/window.h"

namespace {

RolloutDecision heldBack(const Release& release, Gate gate, std::optional<UnixTime> until,
                         const std::string& why) {
  return {&release, gate, until, versionText(release.version) + " " + why};
}

const Ramp* rampFor(const Release& release, const RolloutMachine& machine) {
  const auto channel = release.channels.find(machine.channel);
  return channel == release.channels.end() ? nullptr : &channel->second;
}

bool fits(const Release& release, const RolloutMachine& machine) {
  return release.os == machine.os && release.arch == machine.arch && release.kind == machine.kind &&
         machine.installed < release.version && rampFor(release, machine) != nullptr;
}

bool takesInstalled(const Release& release, const RolloutMachine& machine) {
  return !release.minFrom || *release.minFrom <= machine.installed;
}

/// The release does not take what is installed, and neither does any below it.
RolloutDecision tooOld(const Release& release) {
  return heldBack(
      release, Gate::TooOld, {},
      "takes no version before " + versionText(*release.minFrom) + ", and no release leads there");
}

RolloutDecision checkPin(const Release& release, const RolloutSettings& settings) {
  if (!settings.pin || settings.pin->allows(release.version)) return {&release, {}, {}, {}};
  return heldBack(release, Gate::Pin, {}, "is outside the pin " + settings.pin->text());
}

/// When a release may be installed that its own gates let through at `time`.
std::optional<UnixTime> openFrom(std::optional<UnixTime> time, const RolloutSettings& settings) {
  return time && !settings.windows.empty() ? nextOpen(settings.windows, *time) : time;
}

RolloutDecision checkShare(const Release& release, const Ramp& ramp, const RolloutMachine& machine,
                           const RolloutSettings& settings, UnixTime now) {
  const double slot = slotOf(machine.id, release.version);
  if (isThrough(ramp, slot, now)) return {&release, {}, {}, {}};
  std::optional<UnixTime> until = throughAt(ramp, slot);
  if (until) until = openFrom(std::max(*until, UnixTime(ramp.start + settings.minAge)), settings);
  return heldBack(release, Gate::Share, until,
                  until ? "reaches this machine later in its roll-out"
                        : "is not for this machine's share of the roll-out yet");
}

/// The gates of the release itself.
RolloutDecision checkRelease(const Release& release, const RolloutMachine& machine,
                             const RolloutSettings& settings, UnixTime now) {
  if (release.halted) return heldBack(release, Gate::Halted, {}, "is halted by its publisher");
  const Ramp& ramp = *rampFor(release, machine);
  if (RolloutDecision pin = checkPin(release, settings); pin.gate != Gate::None) return pin;
  if (RolloutDecision share = checkShare(release, ramp, machine, settings, now);
      share.gate != Gate::None) {
    return share;
  }
  const UnixTime aged = ramp.start + settings.minAge;
  if (aged <= now) return {&release, {}, {}, {}};
  return heldBack(release, Gate::Age, openFrom(aged, settings), "is younger than min_age asks");
}

/// The gates of the machine.
RolloutDecision checkMachine(const Release& release, const RolloutSettings& settings,
                             const std::vector<std::string>& inhibitions, UnixTime now) {
  if (!inhibitions.empty()) {
    return heldBack(release, Gate::Inhibited, {},
                    "is inhibited here by " + boost::algorithm::join(inhibitions, ", "));
  }
  if (settings.windows.empty()) return {&release, {}, {}, {}};
  const std::optional<UnixTime> open = nextOpen(settings.windows, now);
  if (open && *open <= now) return {&release, {}, {}, {}};
  return heldBack(release, Gate::Window, open, "waits for the window in which to install");
}

}  // namespace

RolloutDecision decideRollout(const std::vector<const Release*>& releases,
                              const RolloutMachine& machine, const RolloutSettings& settings,
                              const std::vector<std::string>& inhibitions, UnixTime now) {
  std::vector<const Release*> fitting;
  for (const Release* const release : releases) {
    if (fits(*release, machine)) fitting.push_back(release);
  }
  std::ranges::sort(fitting,
                    [](const Release* a, const Release* b) { return b->version < a->version; });
  RolloutDecision highest;
  for (const Release* release : fitting) {
    if (!takesInstalled(*release, machine)) continue;
    const RolloutDecision decision = checkRelease(*release, machine, settings, now);
    if (decision.gate == Gate::None) return checkMachine(*release, settings, inhibitions, now);
    if (highest.release == nullptr) highest = decision;
  }
  if (highest.release == nullptr && !fitting.empty()) highest = tooOld(*fitting.front());
  return highest;
}

RolloutDecision decideRollout(const Release& release, const RolloutSettings& settings,
                              const std::vector<std::string>& inhibitions, UnixTime now) {
  if (RolloutDecision pin = checkPin(release, settings); pin.gate != Gate::None) return pin;
  return checkMachine(release, settings, inhibitions, now);
}
