#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <ifaddrs.h>
#include <net/if_dl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

#include "base/osal/MacOS/cftext.h"
#include "osal/osal_hostnet.h"

namespace {

constexpr std::size_t kNameSize = 1025;

HostInterfaceKind kindOf(CFStringRef type) {
  const std::pair<CFStringRef, HostInterfaceKind> kKinds[] = {
      {kSCNetworkInterfaceTypeBluetooth, HostInterfaceKind::Bluetooth},
      {kSCNetworkInterfaceTypeIEEE80211, HostInterfaceKind::Ieee80211},
      {kSCNetworkInterfaceTypeWWAN, HostInterfaceKind::Wwan},
      {kSCNetworkInterfaceTypeBond, HostInterfaceKind::Bond},
      {kSCNetworkInterfaceTypeEthernet, HostInterfaceKind::Ethernet},
      {kSCNetworkInterfaceTypeFireWire, HostInterfaceKind::FireWire},
      {kSCNetworkInterfaceTypePPP, HostInterfaceKind::Ppp},
  };
  for (const auto& [name, kind] : kKinds) {
    if (type != nullptr && CFEqual(type, name)) return kind;
  }
  return HostInterfaceKind::Other;
}

struct FreeAddresses {
  void operator()(struct ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};

/// The hardware address of a link-layer entry. Returns false when it is not one of 6 bytes, or not
/// wholly there.
bool readLink(const struct sockaddr* entry, std::array<unsigned char, 6>& address) {
  constexpr std::size_t kData = offsetof(struct sockaddr_dl, sdl_data);
  if (entry == nullptr || entry->sa_family != AF_LINK || entry->sa_len < kData) return false;
  struct sockaddr_dl link {};
  std::memcpy(&link, entry, kData);
  const std::size_t start = kData + link.sdl_nlen;
  if (link.sdl_alen != address.size() || start + address.size() > link.sdl_len) return false;
  std::memcpy(address.data(), reinterpret_cast<const unsigned char*>(entry) + start,
              address.size());
  return true;
}

}  // namespace

int hostnet_interfaces(std::vector<HostInterface>& interfaces) {
  const CfPtr<CFArrayRef> list(SCNetworkInterfaceCopyAll());
  if (!list) return ENOENT;
  std::vector<HostInterface> found;
  for (CFIndex i = 0; i < CFArrayGetCount(list.get()); ++i) {
    const auto interface =
        static_cast<SCNetworkInterfaceRef>(CFArrayGetValueAtIndex(list.get(), i));
    const CFStringRef bsdName = SCNetworkInterfaceGetBSDName(interface);
    HostInterface entry{};
    if (bsdName == nullptr || !cftext_toUtf8(bsdName, kNameSize, entry.name)) continue;
    entry.kind = kindOf(SCNetworkInterfaceGetInterfaceType(interface));
    found.push_back(entry);
  }
  interfaces = std::move(found);
  return 0;
}

int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  struct ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) return errno;
  const std::unique_ptr<struct ifaddrs, FreeAddresses> list(first);
  std::vector<HostLinkAddress> found;
  for (const struct ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    HostLinkAddress address{entry->ifa_name, {}};
    if (readLink(entry->ifa_addr, address.address)) found.push_back(address);
  }
  addresses = std::move(found);
  return 0;
}
