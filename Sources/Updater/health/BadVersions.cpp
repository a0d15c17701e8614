#include "Updater/health/BadVersions.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>

std::optional<std::vector<BadVersion>> parseBadVersions(std::string_view text) try {
  std::vector<BadVersion> versions;
  if (text.empty()) return versions;
  const auto json = nlohmann::json::parse(text);
  if (!json.is_array()) return std::nullopt;
  for (const auto& entry : json) {
    versions.push_back({.version = entry.at("version"),
                        .sha256 = entry.at("sha256"),
                        .md5 = entry.at("md5"),
                        .since = entry.at("since"),
                        .cause = entry.at("cause")});
  }
  return versions;
} catch (const std::exception&) {
  return std::nullopt;
}

std::string badVersionsText(const std::vector<BadVersion>& versions) {
  auto json = nlohmann::ordered_json::array();
  for (const BadVersion& bad : versions) {
    json.push_back({{"version", bad.version},
                    {"sha256", bad.sha256},
                    {"md5", bad.md5},
                    {"since", bad.since},
                    {"cause", bad.cause}});
  }
  using Handler = nlohmann::ordered_json::error_handler_t;
  return json.dump(1, ' ', false, Handler::replace) + "\n";
}

const BadVersion* findBad(const std::vector<BadVersion>& versions, std::string_view sha256,
                          std::string_view md5) {
  const auto is = [&](const BadVersion& bad) {
    return (!sha256.empty() && bad.sha256 == sha256) || (!md5.empty() && bad.md5 == md5);
  };
  const auto found = std::ranges::find_if(versions, is);
  return found == versions.end() ? nullptr : &*found;
}
