#pragma once

#include <string>
#include <vector>

#include "qd-repo/ListedRelease.h"

/// The definition file for programs without signed metadata: of every platform and package kind the
/// highest release that is fully out.
std::string definitionOf(const std::vector<ListedRelease>& releases, UnixTime now);
