#pragma once

#include <string>

#include "tuf/metadata.h"

namespace tuf {

/// Refuses a file with fewer valid signatures than the role's threshold. Signatures of unknown keys
/// and broken ones are passed over. A key counts once, whatever ids it is listed under. `name` is
/// for the message. Throws Error, Unsigned.
void requireThreshold(const Envelope& file, const Keys& keys, const RoleKeys& role,
                      const std::string& name);

}  // namespace tuf
