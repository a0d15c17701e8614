#include "Updater/health/KeptPackages.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>

std::optional<std::vector<KeptPackage>> parseKeptPackages(std::string_view text) try {
  std::vector<KeptPackage> packages;
  if (text.empty()) return packages;
  const auto json = nlohmann::json::parse(text);
  if (!json.is_array()) return std::nullopt;
  for (const auto& entry : json) {
    packages.push_back({.version = entry.at("version"),
                        .file = entry.at("file"),
                        .sha256 = entry.at("sha256"),
                        .md5 = entry.at("md5"),
                        .mayReturn = entry.at("rollback"),
                        .since = entry.at("since")});
    const std::string& file = packages.back().file;
    if (file.empty() || file.front() == '.' || file.find('/') != std::string::npos) {
      return std::nullopt;
    }
  }
  return packages;
} catch (const std::exception&) {
  return std::nullopt;
}

std::string keptPackagesText(const std::vector<KeptPackage>& packages) {
  auto json = nlohmann::ordered_json::array();
  for (const KeptPackage& kept : packages) {
    json.push_back({{"version", kept.version},
                    {"file", kept.file},
                    {"sha256", kept.sha256},
                    {"md5", kept.md5},
                    {"rollback", kept.mayReturn},
                    {"since", kept.since}});
  }
  using Handler = nlohmann::ordered_json::error_handler_t;
  return json.dump(1, ' ', false, Handler::replace) + "\n";
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
