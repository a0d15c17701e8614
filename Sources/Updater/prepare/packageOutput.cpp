#include "Updater/prepare/packageOutput.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <string_view>

namespace utils {

namespace {

/// A name with its relation to a version, if it has one: "libc6:any (>= 2.36)".
struct Dependency {
  std::string name;
  std::string relation;
  std::string version;
};

std::vector<std::string> parts(const std::string& text, char separator) {
  std::vector<std::string> found;
  boost::split(found, text, [separator](char c) { return c == separator; });
  for (std::string& part : found) boost::trim(part);
  std::erase(found, "");
  return found;
}

Dependency readDependency(const std::string& text) {
  Dependency read;
  read.name = text.substr(0, text.find_first_of(" :(["));
  const std::size_t open = text.find('(');
  const std::size_t close = text.find(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return read;
  const std::string inner = boost::trim_copy(text.substr(open + 1, close - open - 1));
  const std::size_t end = inner.find_first_not_of("<>=");
  if (end == std::string::npos) return read;
  read.relation = inner.substr(0, end);
  read.version = boost::trim_copy(inner.substr(end));
  return read;
}

bool meets(const InstalledPackage& package, const Dependency& wanted,
           const VersionRelation& holds) {
  if (package.name != wanted.name) return false;
  if (wanted.relation.empty()) return true;
  return !package.version.empty() && holds(package.version, wanted.relation, wanted.version);
}

}  // namespace

std::string reasonIn(const std::vector<std::string>& output) {
  static constexpr std::array<std::string_view, 5> kReasons = {
      "Depends: ", " conflicts with ", " is needed by ", " script subprocess returned error",
      "scriptlet failed"};
  std::string last;
  for (const std::string& line : output) {
    std::string text = boost::trim_copy(line);
    const bool isReason = std::ranges::any_of(kReasons, [&text](std::string_view reason) {
      return text.find(reason) != std::string::npos;
    });
    if (isReason) return text;
    // What follows names the packages once more, and no reason.
    if (text.starts_with("Errors were encountered while processing")) break;
    if (!text.empty()) last = text;
  }
  return last;
}

std::string planFault(const std::vector<std::string>& output, const std::string& package) {
  bool planned = false;
  for (const std::string& line : output) {
    std::vector<std::string> words = parts(line, ' ');
    if (words.size() < 2 || (words[0] != "Inst" && words[0] != "Remv" && words[0] != "Purg")) {
      continue;
    }
    const std::string name = words[1].substr(0, words[1].find(':'));
    if (words[0] != "Inst") return "it would remove " + name;
    if (name != package) return "it would install " + name + ", too";
    planned = true;
  }
  return planned ? "" : "the package is not in the plan";
}

std::string fieldIn(const std::vector<std::string>& output, const std::string& name) {
  for (const std::string& line : output) {
    if (line.starts_with(name + ":")) return boost::trim_copy(line.substr(name.size() + 1));
  }
  return {};
}

std::vector<InstalledPackage> readInstalledPackages(const std::vector<std::string>& output) {
  std::vector<InstalledPackage> packages;
  for (const std::string& line : output) {
    std::vector<std::string> fields;
    boost::split(fields, line, [](char c) { return c == '|'; });
    if (fields.size() != 4 || fields[0] != "installed") continue;
    packages.push_back({fields[1], fields[2]});
    for (const std::string& provided : parts(fields[3], ',')) {
      const Dependency name = readDependency(provided);
      packages.push_back({name.name, name.version});
    }
  }
  return packages;
}

std::optional<std::string> unmetDependency(const std::string& depends,
                                           const std::vector<InstalledPackage>& installed,
                                           const VersionRelation& holds) {
  for (const std::string& dependency : parts(depends, ',')) {
    const std::vector<std::string> choices = parts(dependency, '|');
    const bool met = std::ranges::any_of(choices, [&](const std::string& choice) {
      const Dependency wanted = readDependency(choice);
      return std::ranges::any_of(installed, [&](const InstalledPackage& package) {
        return meets(package, wanted, holds);
      });
    });
    if (!met) return dependency;
  }
  return std::nullopt;
}

}  // namespace utils
