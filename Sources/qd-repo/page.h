#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "qd-repo/ListedRelease.h"

/// index.html: channels, versions, shares, expiry and key ids for a person who looks at the
/// repository with a browser. One file without scripts.
std::string pageOf(const tufrepo::Repository& repository,
                   const std::vector<ListedRelease>& releases, std::time_t now);

/// "25 %, to 100 % until 2026-03-02T14:05:09Z" or such: a channel's share at that time.
std::string shareText(const Ramp& ramp, UnixTime now);
