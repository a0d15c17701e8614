#include <cstring>
#include <iostream>

#include "Updater/health/BadVersions.h"
#include "Updater/outcome/StateFolder.h"
#include "qd-update/commands.h"

namespace {

int fail(UpdateResult result, const std::string& text) {
  std::cerr << text << '\n';
  return static_cast<int>(result);
}

}  // namespace

int forgiveVersion(const Job& job) {
  const std::string& version = job.options.forgiven;
  StateFolder folder;
  const std::string closed = folder.open(job.places.stateFolder);
  if (!closed.empty()) return fail(UpdateResult::NotAdministrator, closed);
  if (!folder.lock()) {
    return fail(UpdateResult::Locked, "another run holds " + folder.pathOf("lock"));
  }
  std::vector<BadVersion> bad;
  const std::string fault = readBadVersions(job.places, bad);
  if (!fault.empty()) return fail(UpdateResult::ConfigurationFaulty, fault);
  if (std::erase_if(bad, [&](const BadVersion& b) { return b.version == version; }) == 0) {
    return fail(UpdateResult::Usage, version + " is not known as bad here");
  }
  const int error = folder.replace(kBadVersions, badVersionsText(bad), true);
  if (error != 0) {
    return fail(UpdateResult::Exception,
                "Cannot write " + folder.pathOf(kBadVersions) + ": " + std::strerror(error));
  }
  job.screen.print(version + " is forgiven: the next run may install it again.");
  return 0;
}
