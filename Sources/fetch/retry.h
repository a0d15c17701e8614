#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "fetch/Transfer.h"

namespace fetch {

/// Whether the same request may have a better answer a little later: the connection failed or was
/// cut, or the server has too much to do (408, 429, 5xx).
bool isTransient(const Result& result);

/// How long to wait before the request is sent again; nothing when there is no time left for that.
/// `failures`: in a row, from 1; `wanted`: the least that the server asks for; `random`: from 0 to
/// 1, so that not all machines come back at once; `left`: until the deadline.
std::optional<std::chrono::milliseconds> pauseAfter(unsigned int failures,
                                                    std::optional<std::chrono::seconds> wanted,
                                                    double random, std::chrono::milliseconds left);

/// Waits, as long as `goesOn`, which is asked ten times a second and may be empty, says so. Returns
/// whether it waited to the end.
bool pauseFor(std::chrono::milliseconds time, const std::function<bool()>& goesOn);

}  // namespace fetch
