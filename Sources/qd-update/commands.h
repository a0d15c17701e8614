#pragma once

#include "Updater/config/SettingsFile.h"
#include "Updater/procedure/ConfiguredRun.h"
#include "qd-update/Screen.h"
#include "qd-update/options.h"

// The commands. Each returns the exit status of the process.

/// Everything a command works with.
struct Job {
  Options options;
  RunPlaces places;
  Screen& screen;
};

int runUpdate(const Job& job);
int recoverUpdate(const Job& job);
int checkForUpdate(const Job& job);
int showStatus(const Job& job);
int showHistory(const Job& job);
int trustRoot(const Job& job);
int forgiveVersion(const Job& job);

/// The settings, which must be there and name a server: without a fault then.
SettingsRead neededSettings(const RunPlaces& places);

/// The version that is installed, as the options or the package manager say; empty: nobody knows.
std::string installedVersion(const Options& options);
