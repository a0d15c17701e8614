#include "qd-repo/options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "Updater/config/settingValues.h"
#include "base/ground/target.h"
#include "qd-repo/packageFacts.h"

namespace {

using Command = RepoOptions::Command;

/// An option whose text has a form of its own; `read` gives false for a text that has not.
template <typename Read>
CLI::Option* addRead(CLI::App* command, const char* name, const char* text, const char* form,
                     const Read& read) {
  const auto take = [read, name, form](const std::string& value) {
    if (!read(value)) throw CLI::ValidationError(name, std::string("takes ") + form);
  };
  return command->add_option_function<std::string>(name, take, text);
}

std::optional<Version> parseVersion(const std::string& text) {
  const Version version(text);
  return version.isValid() && versionText(version) == text ? std::optional(version) : std::nullopt;
}

/// The commands' arguments, each where it belongs.
class Arguments {
 public:
  Arguments(CLI::App& app, RepoOptions& options) : app_(app), options_(options) {
    addMaking();
    addReleasing();
    addKeeping();
    addShowing();
  }

 private:
  CLI::App* add(Command which, const char* name, const char* purpose) {
    CLI::App* const command = app_.add_subcommand(name, purpose);
    command->callback([this, which] { options_.command = which; });
    command->add_option("REPO", options_.repository, "folder of the repository")->required();
    return command;
  }

  CLI::App* addSigning(Command which, const char* name, const char* purpose) {
    CLI::App* const command = add(which, name, purpose);
    addKeys(command);
    return command;
  }

  void addKeys(CLI::App* command) {
    command->add_option("--passphrase-fd", options_.passphraseFd,
                        "read the keys' passphrase from this descriptor, not from the terminal");
    command->add_option("--keys", options_.keys,
                        "folder of the private keys; else the environment's QD_REPO_KEYS");
  }

  void addLives(CLI::App* command) {
    const auto read = [this](const std::string& text) {
      const std::size_t equals = text.find('=');
      const auto life = parseDuration(equals == text.npos ? "" : text.substr(equals + 1));
      const std::string role = text.substr(0, equals);
      const bool known =
          role == "root" || role == "targets" || role == "snapshot" || role == "timestamp";
      if (known && life && life->count() > 0) options_.lives[role] = *life;
      return known && life && life->count() > 0;
    };
    command
        ->add_option_function<std::vector<std::string>>(
            "--expires",
            [read](const std::vector<std::string>& texts) {
              if (!std::all_of(texts.begin(), texts.end(), read)) {
                throw CLI::ValidationError(
                    "--expires", "takes ROLE=DURATION of at most 3660d, such as root=365d");
              }
            },
            "how long a role's metadata holds: ROLE=DURATION")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  }

  void addVersion(CLI::App* command) {
    addRead(command, "VERSION", "of the release", "four numbers, such as 7.2.1.15",
            [this](const std::string& text) {
              options_.version = parseVersion(text);
              return options_.version.has_value();
            })
        ->required();
  }

  void addRamp(CLI::App* command, const char* channelOption) {
    addRead(command, channelOption, "channel of the release",
            "letters, digits, \".\", \"_\" and \"-\"",
            [this](const std::string& text) {
              options_.channel = parseName(text).value_or("");
              return !options_.channel.empty();
            })
        ->required();
    command->add_option("--percent", options_.percent, "share of the machines that get it")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    addRead(command, "--over", "time in which the share grows to --percent",
            "whole hours, at most 366 days, such as 24h", [this](const std::string& text) {
              constexpr std::chrono::hours kMost(24 * 366);
              const auto time = parseDuration(text);
              if (!time || time->count() % 3600 != 0 || *time > kMost) return false;
              options_.hours = static_cast<int>(time->count() / 3600);
              return true;
            });
    addRead(command, "--start", "when it begins; else now", "a time such as 2026-03-01T14:00:00Z",
            [this](const std::string& text) {
              options_.start = parseUtc(text);
              return options_.start.has_value();
            });
  }

  void addJson(CLI::App* command) { command->add_flag("--json", options_.json, "print JSON"); }

  void addMaking() {
    CLI::App* const init =
        addSigning(Command::Init, "init", "make keys, the first root and an empty repository");
    init->add_option("--threshold", options_.threshold, "how many root keys must sign")
        ->check(CLI::Range(1, 16));
    init->add_option("--root-keys", options_.rootKeys, "how many root keys to make")
        ->check(CLI::Range(1, 16));
    init->add_flag("--ecdsa", options_.ecdsa, "ECDSA P-256 keys in place of Ed25519");
    init->add_flag("--encrypt", options_.encrypt, "encrypt the keys of root and targets");
    addLives(init);
  }

  void addReleasing() {
    CLI::App* const publish = addSigning(Command::Publish, "publish", "add packages to a channel");
    publish->add_option("FILE", options_.files, "Debian or RPM package")->required();
    addRamp(publish, "--channel");
    addRead(publish, "--min-from", "an older installed version takes a step between",
            "four numbers, such as 7.2.1.15", [this](const std::string& text) {
              options_.minFrom = parseVersion(text);
              return options_.minFrom.has_value();
            });
    addRead(publish, "--arch", "architecture of a package that is for all",
            "amd64, arm64, x86 or arm", [this](const std::string& text) {
              options_.arch = packageArch(text);
              return options_.arch != utils::ArchUnknown;
            });
    publish->add_flag("!--no-rollback", options_.rollback,
                      "machines go neither back from it nor back to it");

    CLI::App* const promote =
        addSigning(Command::Promote, "promote", "give a release to a channel, or to more of it");
    addVersion(promote);
    addRamp(promote, "--to");
    addVersion(addSigning(Command::Halt, "halt", "let no further machine install a release"));
    addVersion(addSigning(Command::Resume, "resume", "take the halt back"));
  }

  void addKeeping() {
    CLI::App* const refresh = addSigning(Command::Refresh, "refresh",
                                         "sign timestamp and, in time, snapshot anew; from cron");
    refresh->add_flag("--targets", options_.targets, "the targets, too");

    CLI::App* const rotate = add(Command::Rotate, "rotate", "make a root with other keys");
    addKeys(rotate);
    rotate->add_option("ROLE", options_.role, "root, targets, snapshot or timestamp")->required();
    rotate->add_option("--add", options_.add, "file of a public key that is to sign from now on");
    rotate->add_option("--remove", options_.remove, "id of a key that is not to sign any more");
    rotate->add_option("--threshold", options_.threshold, "how many of the role's keys must sign")
        ->check(CLI::Range(1, 16));
    rotate->add_option("--out", options_.file,
                       "where the root waits for signatures; else N.root.json here");
    addLives(rotate);

    CLI::App* const sign =
        add(Command::Sign, "sign", "add signatures to a root that waits, and put it in place");
    sign->add_option("FILE", options_.file, "the root that rotate wrote")->required();
    sign->add_option("--key", options_.keyFile, "file of a private key");
    addKeys(sign);

    CLI::App* const prune =
        addSigning(Command::Prune, "prune", "drop old releases and what nobody can ask for");
    prune->add_option("--keep", options_.keep, "releases to keep, of a channel and platform")
        ->required()
        ->check(CLI::Range(1, 1000000));
    addRead(prune, "--grace", "keep what was replaced within this time; else 1d",
            "a time of at most 3660d, such as 2h", [this](const std::string& text) {
              const auto time = parseDuration(text);
              if (time) options_.grace = *time;
              return time.has_value();
            });
  }

  void addShowing() {
    CLI::App* const verify =
        add(Command::Verify, "verify", "check everything, in a folder or at an address");
    verify->add_option("--root", options_.file, "the root to trust; else the repository's first");
    addJson(verify);
    addJson(add(Command::Status, "status", "show channels, versions, shares and expiry"));
    CLI::App* const preview = add(Command::Preview, "preview", "show the curve of a ramp");
    addVersion(preview);
    preview->add_option("--channel", options_.channel, "else each of the release");
    preview->add_option("--svg", options_.file, "write the curve as a picture");
    addJson(preview);
  }

  CLI::App& app_;
  RepoOptions& options_;
};

}  // namespace

RepoOptionsRead readRepoOptions(int argc, const char* const* argv) {
  RepoOptions options;
  CLI::App app("Publishes releases of the backup agent as a folder of signed, static files.",
               "qd-repo");
  app.set_version_flag("--version", std::string("qd-repo ") + targetProgramVersion());
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return std::string("qd-repo: ") + e.what() + "; see qd-repo --help\n";
  });
  const Arguments arguments(app, options);
  try {
    app.parse(argc, argv);
    const char* const keys = std::getenv("QD_REPO_KEYS");
    if (options.keys.empty() && options.keyFile.empty() && keys != nullptr) options.keys = keys;
    return {.options = options, .text = {}, .status = 0};
  } catch (const CLI::ParseError& e) {
    std::ostringstream text;
    const bool isAsked = app.exit(e, text, text) == 0;
    return {.options = std::nullopt, .text = text.str(), .status = isAsked ? 0 : 1};
  }
}
