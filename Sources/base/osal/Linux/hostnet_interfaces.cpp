#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "base/osal/Linux/keyfile.h"
#include "base/osal/Linux/linkkind.h"
#include "osal/osal_hostnet.h"

namespace {

HostInterfaceKind kindOf(const std::filesystem::path& folder) {
  std::string type;
  std::string deviceType;
  keyfile_read((folder / "type").c_str(), type);
  keyfile_value((folder / "uevent").c_str(), "DEVTYPE", deviceType);
  return linkKind(static_cast<unsigned int>(std::strtoul(type.c_str(), nullptr, 10)), deviceType);
}

struct FreeAddresses {
  void operator()(struct ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};

}  // namespace

HostInterfaceKind linkKind(unsigned int hardwareType, std::string_view deviceType) {
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
  std::error_code fault;
  std::filesystem::directory_iterator folders("/sys/class/net", fault);
  std::vector<HostInterface> found;
  for (const std::filesystem::directory_iterator none; !fault && folders != none;
       folders.increment(fault)) {
    found.push_back({folders->path().filename().string(), kindOf(folders->path())});
  }
  if (fault) return fault.value();
  interfaces = std::move(found);
  return 0;
}

int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  struct ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) return errno;
  const std::unique_ptr<struct ifaddrs, FreeAddresses> list(first);
  std::vector<HostLinkAddress> found;
  for (const struct ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET) continue;
    struct sockaddr_ll link {};
    std::memcpy(&link, entry->ifa_addr, sizeof link);
    HostLinkAddress address{entry->ifa_name, {}};
    if (link.sll_halen != address.address.size()) continue;
    std::memcpy(address.address.data(), link.sll_addr, address.address.size());
    found.push_back(address);
  }
  addresses = std::move(found);
  return 0;
}
