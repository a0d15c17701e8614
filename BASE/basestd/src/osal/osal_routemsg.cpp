#include "osal/osal_routemsg.h"

#include <cstring>

#if defined(__APPLE__)
#include <net/if_dl.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif

namespace routemsg {

#if defined(__APPLE__)
static_assert(sizeof(Header) == sizeof(rt_msghdr) && sizeof(Inet) == sizeof(sockaddr_in) &&
              sizeof(Link) == sizeof(sockaddr_dl));
static_assert(offsetof(Header, rtm_flags) == offsetof(rt_msghdr, rtm_flags) &&
              offsetof(Header, rtm_addrs) == offsetof(rt_msghdr, rtm_addrs) &&
              offsetof(Header, rtm_pid) == offsetof(rt_msghdr, rtm_pid) &&
              offsetof(Header, rtm_seq) == offsetof(rt_msghdr, rtm_seq) &&
              offsetof(Header, rtm_errno) == offsetof(rt_msghdr, rtm_errno) &&
              offsetof(Header, rtm_rmx) == offsetof(rt_msghdr, rtm_rmx));
static_assert(offsetof(Inet, sin_addr) == offsetof(sockaddr_in, sin_addr) &&
              offsetof(Link, sdl_nlen) == offsetof(sockaddr_dl, sdl_nlen) &&
              offsetof(Link, sdl_data) == offsetof(sockaddr_dl, sdl_data));
static_assert(kVersion == RTM_VERSION && kGet == RTM_GET && kUp == RTF_UP &&
              kGateway == RTF_GATEWAY && kHost == RTF_HOST && kDone == RTF_DONE &&
              kStatic == RTF_STATIC);
static_assert(kHasDestination == RTA_DST && kHasGateway == RTA_GATEWAY &&
              kHasInterface == RTA_IFP && kInetFamily == AF_INET && kLinkFamily == AF_LINK);
#endif

namespace {

template <typename T>
T readAt(std::span<const unsigned char> bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

/// Both take the address that starts the bytes, which has its own length and no more.
bool isInet(std::span<const unsigned char> address) {
  return address.size() >= sizeof(Inet) && readAt<Inet>(address, 0).sin_family == kInetFamily;
}

bool isLink(std::span<const unsigned char> address) {
  if (address.size() < sizeof(Link)) return false;
  const Link link = readAt<Link>(address, 0);
  return link.sdl_family == kLinkFamily && kLinkNameOffset + link.sdl_nlen <= address.size();
}

Fault headerFault(std::span<const unsigned char> message) {
  if (message.size() < sizeof(Header)) return Fault::Short;
  const Header header = readAt<Header>(message, 0);
  if (header.rtm_version != kVersion) return Fault::Version;
  if (header.rtm_msglen != message.size()) return Fault::Length;
  if (header.rtm_errno != 0) return Fault::Refused;
  return header.rtm_addrs == 0 ? Fault::NoAddresses : Fault::None;
}

}  // namespace

std::size_t buildRequest(const unsigned char* address, Buffer& buffer) {
  buffer = {};
  Inet target{};
  target.sin_len = sizeof target;
  target.sin_family = kInetFamily;
  if (address != nullptr) std::memcpy(target.sin_addr, address, sizeof target.sin_addr);
  Link interface {};
  interface.sdl_len = sizeof interface;
  interface.sdl_family = kLinkFamily;

  std::memcpy(buffer.addresses, &target, sizeof target);
  std::memcpy(buffer.addresses + sizeof target, &interface, sizeof interface);
  constexpr std::size_t kLength = sizeof(Header) + sizeof target + sizeof interface;
  buffer.header.rtm_msglen = kLength;
  buffer.header.rtm_version = kVersion;
  buffer.header.rtm_type = kGet;
  buffer.header.rtm_flags = kUp | kGateway | kHost | kStatic;
  buffer.header.rtm_addrs = kHasDestination | kHasInterface;
  buffer.header.rtm_seq = kSequence;
  return kLength;
}

bool answers(std::span<const unsigned char> message, std::int32_t pid) {
  if (message.size() < sizeof(Header)) return false;
  const Header header = readAt<Header>(message, 0);
  return header.rtm_seq == kSequence && header.rtm_pid == pid;
}

Reply parseReply(std::span<const unsigned char> message) {
  Reply reply;
  reply.fault = headerFault(message);
  if (reply.fault != Fault::None) return reply;

  const Header header = readAt<Header>(message, 0);
  auto left = static_cast<std::uint32_t>(header.rtm_addrs);
  std::size_t offset = sizeof(Header);
  for (std::uint32_t bit = 1; left != 0 && offset < message.size(); bit <<= 1) {
    if ((left & bit) == 0) continue;
    left &= ~bit;
    const std::uint8_t length = message[offset];
    if (length > message.size() - offset) break;
    const auto address = message.subspan(offset, length);
    if (bit == kHasGateway && (header.rtm_flags & kGateway) != 0 && isInet(address)) {
      reply.gateway = offset;
    }
    if (bit == kHasInterface && isLink(address)) reply.interface = offset;
    offset += paddedLength(length);
  }
  return reply;
}

}  // namespace routemsg
