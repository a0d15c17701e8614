// The routing socket of macOS, imitated on a netlink socket: the same requests, the same replies.

#include <linux/netlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/osal/Linux/netlink_route.h"
#include "osal/osal_deadline.h"
#include "osal/osal_hostnet.h"
#include "osal/osal_routemsg.h"

namespace {

/// Receives datagrams of the kernel until the answer is whole. Returns 0 or an errno value.
int receive(int socket, std::chrono::steady_clock::time_point deadline, NetlinkRoute& route) {
  std::vector<unsigned char> datagram(65536);
  while (!route.complete) {
    if (const int error = osal_waitToRead(socket, deadline); error != 0) return error;
    struct sockaddr_nl sender {};
    socklen_t length = sizeof sender;
    const ssize_t got = ::recvfrom(socket, datagram.data(), datagram.size(), MSG_DONTWAIT,
                                   reinterpret_cast<struct sockaddr*>(&sender), &length);
    if (got < 0 && errno != EINTR && errno != EAGAIN) return errno;
    if (got < 0 || sender.nl_pid != 0) continue;  // nothing came, or not from the kernel
    netlink_read(std::span(datagram).first(static_cast<std::size_t>(got)), route);
  }
  return 0;
}

/// Appends an address and its padding.
template <typename T>
void append(const T& address, std::size_t length, std::vector<unsigned char>& message) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&address);
  message.insert(message.end(), bytes, bytes + length);
  message.resize(message.size() +
                 (routemsg::paddedLength(static_cast<std::uint8_t>(length)) - length));
}

/// An interface with a name that may be longer than `Link` has room for.
struct LongLink {
  routemsg::Link link;
  char more[IF_NAMESIZE];
};

bool makeLink(std::uint32_t index, LongLink& interface) {
  char name[IF_NAMESIZE] = {};
  if (::if_indextoname(index, name) == nullptr) return false;
  const std::size_t nameLength = std::strlen(name);
  const std::size_t length =
      std::max(sizeof(routemsg::Link), routemsg::kLinkNameOffset + nameLength);
  interface = {};
  interface.link.sdl_len = static_cast<std::uint8_t>(length);
  interface.link.sdl_family = routemsg::kLinkFamily;
  interface.link.sdl_index = static_cast<std::uint16_t>(index);
  interface.link.sdl_nlen = static_cast<std::uint8_t>(nameLength);
  std::memcpy(reinterpret_cast<char*>(&interface) + routemsg::kLinkNameOffset, name, nameLength);
  return true;
}

routemsg::Inet makeInet(const std::array<unsigned char, 4>& address) {
  routemsg::Inet inet{};
  inet.sin_len = sizeof inet;
  inet.sin_family = routemsg::kInetFamily;
  std::memcpy(inet.sin_addr, address.data(), address.size());
  return inet;
}

/// Appends the addresses of the route in the order that the message has for them, and marks in the
/// header which of them are there.
void appendRoute(const NetlinkRoute& route, routemsg::Header& header,
                 std::vector<unsigned char>& message) {
  append(makeInet(route.destination), sizeof(routemsg::Inet), message);
  header.rtm_addrs |= routemsg::kHasDestination;
  if (route.gateway) {
    append(makeInet(*route.gateway), sizeof(routemsg::Inet), message);
    header.rtm_flags |= routemsg::kGateway;
    header.rtm_addrs |= routemsg::kHasGateway;
  }
  LongLink interface;
  if (makeLink(route.interface, interface)) {
    append(interface, interface.link.sdl_len, message);
    header.rtm_index = interface.link.sdl_index;
    header.rtm_addrs |= routemsg::kHasInterface;
  }
}

std::vector<unsigned char> makeReply(const NetlinkRoute& route) {
  routemsg::Header header{};
  header.rtm_version = routemsg::kVersion;
  header.rtm_type = routemsg::kGet;
  header.rtm_flags = routemsg::kUp | routemsg::kDone;
  header.rtm_pid = static_cast<std::int32_t>(::getpid());
  header.rtm_seq = static_cast<std::int32_t>(route.sequence);
  header.rtm_errno = route.error;
  std::vector<unsigned char> message(sizeof header);
  if (route.error == 0) appendRoute(route, header, message);
  header.rtm_msglen = static_cast<std::uint16_t>(message.size());
  std::memcpy(message.data(), &header, sizeof header);
  return message;
}

}  // namespace

int hostnet_openRoute(ScopedFd& socket) {
  ScopedFd opened(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!opened) return errno;
  socket = std::move(opened);
  return 0;
}

int hostnet_writeRoute(int socket, const void* request, std::size_t length) {
  routemsg::Header header;
  routemsg::Inet target;
  if (length < sizeof header + sizeof target) return EINVAL;
  std::memcpy(&header, request, sizeof header);
  std::memcpy(&target, static_cast<const unsigned char*>(request) + sizeof header, sizeof target);
  if (header.rtm_version != routemsg::kVersion || header.rtm_type != routemsg::kGet ||
      header.rtm_msglen != length || (header.rtm_addrs & routemsg::kHasDestination) == 0 ||
      target.sin_family != routemsg::kInetFamily) {
    return EINVAL;
  }
  NetlinkQuestion question;
  question.sequence = static_cast<std::uint32_t>(header.rtm_seq);
  std::array<unsigned char, 4> address;
  std::memcpy(address.data(), target.sin_addr, address.size());
  if (address != std::array<unsigned char, 4>{}) question.address = address;

  const std::vector<unsigned char> message = netlink_question(question);
  struct sockaddr_nl kernel {};
  kernel.nl_family = AF_NETLINK;
  const ssize_t sent = ::sendto(socket, message.data(), message.size(), 0,
                                reinterpret_cast<struct sockaddr*>(&kernel), sizeof kernel);
  if (sent < 0) return errno;
  return static_cast<std::size_t>(sent) == message.size() ? 0 : EMSGSIZE;
}

int hostnet_readRoute(int socket, std::chrono::steady_clock::time_point deadline, void* message,
                      std::size_t size, std::size_t* length) {
  NetlinkRoute route;
  if (const int error = receive(socket, deadline, route); error != 0) return error;
  const std::vector<unsigned char> reply = makeReply(route);
  *length = std::min(size, reply.size());
  std::memcpy(message, reply.data(), *length);
  return 0;
}
