#include "qd-update/options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <sstream>

#include "Updater/config/settingValues.h"
#include "Updater/terms/UpdateResult.h"
#include "base/ground/target.h"

namespace {

/// "7d" ago, or a local date such as "2026-11-24", perhaps with a time, "2026-11-24 02:14".
std::optional<std::time_t> parseSince(const std::string& text, std::time_t now) {
  if (const auto ago = parseDuration(text)) return now - ago->count();
  for (const char* const format : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M"}) {
    std::tm local{};
    local.tm_isdst = -1;
    const char* const end = ::strptime(text.c_str(), format, &local);
    if (end == nullptr || *end != '\0') continue;
    const int day = local.tm_mday;
    const std::time_t time = std::mktime(&local);
    if (local.tm_mday == day) return time;  // "2026-02-31" is another day
  }
  return std::nullopt;
}

void addInstalled(CLI::App* command, Options& options) {
  command->add_option("--installed", options.installed,
                      "the version that is installed; else the package manager is asked");
}

void addJson(CLI::App* command, Options& options) {
  command->add_flag("--json", options.json, "print JSON");
}

CLI::App* addCommand(CLI::App& app, Options& options, Options::Command which, const char* name,
                     const char* purpose) {
  CLI::App* const command = app.add_subcommand(name, purpose);
  command->callback([&options, which] { options.command = which; });
  return command;
}

}  // namespace

OptionsRead readOptions(int argc, const char* const* argv, std::time_t now) {
  Options options;
  std::string since;
  CLI::App app("Keeps the backup agent up to date, as update.toml says.", "qd-update");
  app.set_version_flag("--version", std::string("qd-update ") + targetProgramVersion());
  app.require_subcommand(0, 1);  // an unknown one is named, where one that is missing is not
  app.failure_message(CLI::FailureMessage::simple);

  using enum Options::Command;
  CLI::App* const run = addCommand(app, options, Run, "run", "install an update, if there is one");
  addInstalled(run, options);
  addJson(run, options);
  run->add_flag("-q,--quiet", options.quiet, "print nothing but errors");
  run->add_flag("-v,--verbose", options.verbose, "print the log as well");

  CLI::App* const check =
      addCommand(app, options, Check, "check", "say what a run would do now; changes nothing");
  addInstalled(check, options);
  addJson(check, options);
  check->add_flag("-v,--verbose", options.verbose, "print the log as well");

  CLI::App* const status =
      addCommand(app, options, Status, "status", "say what became of the latest run");
  addJson(status, options);

  CLI::App* const history =
      addCommand(app, options, History, "history", "list the runs, newest last");
  addJson(history, options);
  history->add_option("-n", options.count, "at most so many runs")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}))
      ->capture_default_str();
  history->add_option("--since", since, "runs since then: 7d, 2026-11-24, \"2026-11-24 02:14\"");

  CLI::App* const trust =
      addCommand(app, options, Trust, "trust", "trust a root of signed releases");
  trust->add_option("ROOT", options.root, "the publisher's root, a JSON file")->required();
  trust->add_flag("--replace", options.replace, "forget what is trusted now");
  trust->add_flag("--yes", options.yes, "do not ask");

  CLI::App* const forgive =
      addCommand(app, options, Forgive, "forgive", "let a version be installed that ailed here");
  forgive->add_option("VERSION", options.forgiven, "as the records name it")->required();

  addCommand(app, options, Recover, "recover",
             "bring an update to an end that was cut off; timer and boot do that by themselves");

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
    if (!since.empty()) {
      const auto time = parseSince(since, now);
      if (!time) throw CLI::ValidationError("--since", "takes 7d, 2026-11-24 or such");
      options.since = *time;
    }
    return {.options = options, .text = {}, .status = 0};
  } catch (const CLI::ParseError& e) {
    std::ostringstream text;
    const bool isAsked = app.exit(e, text, text) == 0;
    return {.options = std::nullopt,
            .text = text.str(),
            .status = isAsked ? 0 : static_cast<int>(UpdateResult::Usage)};
  }
}
