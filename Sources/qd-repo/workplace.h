#pragma once

#include <ctime>
#include <string>

#include "qd-repo/options.h"
#include "tufrepo/KeyRing.h"

namespace tufrepo {
class Repository;
}

// What the commands have in common.

/// The passphrase of the options' descriptor, which is read once, or asked on the terminal.
tufrepo::AskPassphrase passphraseSource(const RepoOptions& options);

/// A new passphrase: of the descriptor, or asked on the terminal twice.
std::string newPassphrase(const RepoOptions& options);

/// The keys that the options name. A folder inside the repository is an error.
tufrepo::KeyRing keysOf(const RepoOptions& options);

/// Throws where a file that is not to be published lies in the repository.
void requireOutside(const std::string& file, const std::string& repository);

/// Says on standard error that another one has the repository.
void sayWaiting(const std::string& repository);

/// The present, asked once by every command.
std::time_t present();

/// Says on standard error what expires within 30 days and is not renewed from cron.
void warnOfExpiry(const tufrepo::Repository& repository, std::time_t now);
