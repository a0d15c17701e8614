#pragma once

#include "sysdef/qdTunables.h"

/// The base library's tunables, in the order in which texts are applied.
inline constexpr unsigned int tunablesBaseCount = 65;
extern const QDTunablesS tunablesBase[tunablesBaseCount];

/// Sets the base library's tunables. For the start-up, before other threads read them.
class QDTunablesBase {
 public:
  /// Applies a NUL-terminated text, as `QDTunables::tunablesUpdate` does.
  static void tunablesUpdate(const unsigned char* text);

  /// Applies the file at `path`, which has 1 to 4,095 bytes. Returns false, with nothing applied,
  /// for a missing, empty, larger or unreadable file; throws nothing.
  static bool tunablesUpdateFromFile(const unsigned char* path);
};
