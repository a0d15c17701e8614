#pragma once

#include <optional>
#include <string>

#include "Updater/terms/Version.h"
#include "Updater/terms/utilsPlatform.h"

/// The digest in a digest file, which is the text before its first blank; nothing when it has no
/// blank.
std::optional<std::string> digestIn(const std::string& digestFile);

/// The most bytes that a download may have when `expected` are announced.
unsigned long long downloadLimit(unsigned long long expected);

/// Whether this update has to bring the X11 libraries that agents need since 7.2.0.0.
bool needsXCBDeps(utils::AgentOS os, const Version& installed, const Version& available);

/// The commands that ask whether X11 is there and install its libraries; null for a package kind
/// that has none. `patiently`: the installer waits where somebody else has the package manager's
/// lock (dnf always does).
struct XCBCommands {
  const char* query;
  const char* install;
};
XCBCommands xcbCommands(utils::AgentDistrib distrib, bool patiently);
