#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Files.h"
#include "TempFolder.h"
#include "ground/osal_scoped.h"

/// The user that a run without administrator rights, or a hostile neighbour, belongs to.
inline constexpr uid_t kNobody = 65534;

/// The built program for this machine, the one for the macOS family and the one for Synology. The
/// environment variables QD_UPDATE, QD_UPDATE_MACOS and QD_UPDATE_SYNOLOGY override the build's
/// own.
std::string updateExecutable();
std::string updateExecutableMacOS();
std::string updateExecutableSynology();

/// Empty when programs can be run here with user id 0, as root or in a user namespace of their own,
/// else the reason why not.
std::string whyNoRoot();

/// The address as the program takes it, two hexadecimal digits a byte.
std::string hexAddress(const std::string& address);

/// The lower-case hexadecimal MD5 digest.
std::string md5Of(const std::string& data);

std::vector<std::string> splitLines(const std::string& text);

/// The lines of a log, stamp and source location cut: "NFY text" for module ROOT, "EXCP:ERR text"
/// for the others; a line of another form stays as it is.
std::vector<std::string> logRecords(const std::string& log);

/// What a finished run left.
struct Outcome {
  std::string ended;               ///< "exit 0", "signal 15" or "timed out"
  std::vector<std::string> log;    ///< `logRecords` of the log file
  std::string out;                 ///< standard output
  std::string err;                 ///< standard error
  std::vector<std::string> calls;  ///< the commands with their arguments, in order
  std::vector<std::string> files;  ///< names in the temporary folder and "work/" + name in the
                                   ///< run's own working folder, sorted
  long peakKiB = 0;                ///< largest resident size of the run and its commands
};

/// One run of the built program as a process: a fresh temporary folder, open to every user as the
/// system's own is, and stand-ins for all system commands first in the PATH, which note their
/// calls.
class UpdateRun {
 public:
  explicit UpdateRun(std::string executable = updateExecutable());

  /// Replaces what the stand-in for the command does after noting its call: shell text, with
  /// "$tmp" for the run's temporary folder and "$calls" for the file of the calls.
  void command(const std::string& name, const std::string& body);

  /// Starts the program; `run` is `start` and `finish`.
  void start(std::vector<std::string> args);
  Outcome finish();
  Outcome run(std::vector<std::string> args);

  /// Temporary folder of the run, and a path in it.
  [[nodiscard]] std::string temp() const { return folder_ / "tmp"; }
  [[nodiscard]] std::string temp(const std::string& name) const { return temp() + "/" + name; }
  /// A place for the test's own files, out of the run's way.
  [[nodiscard]] std::string side(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] pid_t pid() const { return pid_; }

  /// Environment of the run, on top of PATH, TMPDIR and an instance without configuration.
  std::map<std::string, std::string> env;
  /// Put in front of the program and its arguments, for instance a shell that starts it.
  std::vector<std::string> launcher;
  uid_t user = 0;
  /// Standard output in place of the captured file, when not -1.
  int stdoutFd = -1;
  /// Runs in the child right before the program starts; plain system calls only.
  std::function<void()> inChild;
  int timeoutSeconds = 60;

 private:
  std::string executable_;
  TempFolder folder_;
  pid_t pid_ = -1;
};

/// Standard output with room for one line, so that a run with "-D" never gets further ahead than
/// the line after the one that the test has read: a way to stop a run at a place of its log.
class LineGate {
 public:
  LineGate();
  [[nodiscard]] int writeEnd() const { return write_.get(); }
  /// Lets the run go on until a line with `text` is in its log, and holds it there, before it does
  /// what follows the line. Returns false when the line does not come.
  bool holdAt(const UpdateRun& run, const std::string& text);
  /// Lets the run go on to its end; call before `finish`.
  void release();

 private:
  bool readLine(int milliseconds);

  ScopedFd read_;
  ScopedFd write_;
  std::size_t linesRead_ = 0;
};
