#pragma once

#include <optional>
#include <string>

/// What the program was asked to do: `update [-D|-S] <url> <version>`.
struct CommandLine {
  bool echo = false;         ///< log to standard output as well
  bool skipInstall = false;  ///< stop and start the agent only
  std::string url;           ///< the server's address in hexadecimal digits
  std::string version;       ///< the installed version
};

/// The arguments; empty when they are faulty, so that the usage is to be shown.
std::optional<CommandLine> readCommandLine(int argc, const char* const* argv);
