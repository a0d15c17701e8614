#pragma once

#include <string>

#include "Updater/rollout/Release.h"

/// What a package says of itself.
struct PackageFacts {
  Version version;
  utils::AgentArch arch = utils::ArchUnknown;  ///< unknown: it is for every architecture
  utils::AgentDistrib kind = utils::DistribNone;
};

/// Asks dpkg-deb or rpm. `file` is an absolute path; `shown` is its name in messages. Throws
/// std::runtime_error with a plain sentence for what is no such package, or none of an agent.
PackageFacts readPackage(const std::string& file, const std::string& shown);

/// The architecture of a package's field; Debian's, RPM's and our own names. Unknown for "all" and
/// "noarch" and for every other text.
utils::AgentArch packageArch(const std::string& name);
