#include "base/osal/osalsysinfo.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/ground/target.h"
#include "base/ground/tunablesValues.h"
#include "base/osal/osalnet.h"
#include "osal/osal_host.h"

namespace {

/// Bytes that a caller of `getsysinfo` has in each of its buffers.
constexpr std::size_t kAnswerSize = 1025;

constexpr unsigned int kSystemFlags = 0x300;
constexpr unsigned int kNasFlag = 0x40;

struct utsname kernel;  // of the latest question

/// Versions 10.0 to 10.20, by minor number.
constexpr struct {
  const char* system;
  const char* name;
} kTenReleases[] = {
    {"Mac OS X", " (Cheetah)"},      {"Mac OS X", " (Puma)"},     {"Mac OS X", " (Jaguar)"},
    {"Mac OS X", " (Panther)"},      {"Mac OS X", " (Tiger)"},    {"Mac OS X", " (Leopard)"},
    {"Mac OS X", " (Snow Leopard)"}, {"Mac OS X", " (Lion)"},     {"OS X", " (Mountain Lion)"},
    {"OS X", " (Mavericks)"},        {"OS X", " (Yosemite)"},     {"OS X", " (El Capitan)"},
    {"macOS", " (Sierra)"},          {"macOS", " (High Sierra)"}, {"macOS", " (Mojave)"},
    {"macOS", " (Catalina)"},        {"macOS", " (Big Sur)"},     {"macOS", " (Monterey)"},
    {"macOS", " (Ventura)"},         {"macOS", " (Sonoma)"},      {"macOS", " (Sequoia)"},
};

/// The first minor number that stands for a later major one: 10.16 is 11.
constexpr int kFirstCompatibility = 16;

std::string number(int n) { return std::to_string(n); }

std::string tenDescription(int minor, int patch) {
  constexpr int kKnown = static_cast<int>(std::size(kTenReleases));
  const char* system = minor < 0 ? "Mac OS X" : "macOS";
  const char* name = "";
  if (minor >= 0 && minor < kKnown) {
    system = kTenReleases[minor].system;
    name = kTenReleases[minor].name;
  }
  const std::string version =
      minor >= kFirstCompatibility ? number(minor - 5) : "10." + number(minor);
  return std::string(system) + " " + version + "." + number(patch) + name;
}

const char* releaseName(int major) {
  switch (major) {
    case 11:
      return "Big Sur";
    case 12:
      return "Monterey";
    case 13:
      return "Ventura";
    case 14:
      return "Sonoma";
    case 15:
      return "Sequoia";
    case 26:
      return "Tahoe";
    default:
      return nullptr;
  }
}

std::array<int, 3> productVersion() {
  std::array<int, 3> numbers{};
  std::string text;
  if (host_productVersion(text) != 0 || !osalsysinfo_parseVersion(text, numbers)) {
    host_productVersionNumbers(numbers);
  }
  return numbers;
}

}  // namespace

std::string osalsysinfo_macOS() {
  const auto [major, minor, patch] = productVersion();
  std::string text = osalsysinfo_macOSDescription(major, minor, patch);
  if (isEmulation()) text += " (Emulated)";
  return text;
}

std::string osalsysinfo_linux() {
  std::string text;
  if (host_productName(text) != 0 && ::uname(&kernel) == 0) text = kernel.sysname;
  return text;
}

std::string osalsysinfo_macOSDescription(int major, int minor, int patch) {
  if (major == 10) return tenDescription(minor, patch);
  const std::string version = "macOS " + number(major) + "." + number(minor);
  if (const char* const name = releaseName(major)) return version + " (" + name + ")";
  return version + "." + number(patch);
}

bool osalsysinfo_parseVersion(const std::string& text, std::array<int, 3>& numbers) {
  if (text.size() < 4 || text.size() > 8) return false;
  numbers = {};
  std::sscanf(text.c_str(), "%d.%d.%d", &numbers[0], &numbers[1], &numbers[2]);
  return true;
}

bool osalsysinfo_isArm64Kernel(const char* kernelVersion) {
  return std::strstr(kernelVersion, "ARM64") != nullptr ||
         std::strstr(kernelVersion, "arm64") != nullptr;
}

bool isEmulation() { return ::uname(&kernel) == 0 && osalsysinfo_isArm64Kernel(kernel.version); }

int getsysinfo(char* osText, char* archName, unsigned int* sysFlags) {
  *osText = '\0';
  *archName = '\0';
  *sysFlags = kSystemFlags | (QD_AGENT_NAS ? kNasFlag : 0);

  const bool linuxFamily = targetFamily() == TargetFamily::Linux;
  const std::string description = linuxFamily ? osalsysinfo_linux() : osalsysinfo_macOS();
  std::snprintf(osText, kAnswerSize, "%s", description.c_str());

  struct utsname machine {};
  const int result = ::uname(&machine);
  if (result != 0) return result;
  return std::snprintf(archName, kAnswerSize, "%s", machine.machine);
}
