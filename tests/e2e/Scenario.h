#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedServer.h"
#include "UpdateRun.h"

/// Texts that stand for others, by name: "{S}" the server's address, "{T}" the temporary folder,
/// "{opening}" the lines that every log begins with, and so on.
using Texts = std::map<std::string, std::string>;

/// One run from its arguments to everything that it leaves. The texts hold one item a line; what is
/// not given is not looked at.
struct Scenario {
  std::string name;
  std::vector<std::string> args = {"{H}", "{V}"};
  /// In place of, or beside, the answers of the good server.
  Script script = {};
  /// What stand-ins do, by command.
  std::vector<std::pair<std::string, std::string>> commands = {};
  /// Last preparations; may add texts.
  std::function<void(UpdateRun&, Texts&)> prepare = {};
  std::string ended = "exit 0";
  std::string log = {};
  std::optional<std::string> requests = {};
  std::optional<std::string> calls = {};
  std::optional<std::string> files = {};
  int connections = 1;  ///< at most
};

inline std::string nameOf(const testing::TestParamInfo<Scenario>& info) { return info.param.name; }
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

/// The package of the good server, and its digest.
const std::string& goodPackage();
const std::string& goodDigest();

/// Replaces the names in the text, again and again until none is left.
std::string fillIn(const std::string& text, const Texts& texts);

/// The names of the machine: "{M}" as uname tells it, "{A}" its folder on a server of Linux
/// packages,
/// "{Mac}" its folder on one of macOS packages, "{Kesa}" the ending of those, "{N}" its number in
/// the definition file, "{Other}" the number of another one. Empty on a machine without packages.
Texts machineTexts();

/// The answers of a good server for this machine: version 7.2.1.15, the package and its digest.
Script linuxServer();

/// Runs the program against `good` with the scenario's answers laid over it, and compares all that
/// it left, the log without the progress of downloads. `texts` holds the names for this program;
/// "{S}", "{H}", "{T}", "{V}", "{D}" and "{B}" (server, server in hexadecimal, temporary folder,
/// installed version, digest and size of the good package) and "{blank}" are added.
void check(const Scenario& scenario, const std::string& executable, const Script& good,
           Texts texts);

/// A run of this machine's own program, from version 7.2.0.1, against a good server with `changes`.
struct LinuxUpdate {
  explicit LinuxUpdate(const Script& changes = {});

  /// The arguments; `option` comes first when there is one.
  [[nodiscard]] std::vector<std::string> args(const std::string& option = {}) const;
  Outcome go(const std::string& option = {}) { return run.run(args(option)); }
  /// Where the package lies, downloaded.
  [[nodiscard]] std::string package() const { return run.temp("setup.deb"); }

  ScriptedServer server;
  UpdateRun run;
};

/// Expects a whole update: success, the good package downloaded, the three commands run in order.
void expectUpdated(const Outcome& outcome, const UpdateRun& run);

/// Skips a test where programs cannot be run as root.
#define QD_NEEDS_ROOT() \
  if (const std::string why = whyNoRoot(); !why.empty()) GTEST_SKIP() << why
