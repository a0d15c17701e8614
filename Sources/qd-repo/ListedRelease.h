#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "Updater/rollout/Release.h"

namespace tuf {
struct Targets;
}
namespace tufrepo {
class Repository;
}

/// A release as the repository lists it.
struct ListedRelease {
  std::string path;  ///< of the target, such as "linux/amd64/qdagent_7.2.1.15.deb"
  std::uint64_t length = 0;
  std::string sha256;
  Release release;
};

/// The releases of a targets document, highest version first. Targets of others, without
/// `custom.qd`, are left out. Throws std::runtime_error where one is faulty.
std::vector<ListedRelease> releasesIn(const tuf::Targets& targets);
std::vector<ListedRelease> releasesIn(const tufrepo::Repository& repository);

/// The entry with another release; members that this program does not know stay.
void setRelease(nlohmann::json& entry, const Release& release);

/// "linux/amd64" or such: the folder of a release's packages.
std::string folderOf(const Release& release);

/// The last part of its path.
std::string nameOf(const ListedRelease& listed);

/// Whether all machines of a channel get it: it is not halted, and its ramp there has ended at
/// 100 %. Those without signed metadata get what is so in "stable".
bool isFullyOut(const Release& release, UnixTime now, const std::string& channel = "stable");
