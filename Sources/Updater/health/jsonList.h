#pragma once

#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Reads a JSON array, each of its entries by `read`, which throws where it is none; nothing for
/// any other text, but an empty one is an empty list.
template <class Entry, class Read>
std::optional<std::vector<Entry>> readJsonList(std::string_view text, const Read& read) try {
  std::vector<Entry> entries;
  if (text.empty()) return entries;
  const auto json = nlohmann::json::parse(text);
  if (!json.is_array()) return std::nullopt;
  for (const auto& entry : json) entries.push_back(read(entry));
  return entries;
} catch (const std::exception&) {
  return std::nullopt;
}

/// The array of what `write` makes of each entry, ended by a line feed. What is not UTF-8 in it is
/// replaced.
template <class Entry, class Write>
std::string jsonListText(const std::vector<Entry>& entries, const Write& write) {
  using Json = nlohmann::ordered_json;
  Json json = Json::array();
  for (const Entry& entry : entries) json.push_back(write(entry));
  return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}
