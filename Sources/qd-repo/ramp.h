#pragma once

#include "qd-repo/options.h"

/// The ramp that the options ask for, after the one that a release has in that channel, null where
/// it has none: a share that is out already is where the next ramp begins. Throws
/// std::runtime_error for one that machines would fall back in.
Ramp nextRamp(const Ramp* before, const RepoOptions& options, UnixTime now);
