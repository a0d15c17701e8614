#pragma once

#include <chrono>
#include <string>

/// The unit that `startCommand` has systemd start; empty where it is another service manager's.
std::string unitStartedBy(const std::string& startCommand);

/// Watches `unit`, which somebody began to start at `begun`, until it has settled or ails; see
/// Settling. Returns what ails it, for people; empty when nothing does, and where the machine runs
/// without systemd. Logs nothing.
std::string watchUnit(const std::string& unit, std::chrono::steady_clock::time_point begun,
                      std::chrono::seconds settle, std::chrono::seconds timeout);
