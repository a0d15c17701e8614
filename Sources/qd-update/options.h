#pragma once

#include <ctime>
#include <optional>
#include <string>

/// What qd-update was asked to do.
struct Options {
  enum class Command {
    Run,
    Check,
    Status,
    History,
    Trust,
    Forgive,
    Recover
  } command = Command::Run;
  std::optional<std::string> installed;  ///< the installed version, in place of the database's
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  std::size_t count = 20;  ///< lines of the history
  std::string root;        ///< the file of a root to trust
  bool replace = false;    ///< whatever is trusted now
  bool yes = false;        ///< without a question
  std::string forgiven;    ///< a version that was bad
  std::time_t since = 0;   ///< runs that started then or later
};

/// What reading the arguments gave: options, or a text and the exit status of the process.
struct OptionsRead {
  std::optional<Options> options;
  std::string text;
  int status = 0;
};

/// `now` is what a duration in the past counts from.
OptionsRead readOptions(int argc, const char* const* argv, std::time_t now);
