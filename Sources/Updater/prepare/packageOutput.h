#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

// What is read from the answers of dpkg, apt and rpm.

namespace utils {

/// The line of a package manager's output that says why it refused; empty for an empty output.
std::string reasonIn(const std::vector<std::string>& output);

/// What is wrong with the plan that `apt-get --simulate install` printed: it must install `package`
/// and no other, and remove none. Empty when nothing is.
std::string planFault(const std::vector<std::string>& output, const std::string& package);

/// The value of a field in what `dpkg-deb --field` printed, "Name: value" a line; empty when it is
/// not there.
std::string fieldIn(const std::vector<std::string>& output, const std::string& name);

/// A package that is installed, or a name that one provides.
struct InstalledPackage {
  std::string name;
  std::string version;  ///< empty: a name provided without one
};

/// Reads lines of "state|package|version|what it provides"; those that are not installed are passed
/// over.
std::vector<InstalledPackage> readInstalledPackages(const std::vector<std::string>& output);

/// Whether two versions stand in the relation, one of "<<", "<=", "=", ">=" and ">>".
using VersionRelation = std::function<bool(const std::string& left, const std::string& relation,
                                           const std::string& right)>;

/// The first of the dependencies, as a Depends field names them, that `installed` does not meet.
std::optional<std::string> unmetDependency(const std::string& depends,
                                           const std::vector<InstalledPackage>& installed,
                                           const VersionRelation& holds);

}  // namespace utils
