#include "Updater/rollout/window.h"

#include <time.h>

#include <algorithm>

#include "ground/osal_localtime.h"

namespace {

bool isOpen(const Window& window, const std::tm& local) {
  const int minute = local.tm_hour * 60 + local.tm_min;
  const int today = (local.tm_wday + 6) % 7;  // 0: Monday
  const auto hasDay = [&](int day) { return (window.days >> (day % 7) & 1U) != 0; };
  const bool hasOpened = hasDay(today) && minute >= window.opens;
  if (window.opens < window.closes) return hasOpened && minute < window.closes;
  const bool isOpenSinceYesterday = hasDay(today + 6) && minute < window.closes;
  return hasOpened || isOpenSinceYesterday;
}

}  // namespace

std::optional<UnixTime> nextOpen(const std::vector<Window>& windows, UnixTime now) {
  using std::chrono::minutes;
  constexpr minutes kHorizon = std::chrono::weeks(2);  // one week's may be left out by the clocks
  std::tm local{};
  if (!osal_toLocalTime(now.time_since_epoch().count(), local)) return std::nullopt;
  for (UnixTime time = now; time <= now + kHorizon;
       time = std::chrono::floor<minutes>(time) + minutes(1)) {
    const std::time_t instant = time.time_since_epoch().count();
    ::localtime_r(&instant, &local);  // by the setting that was looked at above
    const auto isOpenThen = [&](const Window& window) { return isOpen(window, local); };
    if (std::any_of(windows.begin(), windows.end(), isOpenThen)) return time;
  }
  return std::nullopt;
}
