#include "Updater/health/BadVersions.h"

#include <algorithm>

#include "Updater/health/jsonList.h"

std::optional<std::vector<BadVersion>> parseBadVersions(std::string_view text) {
  return readJsonList<BadVersion>(text, [](const nlohmann::json& entry) -> BadVersion {
    return {.version = entry.at("version"),
            .sha256 = entry.at("sha256"),
            .md5 = entry.at("md5"),
            .since = entry.at("since"),
            .cause = entry.at("cause")};
  });
}

std::string badVersionsText(const std::vector<BadVersion>& versions) {
  return jsonListText(versions, [](const BadVersion& bad) -> nlohmann::ordered_json {
    return {{"version", bad.version},
            {"sha256", bad.sha256},
            {"md5", bad.md5},
            {"since", bad.since},
            {"cause", bad.cause}};
  });
}

const BadVersion* findBad(const std::vector<BadVersion>& versions, std::string_view sha256,
                          std::string_view md5) {
  const auto is = [&](const BadVersion& bad) {
    return (!sha256.empty() && bad.sha256 == sha256) || (!md5.empty() && bad.md5 == md5);
  };
  const auto found = std::ranges::find_if(versions, is);
  return found == versions.end() ? nullptr : &*found;
}
