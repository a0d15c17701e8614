#pragma once

#include "sysdef/qdTunables.h"

/// The agent suite's tunables, in the order in which texts are applied.
inline constexpr unsigned int tunablesOVTCount = 312;
extern const QDTunablesS tunablesOVT[tunablesOVTCount];

/// Applies a NUL-terminated text to the agent suite's tunables and then to the base library's. For
/// the start-up, before other threads read tunables.
void tunablesUpdateStr(const unsigned char* text);

/// The same with the text in the file at `path`, of which the first 4,194,304 bytes are used. A
/// missing file changes nothing; neither does one that can't be opened, read or locked, which is
/// logged.
void tunablesUpdate(const unsigned char* path);
