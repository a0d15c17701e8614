#pragma once

#include <optional>
#include <vector>

#include "Updater/config/settingValues.h"
#include "Updater/rollout/Release.h"

/// When one of the windows is open next: `now` itself when one is open; nothing without windows, or
/// where none opens within two weeks. A window is open while a clock on the wall, by the C
/// library's time zone, shows a time in it: what the clocks leave out when they are put forward
/// does not open, and what they show twice when they are put back is open both times.
std::optional<UnixTime> nextOpen(const std::vector<Window>& windows, UnixTime now);
