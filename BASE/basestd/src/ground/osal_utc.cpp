#include "ground/osal_utc.h"

#include <time.h>

namespace {

constexpr const char* kFormat = "%Y-%m-%dT%H:%M:%SZ";

}  // namespace

std::string osal_utcText(std::time_t instant) {
  std::tm utc{};
  char text[64];
  if (::gmtime_r(&instant, &utc) == nullptr) return {};
  return {text, std::strftime(text, sizeof text, kFormat, &utc)};
}

std::optional<std::time_t> osal_parseUtc(const std::string& text) {
  std::tm utc{};
  if (::strptime(text.c_str(), kFormat, &utc) == nullptr) return std::nullopt;
  const std::time_t instant = ::timegm(&utc);
  // The system reads other texts, too, and takes the 30th of February for a day in March.
  return osal_utcText(instant) == text ? std::optional(instant) : std::nullopt;
}
