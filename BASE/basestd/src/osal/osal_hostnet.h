#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "ground/osal_scoped.h"

// What only the operating system can answer about the network. As osal_host.h: each system has its
// own implementation, and every function returns 0 or an errno value and writes its outputs on
// success only.

/// Opens a socket for the messages of osal_routemsg.h.
int hostnet_openRoute(ScopedFd& socket);

/// Sends a request.
int hostnet_writeRoute(int socket, const void* request, std::size_t length);

/// Receives one message, which need not be the answer to the latest request, into the `size` bytes
/// of `message`; `*length` is what was written there. ETIMEDOUT: the deadline has passed, whatever
/// else arrived meanwhile.
int hostnet_readRoute(int socket, std::chrono::steady_clock::time_point deadline, void* message,
                      std::size_t size, std::size_t* length);

enum class HostInterfaceKind {
  Bluetooth,
  Ieee80211,
  Wwan,
  Bond,
  Ethernet,
  FireWire,
  Ppp,
  Other,
};

/// A network interface.
struct HostInterface {
  std::string name;
  HostInterfaceKind kind;
};

/// All that the system lists.
int hostnet_interfaces(std::vector<HostInterface>& interfaces);

/// A hardware address.
struct HostLinkAddress {
  std::string interface;
  std::array<unsigned char, 6> address;
};

/// All that have 6 bytes, in the system's order.
int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses);
