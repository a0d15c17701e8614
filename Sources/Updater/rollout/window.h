#pragma once

#include <optional>
#include <vector>

#include "Updater/config/settingValues.h"
#include "Updater/rollout/Release.h"

/// When one of the windows is open next: `now` itself when one is open; nothing without windows.
/// Windows are in local time, by the C library's time zone: where the clocks are put forward over
/// its opening it opens then, where they are put back over it, at the first of the two hours.
std::optional<UnixTime> nextOpen(const std::vector<Window>& windows, UnixTime now);
