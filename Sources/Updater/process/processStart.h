#pragma once

#include <string>

/// `path` with the folders of the system's commands appended that it lacks. `path` may be null.
std::string completedPath(const char* path);

/// Makes the process independent of how it was started, before anything else happens: the standard
/// descriptors exist, no signal is ignored or blocked that commands rely on, new files are not
/// writable by others, the system's commands are found, packages are configured without questions,
/// a background process does not read its terminal, and lack of memory where nothing may be thrown
/// ends it with the status of an exception.
void prepareProcess();

/// Lets this process and the commands that it starts from now on find the end of standard input.
void endStandardInput() noexcept;
