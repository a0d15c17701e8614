#pragma once

#include <chrono>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "Updater/terms/Version.h"
#include "Updater/terms/utilsPlatform.h"

using UnixTime = std::chrono::sys_seconds;

/// How a release spreads over the machines of a channel: evenly from the share `from` at `start` to
/// the share `percent`, within `hours`. All shares are percents.
struct Ramp {
  double percent = 100;
  double from = 0;
  UnixTime start{};
  double hours = 0;  ///< 0: all at once

  bool operator==(const Ramp&) const = default;
};

/// One package of a signed repository, by what its publisher says of it (`custom.qd` of its
/// target).
struct Release {
  Version version;
  utils::AgentOS os = utils::OsUnknown;
  utils::AgentArch arch = utils::ArchUnknown;
  utils::AgentDistrib kind = utils::DistribNone;
  std::map<std::string, Ramp> channels;
  std::optional<Version> minFrom;  ///< an older installed version has to go by a step between
  bool halted = false;
  bool rollback = true;  ///< whether a machine may go back from it, or to it
};

/// "2026-03-01T14:05:09Z", both ways. Nothing for any other text.
std::string utcText(UnixTime instant);
std::optional<UnixTime> parseUtc(const std::string& text);

/// Reads `custom.qd`. Unknown members are passed over. Throws std::runtime_error with a plain
/// sentence for a missing or faulty one.
Release releaseFromJson(const nlohmann::json& qd);

/// The members that `releaseFromJson` reads.
nlohmann::json toJson(const Release& release);
