#pragma once

#include <string>

// While the agent is being replaced, systemd has a timer that outlives this process: every 20
// seconds it runs `qd-update recover`, which finds a run that lives and leaves it alone, or ends
// what a run left that died. The program is the one beside this program, else that in /usr/sbin,
// /usr/bin, /sbin or /bin: what the environment says does not count for what root runs later.

/// The timer's unit, for an agent instance that may be empty: its characters that may not be in a
/// unit's name are written as systemd-escape writes them.
std::string recoveryTimerName(const std::string& instance);

/// Starts the timer; one that is there already stays. Returns why there is none, empty when there
/// is. Logs nothing.
std::string startRecoveryTimer(const std::string& instance);

/// Stops it, where there is one. Logs nothing.
void stopRecoveryTimer(const std::string& instance);
