#pragma once

#include "sysdef/qdTunables.h"

/// The agent suite's tunables, in the order in which texts are applied.
inline constexpr unsigned int tunablesOVTCount = 312;
extern const QDTunablesS tunablesOVT[tunablesOVTCount];

/// Applies a NUL-terminated text to the agent suite's tunables and then to the base library's. For
/// the start-up, before other threads read tunables.
void tunablesUpdateStr(const unsigned char* text);
