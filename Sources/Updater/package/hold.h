#pragma once

#include <string>
#include <string_view>

#include "Updater/terms/utilsPlatform.h"

namespace utils {

/// Whether a line of the list that the plugin versionlock of dnf or yum keeps locks the version of
/// the package `name`: "qdagent-0:7.2.1.4-1.*", "0:qdagent-7.2.1.4-1.*" (yum) or the bare name.
/// Lines that begin with "!" lock none, but exclude one.
bool locksVersion(std::string_view line, std::string_view name);

/// The command that ends the hold on the agent's package by which the administrator wants it to
/// stay as it is; empty when there is none.
std::string endOfHold(AgentDistrib distrib);

}  // namespace utils
