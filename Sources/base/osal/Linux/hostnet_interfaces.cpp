#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "base/osal/Linux/keyfile.h"
#include "base/osal/Linux/linkkind.h"
#include "osal/osal_hostnet.h"

namespace {

struct FreeAddresses {
  void operator()(struct ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};

/// Calls `take` with the name and the link-layer address of each interface. Returns 0 or an errno
/// value.
template <typename Take>
int forEachLink(Take take) {
  struct ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) return errno;
  const std::unique_ptr<struct ifaddrs, FreeAddresses> list(first);
  for (const struct ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET) continue;
    struct sockaddr_ll link {};
    std::memcpy(&link, entry->ifa_addr, sizeof link);
    take(entry->ifa_name, link);
  }
  return 0;
}

}  // namespace

HostInterfaceKind linkkind_of(unsigned int hardwareType, std::string_view deviceType) {
  if (deviceType == "bluetooth") return HostInterfaceKind::Bluetooth;
  if (deviceType == "wlan") return HostInterfaceKind::Ieee80211;
  if (deviceType == "wwan") return HostInterfaceKind::Wwan;
  if (deviceType == "bond") return HostInterfaceKind::Bond;
  switch (hardwareType) {
    case ARPHRD_ETHER:
      return HostInterfaceKind::Ethernet;
    case ARPHRD_IEEE1394:
      return HostInterfaceKind::FireWire;
    case ARPHRD_IEEE80211:
      return HostInterfaceKind::Ieee80211;
    case ARPHRD_PPP:
      return HostInterfaceKind::Ppp;
    default:
      return HostInterfaceKind::Other;
  }
}

int hostnet_interfaces(std::vector<HostInterface>& interfaces) {
  // The folders of /sys are no guide: they may be those of another network namespace.
  std::vector<HostInterface> found;
  const int error = forEachLink([&](const char* name, const struct sockaddr_ll& link) {
    std::string deviceType;
    keyfile_value((std::string("/sys/class/net/") + name + "/uevent").c_str(), "DEVTYPE",
                  deviceType);
    found.push_back({name, linkkind_of(link.sll_hatype, deviceType)});
  });
  if (error == 0) interfaces = std::move(found);
  return error;
}

int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  std::vector<HostLinkAddress> found;
  const int error = forEachLink([&](const char* name, const struct sockaddr_ll& link) {
    HostLinkAddress address{name, {}};
    if (link.sll_halen != address.address.size()) return;
    std::memcpy(address.address.data(), link.sll_addr, address.address.size());
    found.push_back(address);
  });
  if (error == 0) addresses = std::move(found);
  return error;
}
