#pragma once

#include <string>

// Facts that system tools and the desktop know. The tools run as shell pipelines whose exit status
// is not examined, so that a missing tool and an empty answer are the same.

/// The output of a shell command without one final line feed; empty after logging when the shell
/// cannot be started. Commands run one at a time, from whatever thread.
std::string resultOfCommand(const std::string& command);

/// The output of a shell command as it is; empty after logging when the shell cannot be started.
std::string executeCommand(const std::string& command);

/// The machine's serial number, empty after logging when there is none.
std::string osal_getSerialNumber();

/// The addresses of all network interfaces, one a line.
std::string osal_getMACAddress();
std::string osal_getIPv4Address();
std::string osal_getIPv6Address();

/// The user at the machine's own screen, empty when there is none or no ordinary one.
std::string osal_getFinderUser();

/// The user who logged in last; reads that user's locale setting, too, and logs it. Returns 0, or
/// -1 when there is none, with `user` unchanged.
int osal_getLastLogonName(std::string& user);

/// The first number of the kernel's release, for instance 23 of "23.5.0". Returns 0, or -1 after
/// logging.
int osal_macOSReleaseGet(int* major);
