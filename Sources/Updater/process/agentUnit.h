#pragma once

#include <string>

/// Whether a process belongs to the systemd unit `unit`. `cgroups` is the text of its
/// /proc/<pid>/cgroup (cgroups(7)).
bool isInUnit(const std::string& cgroups, const std::string& unit);

/// Whether this process belongs to the agent's unit.
bool isInAgentUnit();

/// Moves this process out of the agent's unit when the agent itself started it: systemd would end
/// it together with the agent that it is about to stop. It gets a scope of its own or, where
/// systemd can't be asked, a control group of its own. Returns the reason when both fail, empty
/// when it worked or there is nothing to do. Logs nothing.
std::string leaveAgentUnit();
