#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The kernel's own routing language, rtnetlink(7), as far as the question "how is this host
// reached" needs it. Pure functions over bytes.

/// A question: an address, or none for the default route.
struct NetlinkQuestion {
  std::optional<std::array<unsigned char, 4>> address;
  std::uint32_t sequence = 0;
};

/// The kernel's answer, as far as it has come.
struct NetlinkRoute {
  bool complete = false;
  int error = 0;  ///< an errno value: there is no such route
  std::uint32_t sequence = 0;
  std::uint32_t interface = 0;                 ///< its index
  std::array<unsigned char, 4> destination{};  ///< all zero for the default route
  std::optional<std::array<unsigned char, 4>> gateway;
  std::optional<std::uint32_t> metric;  ///< of the best default route so far
};

/// The message that asks. The kernel takes the address 0.0.0.0 for this machine, so the question
/// for the default route is a question for all routes.
std::vector<unsigned char> netlink_question(const NetlinkQuestion& question);

/// Adds one datagram of the kernel's answer to `route`.
void netlink_read(std::span<const unsigned char> datagram, NetlinkRoute& route);
