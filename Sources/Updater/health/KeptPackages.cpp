#include "Updater/health/KeptPackages.h"

#include <algorithm>
#include <stdexcept>

#include "Updater/health/jsonList.h"

std::optional<std::vector<KeptPackage>> parseKeptPackages(std::string_view text) {
  return readJsonList<KeptPackage>(text, [](const nlohmann::json& entry) -> KeptPackage {
    const std::string file = entry.at("file");
    if (file.empty() || file.front() == '.' || file.find('/') != std::string::npos) {
      throw std::runtime_error("no name of a file in this folder");
    }
    return {.version = entry.at("version"),
            .file = file,
            .sha256 = entry.at("sha256"),
            .md5 = entry.at("md5"),
            .mayReturn = entry.at("rollback"),
            .since = entry.at("since"),
            .room = entry.value("room", 0ULL)};
  });
}

std::string keptPackagesText(const std::vector<KeptPackage>& packages) {
  return jsonListText(packages, [](const KeptPackage& kept) -> nlohmann::ordered_json {
    return {{"version", kept.version}, {"file", kept.file},          {"sha256", kept.sha256},
            {"md5", kept.md5},         {"rollback", kept.mayReturn}, {"since", kept.since},
            {"room", kept.room}};
  });
}

const KeptPackage* findKept(const std::vector<KeptPackage>& packages, std::string_view version) {
  const auto found = std::ranges::find(packages, version, &KeptPackage::version);
  return found == packages.end() ? nullptr : &*found;
}

std::vector<KeptPackage> withKept(std::vector<KeptPackage> packages, const KeptPackage& package,
                                  std::size_t most) {
  std::erase_if(packages, [&](const KeptPackage& k) { return k.version == package.version; });
  packages.insert(packages.begin(), package);
  packages.resize(std::min(packages.size(), std::max<std::size_t>(most, 1)));
  return packages;
}
