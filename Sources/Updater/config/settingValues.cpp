#include "Updater/config/settingValues.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <charconv>
#include <memory>
#include <string_view>

namespace {

struct Unit {
  std::string_view name;
  std::uint64_t factor;
};

constexpr int kMinutesOfDay = 24 * 60;
constexpr std::array<std::string_view, 7> kDays = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

/// Decimal digits and nothing else.
template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  const bool whole = error == std::errc() && stopped == end && text[0] != '-';
  return whole ? std::optional(number) : std::nullopt;
}

/// A number with one of the units at its end, multiplied, at most `most`.
template <std::size_t count>
std::optional<std::uint64_t> parseMeasure(std::string_view text,
                                          const std::array<Unit, count>& units,
                                          std::uint64_t most) {
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const auto number = parseNumber<std::uint64_t>(text.substr(0, digits));
  const auto unit = std::ranges::find(units, text.substr(digits), &Unit::name);
  if (!number || unit == units.end() || *number > most / unit->factor) return std::nullopt;
  return *number * unit->factor;
}

std::optional<unsigned int> parseDay(std::string_view name) {
  const auto day = std::ranges::find(kDays, name);
  if (day == kDays.end()) return std::nullopt;
  return static_cast<unsigned int>(day - kDays.begin());
}

/// "Mon", or "Fri-Mon", as bits.
std::optional<unsigned int> parseDayRange(std::string_view text) {
  const std::size_t dash = text.find('-');
  const auto first = parseDay(text.substr(0, dash));
  const auto last = dash == std::string_view::npos ? first : parseDay(text.substr(dash + 1));
  if (!first || !last) return std::nullopt;
  unsigned int days = 0;
  for (unsigned int day = *first;; day = (day + 1) % unsigned{kDays.size()}) {
    days |= 1U << day;
    if (day == *last) return days;
  }
}

std::optional<unsigned int> parseDays(const std::string& text) {
  std::vector<std::string> ranges;
  boost::split(ranges, text, [](char c) { return c == ','; });
  unsigned int days = 0;
  for (const std::string& range : ranges) {
    const auto some = parseDayRange(range);
    if (!some) return std::nullopt;
    days |= *some;
  }
  return days;
}

/// "01:00" as minutes.
std::optional<int> parseTimeOfDay(std::string_view text) {
  if (text.size() != 5 || text[2] != ':') return std::nullopt;
  const auto hours = parseNumber<int>(text.substr(0, 2));
  const auto minutes = parseNumber<int>(text.substr(3));
  if (!hours || !minutes || *minutes > 59) return std::nullopt;
  const int time = *hours * 60 + *minutes;
  return time <= kMinutesOfDay ? std::optional(time) : std::nullopt;
}

bool isPrintable(const std::string& text) {
  return std::ranges::none_of(text, [](unsigned char c) { return c < ' ' || c == 0x7f; });
}

struct FreeUrl {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, FreeUrl>;

/// Null where the text is no address. Without a scheme of its own it gets http.
Url readAddress(const std::string& text) {
  constexpr unsigned int kFlags = CURLU_DEFAULT_SCHEME | CURLU_NON_SUPPORT_SCHEME;
  Url url(curl_url());
  if (!isPrintable(text) || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), kFlags) != 0) {
    return nullptr;
  }
  return url;
}

/// A part of the address; empty where it has none.
std::string partOf(const Url& url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return {};
  std::string copy(text);
  curl_free(text);
  return copy;
}

}  // namespace

std::optional<std::chrono::seconds> parseDuration(const std::string& text) {
  static constexpr std::array<Unit, 4> kUnits = {{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}}};
  const auto seconds = parseMeasure(text, kUnits, std::uint64_t{3660} * 86400);
  return seconds ? std::optional(std::chrono::seconds(*seconds)) : std::nullopt;
}

std::optional<std::uint64_t> parseSize(const std::string& text) {
  static constexpr std::array<Unit, 4> kUnits = {
      {{"", 1}, {"KiB", 1 << 10}, {"MiB", 1 << 20}, {"GiB", 1 << 30}}};
  return parseMeasure(text, kUnits, std::uint64_t{1} << 62);
}

std::optional<Window> parseWindow(const std::string& text) {
  const std::size_t blank = text.find(' ');
  const auto days =
      blank == std::string::npos ? parseDays("Mon-Sun") : parseDays(text.substr(0, blank));
  const std::string hours = blank == std::string::npos ? text : text.substr(blank + 1);
  const std::size_t dash = std::min(hours.find('-'), hours.size());
  const auto opens = parseTimeOfDay(hours.substr(0, dash));
  const auto closes = parseTimeOfDay(hours.substr(std::min(dash + 1, hours.size())));
  if (!days || !opens || !closes || *opens == *closes || *opens == kMinutesOfDay) {
    return std::nullopt;
  }
  return Window{*days, *opens, *closes};
}

std::optional<VersionPin> VersionPin::parse(const std::string& text) {
  std::vector<std::string> parts;
  boost::split(parts, text, [](char c) { return c == '.'; });
  VersionPin pin;
  pin.text_ = text;
  const bool open = parts.back() == "*";
  if (open) parts.pop_back();
  for (const std::string& part : parts) {
    const auto number = parseNumber<int>(part);
    if (!number) return std::nullopt;
    pin.numbers_.push_back(*number);
  }
  const bool fits = open ? pin.numbers_.size() < 4 : pin.numbers_.size() == 4;
  return fits ? std::optional(pin) : std::nullopt;
}

bool VersionPin::allows(const Version& version) const {
  const std::array numbers = {version.major, version.minor, version.patch, version.build};
  return std::equal(numbers_.begin(), numbers_.end(), numbers.begin());
}

std::optional<std::string> parseServerAddress(const std::string& text) {
  const Url url = readAddress(text);
  const bool named = text.starts_with("http://") || text.starts_with("https://");
  if (url == nullptr || !named || text.find_first_of("?# ") != std::string::npos) {
    return std::nullopt;
  }
  return text.ends_with('/') ? text.substr(0, text.size() - 1) : text;
}

std::optional<std::string> parseProxyAddress(const std::string& text) {
  static constexpr std::array<std::string_view, 6> kSchemes = {"http",    "https",  "socks4",
                                                               "socks4a", "socks5", "socks5h"};
  if (text.empty()) return text;
  const Url url = readAddress(text);
  if (url == nullptr || std::ranges::count(kSchemes, partOf(url, CURLUPART_SCHEME)) == 0) {
    return std::nullopt;
  }
  return text;
}

bool addressHasPassword(const std::string& address) {
  const Url url = readAddress(address);
  return url != nullptr && !partOf(url, CURLUPART_PASSWORD).empty();
}

std::optional<std::string> parsePath(const std::string& text) {
  return text.starts_with('/') && isPrintable(text) ? std::optional(text) : std::nullopt;
}

std::optional<std::string> parseName(const std::string& text) {
  constexpr std::size_t kMost = 64;
  const auto fits = [](char c) { return boost::is_alnum()(c) || c == '.' || c == '_' || c == '-'; };
  if (text.empty() || text.size() > kMost || !std::ranges::all_of(text, fits)) return std::nullopt;
  return text;
}
