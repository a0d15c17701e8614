#pragma once

// What the program is built for: fixed by the build, and nowhere else.

/// Operating-system families, with their numbers in the setup definition file.
enum class TargetFamily : int { Windows = 1, MacOS = 2, Linux = 3 };

/// The family that this build is for; not always the one that it runs on.
TargetFamily targetFamily();

/// Whether this build is for Synology systems, which are of the Linux family.
bool targetIsSynology();

/// The folder of the agent's configuration strings, without a slash at its end.
const char* targetConfigurationFolder();

/// The folder of what outlives the program's runs, without a slash at its end.
const char* targetStateFolder();

/// The version of the programs, such as "1.1.0".
const char* targetProgramVersion();
