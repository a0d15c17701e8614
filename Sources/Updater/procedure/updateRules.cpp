#include "Updater/procedure/updateRules.h"

#include <algorithm>
#include <limits>

namespace {

// The exact text of these commands is fixed, and with it the blanks and tabs before each name.
#define QD_DEB "             "
#define QD_RPM " \t\t\t"

#define QD_DEB_INSTALL                                                                         \
  " install -y" QD_DEB "libxrender1" QD_DEB "libxcb1" QD_DEB "libxcb-render0" QD_DEB           \
  "libxcb-render-util0" QD_DEB "libxcb-shape0" QD_DEB "libxcb-randr0" QD_DEB                   \
  "libxcb-xfixes0" QD_DEB "libxcb-xkb1" QD_DEB "libxcb-sync1" QD_DEB "libxcb-shm0" QD_DEB      \
  "libxcb-icccm4" QD_DEB "libxcb-keysyms1" QD_DEB "libxcb-image0" QD_DEB "libxcb-util1" QD_DEB \
  "libxcb-cursor0" QD_DEB "libxkbcommon0" QD_DEB "libxkbcommon-x11-0" QD_DEB                   \
  "libfontconfig1" QD_DEB "libfreetype6" QD_DEB "libxext6" QD_DEB "libx11-xcb1" QD_DEB         \
  "libsm6" QD_DEB "libice6"

constexpr const char* kInstallDeb = "apt-get" QD_DEB_INSTALL;
// Whoever gets the lock first, it waits.
constexpr const char* kInstallDebPatiently = "apt-get -o DPkg::Lock::Timeout=60" QD_DEB_INSTALL;

constexpr const char* kInstallRpm =
    "dnf install -y"  //
    QD_RPM "libXrender" QD_RPM "libxcb" QD_RPM "xcb-util" QD_RPM "xcb-util-keysyms" QD_RPM
    "xcb-util-image" QD_RPM "xcb-util-renderutil" QD_RPM "xcb-util-cursor" QD_RPM
    "xcb-util-wm" QD_RPM "libxkbcommon" QD_RPM "libxkbcommon-x11" QD_RPM "fontconfig" QD_RPM
    "freetype" QD_RPM "libXext" QD_RPM "libX11-xcb" QD_RPM "libSM" QD_RPM "libICE";

#undef QD_DEB
#undef QD_DEB_INSTALL
#undef QD_RPM

}  // namespace

std::optional<std::string> digestIn(const std::string& digestFile) {
  const std::size_t blank = digestFile.find(' ');
  if (blank == std::string::npos) return std::nullopt;
  return digestFile.substr(0, blank);
}

unsigned long long downloadLimit(unsigned long long expected) {
  constexpr unsigned long long kMost = std::numeric_limits<unsigned long long>::max();
  constexpr unsigned long long kSlack = 64ULL << 20;
  if (expected > kMost / 2) return kMost;
  return std::max(2 * expected, expected + kSlack);
}

bool needsXCBDeps(utils::AgentOS os, const Version& installed, const Version& available) {
  const Version since("7.2.0.0");
  return os == utils::OsLinux && installed <= since && since <= available;
}

XCBCommands xcbCommands(utils::AgentDistrib distrib, bool patiently) {
  switch (distrib) {
    case utils::DistribDeb:
      return {"dpkg -S libX11 > /dev/null 2>&1", patiently ? kInstallDebPatiently : kInstallDeb};
    case utils::DistribRpm:
      return {"rpm -q libX11 > /dev/null 2>&1", kInstallRpm};
    default:
      return {nullptr, nullptr};
  }
}
