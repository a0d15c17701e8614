#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Updater/config/Settings.h"
#include "Updater/rollout/Release.h"

/// What a release's publisher and the machine's administrator look at.
struct RolloutMachine {
  utils::AgentOS os = utils::OsUnknown;
  utils::AgentArch arch = utils::ArchUnknown;
  utils::AgentDistrib kind = utils::DistribNone;
  Version installed;
  std::string id;       ///< 32 lower-case hexadecimal digits
  std::string channel;  ///< the releases that are this machine's
};

/// Why a release is not installed now.
enum class Gate { None, TooOld, Halted, Share, Age, Pin, Inhibited, Window };

struct RolloutDecision {
  /// The release to install, or the one that is held back; null: nothing newer is there.
  const Release* release = nullptr;
  Gate gate = Gate::None;         ///< what holds it back
  std::optional<UnixTime> until;  ///< when that ends, as far as it is known
  std::string why;                ///< a sentence for people; empty: install it
};

/// Chooses among `releases` the highest version that fits the machine and that the gates of the
/// releases (halt, share, age, pin) let through, then asks the machine's own gates (inhibitions, by
/// their names, and the windows). Where no release passes, the decision names the highest one that
/// fits, and what holds it back. An installed version below a release's `minFrom` gets the highest
/// release that takes it; where none does it is too old. Makes no system calls but for the local
/// time zone.
RolloutDecision decideRollout(const std::vector<const Release*>& releases,
                              const RolloutMachine& machine, const RolloutSettings& settings,
                              const std::vector<std::string>& inhibitions, UnixTime now);

/// The machine's own gates alone, for servers without signed metadata: pin, inhibitions, windows.
RolloutDecision decideRollout(const Release& release, const RolloutSettings& settings,
                              const std::vector<std::string>& inhibitions, UnixTime now);
