#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

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

/// Why there is no good answer, for people, without the address.
std::string reasonOf(const Result& result);

/// Told of each pause before a request is sent again: why it failed, as above, and how long the
/// pause is. It must not throw.
using PauseListener = std::function<void(const std::string& why, std::chrono::milliseconds time)>;

/// Whether a download is worth the time that somebody else could have in its place: it has taken
/// no more than half of all, or would end in the time that is `left`, were the `missing` bytes as
/// fast as those that have `come`.
bool mayGoOn(std::chrono::milliseconds taken, std::chrono::milliseconds left, std::uint64_t come,
             std::uint64_t missing);

/// Waits, as long as `goesOn`, which is asked ten times a second and may be empty, says so. Returns
/// whether it waited to the end.
bool pauseFor(std::chrono::milliseconds time, const std::function<bool()>& goesOn);

}  // namespace fetch
