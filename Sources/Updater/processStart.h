#pragma once

#include <string>

/// `path` with the folders of the system's commands appended that it lacks. `path` may be null.
std::string completedPath(const char* path);

/// Makes the process independent of how it was started, before anything else happens: the standard
/// descriptors exist, no signal is ignored or blocked that commands rely on, new files are not
/// writable by others, the system's commands are found, and nobody is asked anything on a terminal.
void prepareProcess();
