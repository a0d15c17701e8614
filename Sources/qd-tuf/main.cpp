// qd-tuf: a client of The Update Framework for repositories of any content.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "base/ground/target.h"
#include "qd-tuf/download.h"
#include "tuf/Client.h"
#include "tuf/Error.h"
#include "tufnet/CurlFetcher.h"

namespace {

struct Arguments {
  std::string metadataUrl;
  std::string metadataFolder;
  std::vector<std::string> names;
  std::string targetFolder;
  std::string targetUrl;
  std::string root;
};

void sayWaiting(const std::string& folder) {
  std::fprintf(stderr, "qd-tuf: %s is in use: waiting for that to end\n", folder.c_str());
}

void init(const Arguments& arguments) {
  std::ifstream file(arguments.root, std::ios::binary);
  const std::string root{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw tuf::Error(tuf::ErrorKind::Storage, "Cannot read " + arguments.root);
  tuf::Folder folder(arguments.metadataFolder, sayWaiting);
  tuf::Client::trust(folder, root);
}

/// A server that sends a byte now and then, to keep the client from updating, is soon given up.
fetch::Options impatient() {
  fetch::Options options;
  options.connectTimeout = std::chrono::seconds(10);
  options.slowBytes = 1024;
  options.slowTime = std::chrono::seconds(10);
  options.deadline = std::chrono::steady_clock::now() + std::chrono::hours(1);
  return options;
}

/// A target may have the name of a metadata file.
void requireDifferentFolders(const Arguments& arguments) {
  std::error_code missing;
  if (std::filesystem::equivalent(arguments.metadataFolder, arguments.targetFolder, missing)) {
    throw tuf::Error(tuf::ErrorKind::Storage, "Metadata and targets need folders of their own");
  }
}

/// What is put behind the address would be part of a query, or be cut off.
void requirePlain(const char* option, const std::string& address) {
  if (address.find_first_of("?#") == std::string::npos) return;
  throw tuf::Error(tuf::ErrorKind::Network,
                   std::string(option) + " takes an address without ? and #");
}

void update(const Arguments& arguments, bool withTargets) {
  requirePlain("--metadata-url", arguments.metadataUrl);
  requirePlain("--target-base-url", arguments.targetUrl);
  tuf::Folder folder(arguments.metadataFolder, sayWaiting);
  CurlFetcher fetcher(impatient());
  tuf::Client client(folder, fetcher, arguments.metadataUrl);
  if (withTargets) requireDifferentFolders(arguments);
  client.refresh();
  if (!withTargets) return;
  tuf::Folder targets(arguments.targetFolder, sayWaiting);
  download(client, arguments.names, arguments.targetUrl, targets);
}

int run(int argc, char** argv) {
  CLI::App app("Takes files as a repository's trusted metadata describes them.", "qd-tuf");
  app.set_version_flag("--version", targetProgramVersion());
  Arguments arguments;
  const auto option = [&](const char* name, std::string& value, const char* text) {
    return app.add_option(name, value, text);
  };
  option("--metadata-dir", arguments.metadataFolder, "Folder of the trusted metadata")->required();
  const auto url = option("--metadata-url", arguments.metadataUrl, "Where the metadata lies");
  const auto names =
      app.add_option("--target-name", arguments.names, "Path of a target; again for more")
          ->expected(1)
          ->allow_extra_args(false)  // else "[a,b]" would be two names
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  const auto targets = option("--target-dir", arguments.targetFolder, "Folder for the targets");
  const auto base = option("--target-base-url", arguments.targetUrl, "Where the targets lie");

  CLI::App* const initial = app.add_subcommand("init", "Trusts the root in a file");
  initial->add_option("ROOT", arguments.root, "The file")->required();
  initial->callback([&] { init(arguments); });
  CLI::App* const refresh = app.add_subcommand("refresh", "Brings the metadata up to date");
  refresh->needs(url);
  refresh->callback([&] { update(arguments, false); });
  CLI::App* const get = app.add_subcommand("download", "Refreshes, then gets the targets");
  for (CLI::Option* const needed : {url, names, targets, base}) get->needs(needed);
  get->callback([&] { update(arguments, true); });
  app.require_subcommand(1);
  CLI11_PARSE(app, argc, argv);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv) == 0 ? 0 : 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qd-tuf: %s\n", e.what());
    return 1;
  }
}
