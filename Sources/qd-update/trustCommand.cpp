#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "Updater/outcome/RunRecord.h"
#include "Updater/trust/trustedRoot.h"
#include "ground/osal_replacefile.h"
#include "qd-update/commands.h"

namespace {

void show(const Job& job, const RootFacts& root) {
  job.screen.print("Root        version " + std::to_string(root.version) + ", valid until " +
                   utcText(root.expires));
  job.screen.print("Signed by   " + std::to_string(root.threshold) + " of these keys:");
  for (const std::string& id : root.keyIds) job.screen.print("            " + id);
}

bool isWanted(const Job& job) {
  if (job.options.replace) {
    job.screen.print(
        "Whatever is trusted now is forgotten, and nothing protects from older releases until the "
        "first run.");
  }
  if (job.options.yes) return true;
  if (::isatty(STDIN_FILENO) == 0) {
    std::cerr << "Nobody can be asked here; --yes takes the root as it is shown.\n";
    return false;
  }
  std::cout << "Compare the keys with those that the publisher told you. Trust this root? [y/N] "
            << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

int fail(const std::string& text, UpdateResult result = UpdateResult::NotTrusted) {
  std::cerr << text << '\n';
  return static_cast<int>(result);
}

std::string usualRootPath(const RunPlaces& places) {
  return std::filesystem::path(places.settingsFile).parent_path() / "update-root.json";
}

}  // namespace

int trustRoot(const Job& job) {
  const SettingsRead read = readSettingsFile(job.places.settingsFile);
  if (!read.fault.empty()) return fail(read.fault, UpdateResult::ConfigurationFaulty);
  const RootRead root = readRootFile(job.options.root);
  if (!root.fault.empty()) return fail(root.fault);
  show(job, root.facts);
  if (!isWanted(job)) return fail("Nothing was changed.");
  const std::string refused = placeRoot(trustFolderOf(job.places), root, job.options.replace);
  if (!refused.empty()) return fail("Nothing was changed: " + refused);
  const bool isNamed = read.settings && read.settings->trust;
  const std::string path = isNamed ? read.settings->trust->root : usualRootPath(job.places);
  const int error = osal_replaceFile(path.c_str(), root.text, 0644, true);
  if (error != 0) return fail("Cannot write " + path + ": " + std::string(std::strerror(error)));
  const char* const verb = isNamed ? "Trusted. The settings name it"
                                   : "Trusted. Let the settings name it, so that it counts";
  job.screen.print(std::string(verb) + ": [trust] root = \"" + path + "\".");
  return 0;
}
