#pragma once

#include <string>
#include <vector>

namespace utils {

/// What a raw wait status means: the exit code; the signal's number for a child that a signal
/// ended; the raw status itself for a stopped one.
int exitStatusOf(int waitStatus);

/// The lines of `text`, without their ends; a last line without an end counts.
std::vector<std::string> splitLines(const std::string& text);

/// Runs `cmd` through the shell and waits. When it ends with 0, the lines that it wrote to standard
/// output are appended to `lines`. Returns the exit status as above, -1 when it never ran. Throws
/// the process library's error when it can't be started. Logs nothing.
int exec(std::string& cmd, std::vector<std::string>& lines);

/// Runs `cmd` without a shell and waits; then logs "exec : " with the command, its standard output
/// and its standard error, one NFY record a line. Result and errors as above.
int execlog(std::string& cmd);

}  // namespace utils
