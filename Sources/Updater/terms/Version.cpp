#include "Updater/terms/Version.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <tuple>

namespace {

/// Reads one number as scanf's %d does and moves `text` behind it; empty when there is none or it
/// does not fit.
std::optional<int> scanNumber(const char*& text) {
  char* end = nullptr;
  errno = 0;
  const long long number = std::strtoll(text, &end, 10);
  if (end == text || errno == ERANGE || number < std::numeric_limits<int>::min() ||
      number > std::numeric_limits<int>::max()) {
    return std::nullopt;
  }
  text = end;
  return static_cast<int>(number);
}

}  // namespace

Version::Version(const std::string& text) {
  int numbers[4];
  const char* rest = text.c_str();
  for (int i = 0; i < 4; ++i) {
    if (i > 0 && *rest++ != '.') return;
    const std::optional<int> number = scanNumber(rest);
    if (!number) return;
    numbers[i] = std::max(*number, -1);
  }
  major = numbers[0];
  minor = numbers[1];
  patch = numbers[2];
  build = numbers[3];
}

bool Version::isValid() const { return !(*this == Version()); }

void Version::print(std::ostringstream& out) const { out << versionText(*this); }

std::string versionText(const Version& version) {
  return std::to_string(version.major) + '.' + std::to_string(version.minor) + '.' +
         std::to_string(version.patch) + '.' + std::to_string(version.build);
}

bool operator==(const Version& a, const Version& b) { return !(a < b) && !(b < a); }

bool operator<(const Version& a, const Version& b) {
  return std::tie(a.major, a.minor, a.patch, a.build) <
         std::tie(b.major, b.minor, b.patch, b.build);
}

bool operator<=(const Version& a, const Version& b) { return !(b < a); }
