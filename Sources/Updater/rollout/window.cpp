#include "Updater/rollout/window.h"

#include <algorithm>
#include <ctime>

#include "ground/osal_localtime.h"

namespace {

/// `minutes` after midnight of the day that lies `days` after the one of `today`.
UnixTime localInstant(const std::tm& today, int days, int minutes) {
  std::tm local{};
  local.tm_year = today.tm_year;
  local.tm_mon = today.tm_mon;
  local.tm_mday = today.tm_mday + days;
  local.tm_hour = minutes / 60;
  local.tm_min = minutes % 60;
  local.tm_isdst = -1;
  return UnixTime(std::chrono::seconds(std::mktime(&local)));
}

}  // namespace

std::optional<UnixTime> nextOpen(const std::vector<Window>& windows, UnixTime now) {
  constexpr int kMinutesOfDay = 24 * 60;
  std::tm today{};
  if (!osal_toLocalTime(now.time_since_epoch().count(), today)) return std::nullopt;
  std::optional<UnixTime> next;
  for (const Window& window : windows) {
    const int closes = window.closes + (window.closes <= window.opens ? kMinutesOfDay : 0);
    for (int day = -1; day <= 7; ++day) {
      const int weekday = (today.tm_wday + 6 + day + 7) % 7;  // 0: Monday
      if ((window.days >> weekday & 1U) == 0) continue;
      if (localInstant(today, day, closes) <= now) continue;
      const UnixTime opens = std::max(now, localInstant(today, day, window.opens));
      if (!next || opens < *next) next = opens;
      break;  // the days after this one are later
    }
  }
  return next;
}
