#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/page.h"
#include "qd-repo/plainFiles.h"
#include "qd-repo/ramp.h"
#include "qd-repo/workplace.h"
#include "tufrepo/Repository.h"

namespace {

/// Changes what the repository says of a version, on all platforms that have it.
int changeRelease(const RepoOptions& options,
                  const std::function<void(Release& release, UnixTime now)>& change,
                  const std::function<std::string(const Release& release, UnixTime now)>& tell) {
  tufrepo::KeyRing keys = keysOf(options);
  tufrepo::Repository repository(options.repository, sayWaiting);
  const std::time_t now = present();
  const UnixTime instant{std::chrono::seconds(now)};
  nlohmann::json entries = repository.targets().at("targets");
  std::string said;
  for (ListedRelease& listed : releasesIn(repository)) {
    if (!(listed.release.version == *options.version)) continue;
    change(listed.release, instant);
    setRelease(entries[listed.path], listed.release);
    said += listed.path + ": " + tell(listed.release, instant) + "\n";
  }
  if (said.empty()) {
    throw std::runtime_error("The repository has no release " + versionText(*options.version) +
                             ": status shows those that it has");
  }
  repository.setEntries(std::move(entries));
  repository.renew(keys, {.targets = true, .snapshot = true}, now);
  writePlainFiles(repository, now);
  std::cout << said;
  warnOfExpiry(repository, now);
  return 0;
}

}  // namespace

int promoteRelease(const RepoOptions& options) {
  return changeRelease(
      options,
      [&](Release& release, UnixTime now) {
        const auto known = release.channels.find(options.channel);
        const Ramp* const before = known == release.channels.end() ? nullptr : &known->second;
        release.channels[options.channel] = nextRamp(before, options, now);
      },
      [&](const Release& release, UnixTime now) {
        return options.channel + ", " + shareText(release.channels.at(options.channel), now) +
               (release.halted ? ", but halted" : "");
      });
}

int haltRelease(const RepoOptions& options) {
  return changeRelease(
      options, [](Release& release, UnixTime) { release.halted = true; },
      [](const Release&, UnixTime) { return "halted"; });
}

int resumeRelease(const RepoOptions& options) {
  return changeRelease(
      options, [](Release& release, UnixTime) { release.halted = false; },
      [](const Release&, UnixTime) { return "goes on"; });
}
