#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Updater/config/settingValues.h"

/// Only releases that signed metadata names are installed.
struct TrustSettings {
  std::string root;  ///< path of the first trusted root
  std::string channel = "stable";
};

/// How the server is asked.
struct FetchSettings {
  std::optional<std::string> proxy;    ///< unset: the environment's; empty: none
  std::optional<std::string> noProxy;  ///< unset: the environment's
  std::string ca;  ///< empty: no certificate is verified; "system", or a file of certificates
  std::string clientCert;                                 ///< path, or empty
  std::string clientKey;                                  ///< path, or empty
  std::uint64_t rate = 0;                                 ///< bytes a second; 0: no limit
  std::chrono::seconds deadline = std::chrono::hours(2);  ///< for all requests of a run
};

/// What goes before an installation, and with it.
struct InstallSettings {
  std::chrono::seconds lockWait = std::chrono::minutes(30);  ///< for the package manager
  std::uint64_t reserve = std::uint64_t{64} << 20;  ///< bytes that stay free where is written
  bool rehearse = true;
  bool replaceConffiles = false;  ///< changed configuration files give way to the package's
};

/// After the start the agent is looked at, and the former version put back where it ails.
struct HealthSettings {
  std::chrono::seconds settle{10};
  std::chrono::seconds timeout{60};  ///< of each check
  bool rollback = true;
  unsigned int keep = 1;  ///< packages kept for the way back
};

/// When something may be installed, and what.
struct RolloutSettings {
  std::vector<Window> windows;     ///< empty: at any time
  std::chrono::seconds minAge{0};  ///< since the release's start
  std::optional<VersionPin> pin;
};

/// What is reported of a run besides its record, and where.
struct ReportSettings {
  std::string textfile;  ///< folder for the metrics; empty: none are written
  std::uint64_t history = std::uint64_t{1} << 20;  ///< bytes of history before it is rolled
};

/// What the administrator asks for in update.toml. Whatever the file leaves out has the value that
/// stands here; the optional sections are switched on by their presence.
struct Settings {
  std::string server;  ///< without a slash at its end; empty where the file names none
  std::vector<std::string> mirrors;
  std::optional<TrustSettings> trust;
  FetchSettings fetch;
  InstallSettings install;
  std::optional<HealthSettings> health;
  std::optional<RolloutSettings> rollout;
  ReportSettings report;

  bool hasPassword = false;  ///< an address in the file holds one

  /// All servers, in the order in which they are asked: `first`, then the mirrors.
  [[nodiscard]] std::vector<std::string> serversFrom(const std::string& first) const {
    std::vector<std::string> servers{first};
    servers.insert(servers.end(), mirrors.begin(), mirrors.end());
    return servers;
  }
};
