#include "qd-repo/ramp.h"

#include <cmath>
#include <stdexcept>

#include "Updater/rollout/slot.h"

Ramp nextRamp(const Ramp* before, const RepoOptions& options, UnixTime now) {
  Ramp ramp;
  ramp.percent = options.percent;
  ramp.hours = options.hours;
  ramp.start = options.start.value_or(now);
  constexpr double kRounding = 1e-6;
  const double share = before != nullptr ? std::ceil(shareAt(*before, now) * 100 - kRounding) : 0;
  if (share > 0 && ramp.start > now) {
    throw std::runtime_error("The release is out to " + std::to_string(std::lround(share)) +
                             " % already: leave --start out");
  }
  if (share > ramp.percent) {
    throw std::runtime_error("The release is out to " + std::to_string(std::lround(share)) +
                             " % already, and a share does not go back: halt it");
  }
  if (ramp.hours > 0) ramp.from = share;
  return ramp;
}
