#include "Updater/download/contentRange.h"

#include <curl/curl.h>

#include <charconv>
#include <string_view>

namespace {

/// Takes a number off the front of the text.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

std::string valueOf(const fetch::Headers& headers, const char* name) {
  const auto found = headers.find(name);
  return found == headers.end() ? std::string() : found->second;
}

}  // namespace

std::optional<ContentRange> parseContentRange(const std::string& text) {
  std::string_view rest = text;
  ContentRange range;
  if (!take(rest, "bytes ")) return std::nullopt;
  const bool isPart = !take(rest, "*");
  if (isPart) {
    range.first = takeNumber(rest);
    const bool dash = take(rest, "-");
    const auto last = takeNumber(rest);
    if (!range.first || !dash || !last || *last < *range.first) return std::nullopt;
  }
  if (!take(rest, "/")) return std::nullopt;
  if (isPart && rest == "*") return range;
  range.total = takeNumber(rest);
  return range.total && rest.empty() ? std::optional(range) : std::nullopt;
}

std::string validatorOf(const fetch::Headers& headers) {
  constexpr std::time_t kApart = 1;  // second, the unit of a date
  std::string tag = valueOf(headers, "etag");
  if (tag.starts_with('"')) return tag;
  const std::string modified = valueOf(headers, "last-modified");
  const std::time_t then = curl_getdate(modified.c_str(), nullptr);
  const std::time_t now = curl_getdate(valueOf(headers, "date").c_str(), nullptr);
  return then >= 0 && now - then >= kApart ? modified : std::string();
}
