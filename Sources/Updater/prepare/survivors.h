#pragma once

#include <string>
#include <vector>

namespace utils {

/// A process besides this one among whose arguments one contains one of `texts`, such as the path
/// of a package that it installs: "dpkg (4711)"; empty when there is none. What a run started
/// outlives it, and whoever comes next waits for it. Where the system does not list its processes
/// in /proc, none is found.
std::string survivorWith(const std::vector<std::string>& texts);

}  // namespace utils
