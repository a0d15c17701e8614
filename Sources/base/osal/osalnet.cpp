#include "base/osal/osalnet.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <span>

#include "ground/osal_bytes.h"
#include "ground/osal_process.h"
#include "logging/QDLog.h"

namespace {

constexpr std::size_t kTextSize = 1025;
constexpr int kAddressLength = 4;
constexpr std::chrono::milliseconds kReplyTimeout{5000};

void copyText(std::string_view text, char* buffer) {
  const std::size_t length = std::min(text.size(), kTextSize - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

void copyAddress(const unsigned char* address, char* buffer) {
  ::inet_ntop(AF_INET, address, buffer, kTextSize);
}

const unsigned char* firstAddress(const hostent& host) { return osal_bytes(host.h_addr_list[0]); }

std::int32_t ownPid() {
  unsigned int pid = 0;
  osal_getPid(&pid);
  return static_cast<std::int32_t>(pid);
}

std::span<const unsigned char> bytesOf(const _sockRequest_buff& buf, std::size_t length) {
  return {reinterpret_cast<const unsigned char*>(&buf), std::min(length, sizeof buf)};
}

/// Reads messages until one answers this process's request. Returns 0 or an errno value.
int readReply(int socket, _sockRequest_buff& buf, std::size_t& length) {
  const std::int32_t pid = ownPid();
  const auto deadline = std::chrono::steady_clock::now() + kReplyTimeout;
  for (;;) {
    const int error = hostnet_readRoute(socket, deadline, &buf, sizeof buf, &length);
    if (error != 0 || routemsg::answers(bytesOf(buf, length), pid)) return error;
  }
}

/// Logs what is wrong with a reply, if anything. Returns 0 or -1.
int checkReply(routemsg::Fault fault, const routemsg::Header& header, std::size_t length) {
  switch (fault) {
    case routemsg::Fault::None:
      return 0;
    case routemsg::Fault::Version:
      QDLOG(OSAL, ERR,
            "_sockRequest: error, socket read, bad version ("
                << static_cast<int>(header.rtm_version) << ")");
      return -1;
    case routemsg::Fault::Short:
    case routemsg::Fault::Length:
      QDLOG(OSAL, ERR,
            "_sockRequest: error, socket read, bad length (" << length << "B, should be "
                                                             << header.rtm_msglen << ")");
      return -1;
    case routemsg::Fault::Refused:
      QDLOG(OSAL, ERR, "_sockRequest: error, socket read (" << header.rtm_errno << ")");
      return -1;
    case routemsg::Fault::NoAddresses:
      break;
  }
  QDLOG(OSAL, ERR, "_sockRequest: error, socket read, no infos");
  return -1;
}

/// Sends the request in `buf` and receives the reply there. Returns 0, or -1 after logging.
int exchange(_sockRequest_buff& buf, std::size_t requestLength, std::size_t& replyLength) {
  ScopedFd socket;
  if (hostnet_openRoute(socket) != 0) {
    QDLOG(OSAL, ERR, "_sockRequest: error opening socket");
    return -1;
  }
  if (hostnet_writeRoute(socket.get(), &buf, requestLength) != 0) {
    QDLOG(OSAL, ERR, "_sockRequest: error writing in the socket");
    return -1;
  }
  if (readReply(socket.get(), buf, replyLength) != 0) {
    QDLOG(OSAL, ERR, "_sockRequest: error reading in the socket");
    return -1;
  }
  return 0;
}

/// Resolves a host's IPv4 address; null after logging.
hostent* resolve(const char* host) {
  hostent* const entry = ::gethostbyname(host);
  if (entry == nullptr || entry->h_addr_list[0] == nullptr) {
    const int error = h_errno;
    QDLOG(OSAL, ERR, "getnetpathinfo: error on gethostbyname (" << error << ")");
    return nullptr;
  }
  if (entry->h_length > kAddressLength) {
    QDLOG(OSAL, ERR, "getnetpathinfo: sin_addr too long (" << entry->h_length << ")");
    return nullptr;
  }
  return entry;
}

void describeGateway(const routemsg::Inet& gateway, char* name, char* address) {
  const hostent* const entry = ::gethostbyaddr(gateway.sin_addr, kAddressLength, AF_INET);
  if (entry != nullptr) copyText(entry->h_name, name);
  copyAddress(gateway.sin_addr, address);
  QDLOG(OSAL, DBG, "Gateway = " << address << " (" << (entry != nullptr ? name : "NULL") << ")");
}

void describeInterface(const routemsg::Link& interface, char* name, char* kind) {
  const char* const text = reinterpret_cast<const char*>(&interface) + routemsg::kLinkNameOffset;
  copyText({text, interface.sdl_nlen}, name);
  QDLOG(OSAL, DBG, "Interface = " << name);
  _getInterface(name, kind);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view firstPart(std::string_view name) { return name.substr(0, name.find('.')); }

}  // namespace

int getnetpathinfo(const char* host, char* hostAddress, char* gatewayName, char* gatewayAddress,
                   char* interfaceKind, char* reserved, char* interfaceName) {
  for (char* const output :
       {hostAddress, gatewayName, gatewayAddress, interfaceKind, reserved, interfaceName}) {
    *output = '\0';
  }
  hostent* const entry = resolve(host != nullptr ? host : "");
  if (entry == nullptr) return -1;
  copyAddress(firstAddress(*entry), hostAddress);

  _sockRequest_buff toHost;
  _sockRequest_buff byDefault;
  routemsg::Inet* gateway = nullptr;
  routemsg::Link* interface = nullptr;
  if (_sockRequest(entry, &toHost, &gateway, &interface) != 0) return -1;
  if (gateway == nullptr || interface == nullptr) {
    routemsg::Inet* defaultGateway = nullptr;
    routemsg::Link* defaultInterface = nullptr;
    if (_sockRequest(nullptr, &byDefault, &defaultGateway, &defaultInterface) != 0) return -1;
    if (gateway == nullptr) gateway = defaultGateway;
    if (interface == nullptr) interface = defaultInterface;
  }
  if (gateway != nullptr) describeGateway(*gateway, gatewayName, gatewayAddress);
  if (interface != nullptr) describeInterface(*interface, interfaceName, interfaceKind);
  return 0;
}

int _sockRequest(hostent* host, _sockRequest_buff* buf, routemsg::Inet** gateway,
                 routemsg::Link** interface) {
  if (host != nullptr && host->h_length > kAddressLength) {
    QDLOG(OSAL, ERR, "_sockRequest: sin_addr too long (" << host->h_length << ")");
    return -1;
  }
  const std::size_t requestLength =
      routemsg::buildRequest(host != nullptr ? firstAddress(*host) : nullptr, *buf);
  std::size_t length = 0;
  if (exchange(*buf, requestLength, length) != 0) return -1;

  const routemsg::Reply reply = routemsg::parseReply(bytesOf(*buf, length));
  if (checkReply(reply.fault, buf->header, length) != 0) return -1;
  auto* const bytes = reinterpret_cast<unsigned char*>(buf);
  if (reply.gateway) *gateway = reinterpret_cast<routemsg::Inet*>(bytes + *reply.gateway);
  if (reply.interface) *interface = reinterpret_cast<routemsg::Link*>(bytes + *reply.interface);
  return 0;
}

bool osalnet_isLoopbackName(std::string_view bsdName) {
  return bsdName.size() > 2 && bsdName.starts_with("lo") && bsdName[2] >= '0' && bsdName[2] <= '9';
}

std::string osalnet_interfaceKind(const std::string& bsdName,
                                  const std::vector<HostInterface>& interfaces) {
  if (osalnet_isLoopbackName(bsdName)) return "Loopback";
  const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                  [&](const HostInterface& i) { return i.name == bsdName; });
  switch (found != interfaces.end() ? found->kind : HostInterfaceKind::Other) {
    case HostInterfaceKind::Bluetooth:
    case HostInterfaceKind::Ieee80211:
    case HostInterfaceKind::Wwan:
      return "WiFi";
    case HostInterfaceKind::Bond:
    case HostInterfaceKind::Ethernet:
    case HostInterfaceKind::FireWire:
      return "Ethernet";
    case HostInterfaceKind::Ppp:
      return "PPP";
    case HostInterfaceKind::Other:
      break;
  }
  return bsdName;
}

int _getInterface(const char* bsdName, char* kind) {
  std::vector<HostInterface> interfaces;
  if (!osalnet_isLoopbackName(bsdName)) hostnet_interfaces(interfaces);
  copyText(osalnet_interfaceKind(bsdName, interfaces), kind);
  return 0;
}

bool isIPlocal(unsigned long address) { return ((address >> 24) & 0xFF) == 127; }

bool osalnet_isLocalOn(std::string_view machineName, std::string_view host) {
  return equalsIgnoringCase(firstPart(machineName), firstPart(host));
}

bool isHostLocal(const char* host) {
  if (host == nullptr) return false;
  const std::string_view name(host);
  if (name.starts_with("127.") || name == "::1" || equalsIgnoringCase(name, "localhost")) {
    return true;
  }
  char machineName[128] = {};
  if (::gethostname(machineName, sizeof machineName - 1) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "isHostLocal: error on gethostname (" << error << ")");
    return false;
  }
  return osalnet_isLocalOn(machineName, name);
}

bool getMACAddress(unsigned char* mac6) {
  if (mac6 == nullptr) return false;
  std::vector<HostLinkAddress> addresses;
  if (const int error = hostnet_linkAddresses(addresses); error != 0) {
    QDLOG(OSAL, ERR, "getMACAddress: error on getifaddrs (" << error << ")");
    return false;
  }
  bool found = false;
  for (const auto& [interface, address] : addresses) {
    const auto isAll = [&bytes = address](unsigned char value) {
      return std::all_of(bytes.begin(), bytes.end(), [=](unsigned char b) { return b == value; });
    };
    if (isAll(0x00) || isAll(0xFF)) continue;
    if (found && interface != "en0") continue;
    std::memcpy(mac6, address.data(), address.size());
    found = true;
  }
  return found;
}
