#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace utils {

/// A program that is run for the administrator.
struct ChildRun {
  std::string program;  ///< path, or name in the PATH
  std::vector<std::string> arguments{};
  std::vector<std::pair<std::string, std::string>> environment;  ///< added to this process's own
  std::chrono::seconds limit{60};
  std::function<void(const std::string&)>
      onLine;                       ///< of its standard output and error, as it comes
  std::function<bool()> cancelled;  ///< asked now and then; may be empty
  bool withErrors = true;           ///< else its standard error is /dev/null
  bool adopts = false;              ///< what its children leave is ended with it as well
};

/// How it ended.
struct ChildEnd {
  enum class How { Exited, TookTooLong, Cancelled, NotStarted } how = How::NotStarted;
  int status = 0;  ///< exit status; 128 and the number of the signal that ended it; not started:
                   ///< the errno value, if known

  [[nodiscard]] bool isGood() const { return how == How::Exited && status == 0; }
};

/// Runs the program without a shell and waits. It has a session of its own and reads /dev/null. At
/// the limit, or when it is cancelled, it is ended with its children (ChildFamily). What a child
/// that outlives it writes is not waited for. Logs nothing.
ChildEnd runChild(const ChildRun& run);

/// A text for people on how `what` ("hook before-1") ended, which had the time `limit`;
/// empty when it ended with 0.
std::string faultText(const std::string& what, const ChildEnd& end, std::chrono::seconds limit);

/// What runShell returns where the command was ended at its limit; no wait status.
inline constexpr int kTookTooLong = -2;

/// As `std::system`, but in a session of its own, out of reach of the terminal and its signals, and
/// with its output in the file `output`. At the `limit`, where there is one, it is ended with its
/// children. Returns the wait status, -1 where it could not be started, or kTookTooLong.
int runShell(const char* command, int output, std::chrono::seconds limit) noexcept;

}  // namespace utils
