#include "Updater/prepare/rehearsal.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>

#include "Updater/command/childRun.h"
#include "Updater/prepare/packageOutput.h"
#include "logging/QDLog.h"

namespace utils {

namespace {

constexpr std::chrono::hours kCompletionLimit{3};
constexpr unsigned long long kKiB = 1024;

unsigned long long number(const std::string& text) {
  return std::strtoull(text.c_str(), nullptr, 10);
}

/// What dpkg itself does not look at, where there is no apt.
std::string missingDependency(const PackageFacts& facts) {
  const CommandAnswer known = ask({"dpkg-query", "--show", "--showformat",
                                   "${db:Status-Status}|${Package}|${Version}|${Provides}\\n"},
                                  false);
  const auto holds = [](const std::string& left, const std::string& relation,
                        const std::string& right) {
    return ask({"dpkg", "--compare-versions", left, relation, right}, false).status == 0;
  };
  const auto unmet = unmetDependency(facts.depends, readInstalledPackages(known.lines), holds);
  return unmet ? "Depends: " + *unmet + ", which is not installed" : "";
}

std::string why(const CommandAnswer& answer, const std::string& command) {
  if (answer.missing) return command + " could not be started";
  const std::string reason = reasonIn(answer.lines);
  return reason.empty() ? command + " ended with " + std::to_string(answer.status) : reason;
}

std::string rehearseDeb(const std::string& path, const PackageFacts& facts,
                        const StopWish& cancelled) {
  const CommandAnswer unpacked = ask({"dpkg", "--no-act", "-i", path}, true, cancelled);
  if (unpacked.status != 0) return why(unpacked, "dpkg");
  const CommandAnswer plan = ask({"apt-get", "-q", "--simulate", "--no-install-recommends",
                                  "--allow-downgrades", "install", path},
                                 true, cancelled);
  if (plan.missing) return missingDependency(facts);
  if (plan.status != 0) return why(plan, "apt-get");
  return planFault(plan.lines, kAgentPackage);
}

}  // namespace

CommandAnswer ask(const std::vector<std::string>& words, bool logged, const StopWish& cancelled,
                  std::chrono::seconds limit) {
  CommandAnswer answer;
  ChildRun run;
  run.program = words.front();
  run.arguments.assign(words.begin() + 1, words.end());
  run.environment = {{"LC_ALL", "C"}};
  run.limit = limit;
  run.cancelled = cancelled;
  run.onLine = [&](const std::string& line) {
    const std::string shown = line.substr(line.rfind('\r') + 1);
    if (logged) QDLOG(ROOT, NFY, shown);
    answer.lines.push_back(shown);
  };
  const ChildEnd end = runChild(run);
  answer.missing = end.how == ChildEnd::How::NotStarted;
  if (end.how == ChildEnd::How::Exited) answer.status = end.status;
  return answer;
}

PackageFacts readPackageFacts(AgentDistrib distrib, const std::string& path) {
  if (distrib == DistribRpm) {
    const auto lines = ask({"rpm", "-qp", "--nosignature", "--queryformat",
                            "Package: %{NAME}\\nVersion: %{VERSION}\\nSize: %{LONGSIZE}\\n", path},
                           false)
                           .lines;
    return {fieldIn(lines, "Package"), fieldIn(lines, "Version"), number(fieldIn(lines, "Size")),
            ""};
  }
  const auto lines = ask({"dpkg-deb", "--field", path, "Package", "Version", "Installed-Size",
                          "Pre-Depends", "Depends"},
                         false)
                         .lines;
  return {fieldIn(lines, "Package"), fieldIn(lines, "Version"),
          number(fieldIn(lines, "Installed-Size")) * kKiB,
          fieldIn(lines, "Pre-Depends") + "," + fieldIn(lines, "Depends")};
}

std::string identityFault(const PackageFacts& facts, const Version& wanted) {
  if (facts.name.empty() || facts.version.empty()) return {};
  if (facts.name == kAgentPackage && Version(facts.version) == wanted) return {};
  return "the package is " + facts.name + " " + facts.version + ", not " + kAgentPackage + " " +
         versionText(wanted);
}

std::string rehearse(AgentDistrib distrib, const std::string& path, const PackageFacts& facts,
                     const StopWish& cancelled) {
  if (distrib == DistribDeb) return rehearseDeb(path, facts, cancelled);
  if (distrib != DistribRpm) return {};
  const CommandAnswer answer = ask({"rpm", "-U", "--test", path}, true, cancelled);
  return answer.status == 0 ? "" : why(answer, "rpm");
}

bool isHalfDone(AgentDistrib distrib) {
  if (distrib != DistribDeb) return false;
  // dpkg's journal has a file for each step that its database does not show yet.
  boost::system::error_code failed;
  const boost::filesystem::path journal = "/var/lib/dpkg/updates";
  if (boost::filesystem::directory_iterator(journal, failed) !=
      boost::filesystem::directory_iterator()) {
    return true;
  }
  const auto states =
      ask({"dpkg-query", "--show", "--showformat=${db:Status-Status}\\n"}, false).lines;
  for (const std::string& state : states) {
    if (state == "unpacked" || state == "half-configured" || boost::starts_with(state, "triggers-"))
      return true;
  }
  return false;
}

bool completeHalfDone() {
  return ask({"dpkg", "--configure", "-a"}, true, {}, kCompletionLimit).status == 0;
}

}  // namespace utils
