#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Updater/rollout/Release.h"

/// What qd-repo was asked to do.
struct RepoOptions {
  enum class Command {
    Init,
    Publish,
    Promote,
    Halt,
    Resume,
    Refresh,
    Rotate,
    Sign,
    Verify,
    Prune,
    Status,
    Preview
  } command = Command::Status;

  std::string repository;
  std::string keys;     ///< folder
  std::string keyFile;  ///< of one key
  int passphraseFd = -1;
  bool encrypt = false;
  bool ecdsa = false;
  bool json = false;
  unsigned rootKeys = 0;  ///< 0: as many as the threshold
  std::optional<unsigned> threshold;
  std::map<std::string, std::chrono::seconds> lives;  ///< by role

  std::vector<std::string> files;
  std::string channel;
  std::optional<Version> version;
  utils::AgentArch arch = utils::ArchUnknown;
  int percent = 100;
  int hours = 0;
  std::optional<UnixTime> start;
  std::optional<Version> minFrom;
  bool rollback = true;

  bool targets = false;  ///< refresh
  std::string role;
  std::vector<std::string> add;
  std::vector<std::string> remove;
  std::string file;  ///< a root that waits for signatures, the first root, or a picture
  unsigned keep = 0;
  std::chrono::seconds grace{std::chrono::hours(24)};
};

/// What reading the arguments gave: options, or a text and the exit status of the process.
struct RepoOptionsRead {
  std::optional<RepoOptions> options;
  std::string text;
  int status = 0;
};

RepoOptionsRead readRepoOptions(int argc, const char* const* argv);
