#include "Scenario.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>

namespace {

std::string text(const std::vector<std::string>& lines) {
  std::string result;
  for (const std::string& line : lines) result += line + "\n";
  return result;
}

/// The lines seen beside the expected ones: names filled in, empty lines dropped.
void compare(const char* what, const std::vector<std::string>& seen,
             const std::optional<std::string>& expected, const Texts& texts) {
  if (!expected) return;
  std::vector<std::string> lines = splitLines(fillIn(*expected, texts));
  std::erase(lines, "");
  EXPECT_EQ(text(seen), text(lines)) << what;
}

std::vector<std::string> withoutProgress(std::vector<std::string> log) {
  std::erase_if(log, [](const auto& line) { return boost::starts_with(line, "NFY Loading "); });
  return log;
}

std::vector<std::string> requestLines(const ScriptedServer& server) {
  std::vector<std::string> lines;
  for (const auto& request : server.requests()) lines.push_back(request.line);
  return lines;
}

Script overlaid(Script script, const Script& changes) {
  for (const auto& [path, answers] : changes) script[path] = answers;
  return script;
}

/// The script with the names in its paths, headers and bodies filled in.
Script filled(const Script& script, const Texts& texts) {
  Script result;
  for (const auto& [path, answers] : script) {
    auto& filledAnswers = result[fillIn(path, texts)] = answers;
    for (Answer& answer : filledAnswers) {
      for (auto& [header, value] : answer.headers) value = fillIn(value, texts);
      for (const auto& [name, value] : texts) boost::replace_all(answer.body, name, value);
    }
  }
  return result;
}

}  // namespace

const std::string& goodPackage() {
  static const std::string kPackage = [] {
    std::string bytes;
    for (int i = 0; i < 20000; ++i) bytes += static_cast<char>(i * i % 251);
    return bytes;
  }();
  return kPackage;
}

const std::string& goodDigest() {
  static const std::string kDigest = md5Of(goodPackage());
  return kDigest;
}

std::string fillIn(const std::string& text, const Texts& texts) {
  std::string result = text;
  for (bool changed = true; changed;) {
    const std::string before = result;
    for (const auto& [name, value] : texts) boost::replace_all(result, name, value);
    changed = result != before;
  }
  return result;
}

Texts machineTexts() {
  utsname machine{};
  ::uname(&machine);
  const std::string name = machine.machine;
  if (name == "x86_64") {
    return {{"{M}", name},     {"{A}", "amd64"}, {"{Mac}", "amd64"},
            {"{Kesa}", "x64"}, {"{N}", "1"},     {"{Other}", "2"}};
  }
  if (name == "aarch64") {
    return {{"{M}", name},       {"{A}", "aarch64"}, {"{Mac}", "arm64"},
            {"{Kesa}", "ARM64"}, {"{N}", "2"},       {"{Other}", "1"}};
  }
  return {};
}

Script linuxServer() {
  return {{"/linux/{A}/version_long.txt", {ok("7.2.1.15\n")}},
          {"/linux/{A}/setup.deb", {ok(goodPackage())}},
          {"/linux/{A}/setup.deb.md5", {ok(goodDigest() + "  setup.deb\n")}}};
}

void check(const Scenario& scenario, const std::string& executable, const Script& good,
           Texts texts) {
  ScriptedServer server(filled(overlaid(good, scenario.script), texts));
  UpdateRun run(executable);
  for (const auto& [name, body] : scenario.commands) run.command(name, body);
  texts.insert({{"{S}", server.url()},
                {"{H}", hexAddress(server.url())},
                {"{T}", run.temp()},
                {"{V}", "7.2.0.1"},
                {"{D}", goodDigest()},
                {"{B}", std::to_string(goodPackage().size())},
                {"{blank}", " "}});
  if (scenario.prepare) scenario.prepare(run, texts);
  std::vector<std::string> args;
  for (const std::string& arg : scenario.args) args.push_back(fillIn(arg, texts));

  const Outcome outcome = run.run(args);

  EXPECT_EQ(outcome.ended, scenario.ended);
  compare("log", withoutProgress(outcome.log), scenario.log, texts);
  compare("requests", requestLines(server), scenario.requests, texts);
  compare("commands", outcome.calls, scenario.calls, texts);
  compare("files", outcome.files, scenario.files, texts);
  EXPECT_LE(server.connections(), scenario.connections) << "connections are used again";
  EXPECT_EQ(outcome.err.find("Log error"), std::string::npos) << outcome.err;
}

LinuxUpdate::LinuxUpdate(const Script& changes)
    : server(filled(overlaid(linuxServer(), changes), machineTexts())) {}

std::vector<std::string> LinuxUpdate::args(const std::string& option) const {
  std::vector<std::string> result = {hexAddress(server.url()), "7.2.0.1"};
  if (!option.empty()) result.insert(result.begin(), option);
  return result;
}

void expectUpdated(const Outcome& outcome, const UpdateRun& run) {
  const std::string package = run.temp("setup.deb");
  EXPECT_EQ(
      text({outcome.ended}) + text(outcome.calls),
      text({"exit 0", "systemctl stop qdagent", "dpkg -i " + package, "systemctl start qdagent"}))
      << text(outcome.log);
  EXPECT_TRUE(content(package) == goodPackage()) << "another package was installed";
}
