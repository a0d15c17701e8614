#include "base/osal/Linux/netlink_route.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {

template <typename T>
std::optional<T> readAs(std::span<const unsigned char> bytes) {
  if (bytes.size() < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

/// Cuts the first of a row of length-prefixed, padded items off `rest`; empty when there is no
/// whole one.
template <typename Prefix>
std::span<const unsigned char> takeItem(std::span<const unsigned char>& rest, std::size_t length) {
  if (length < sizeof(Prefix) || length > rest.size()) {
    rest = {};
    return {};
  }
  const auto item = rest.first(length);
  rest = rest.subspan(std::min(rest.size(), std::size_t{RTA_ALIGN(length)}));
  return item;
}

struct Attributes {
  std::uint32_t interface = 0;
  std::uint32_t metric = 0;
  std::uint32_t table = 0;
  std::optional<std::array<unsigned char, 4>> gateway;
  std::array<unsigned char, 4> destination{};
};

void readAttributes(std::span<const unsigned char> rest, Attributes& attributes);

/// The first of several paths counts.
void readPaths(std::span<const unsigned char> paths, Attributes& attributes) {
  const auto hop = readAs<rtnexthop>(paths);
  if (!hop || hop->rtnh_len < sizeof *hop || hop->rtnh_len > paths.size()) return;
  attributes.interface = static_cast<std::uint32_t>(hop->rtnh_ifindex);
  readAttributes(paths.subspan(sizeof *hop, hop->rtnh_len - sizeof *hop), attributes);
}

void readAttributes(std::span<const unsigned char> rest, Attributes& attributes) {
  while (const auto prefix = readAs<rtattr>(rest)) {
    const auto item = takeItem<rtattr>(rest, prefix->rta_len);
    if (item.empty()) return;
    const auto value = item.subspan(sizeof(rtattr));
    switch (prefix->rta_type) {
      case RTA_DST:
        attributes.destination =
            readAs<std::array<unsigned char, 4>>(value).value_or(std::array<unsigned char, 4>{});
        break;
      case RTA_OIF:
        attributes.interface = readAs<std::uint32_t>(value).value_or(0);
        break;
      case RTA_PRIORITY:
        attributes.metric = readAs<std::uint32_t>(value).value_or(0);
        break;
      case RTA_TABLE:
        attributes.table = readAs<std::uint32_t>(value).value_or(0);
        break;
      case RTA_GATEWAY:
        attributes.gateway = readAs<std::array<unsigned char, 4>>(value);
        break;
      case RTA_MULTIPATH:
        readPaths(value, attributes);
        break;
      default:
        break;
    }
  }
}

void takeRoute(const Attributes& attributes, NetlinkRoute& route) {
  route.interface = attributes.interface;
  route.gateway = attributes.gateway;
  route.destination = attributes.destination;
}

/// One route of the answer: the answer itself, or one of all routes (`isListed`).
void readRoute(std::span<const unsigned char> body, bool isListed, NetlinkRoute& route) {
  const auto message = readAs<rtmsg>(body);
  if (!message) return;
  Attributes attributes;
  attributes.table = message->rtm_table;
  readAttributes(body.subspan(std::min(body.size(), std::size_t{NLMSG_ALIGN(sizeof(rtmsg))})),
                 attributes);
  if (!isListed) {
    takeRoute(attributes, route);
    route.complete = true;
    return;
  }
  if (message->rtm_family != AF_INET || message->rtm_dst_len != 0 ||
      message->rtm_type != RTN_UNICAST || attributes.table != RT_TABLE_MAIN) {
    return;
  }
  if (route.metric && *route.metric <= attributes.metric) return;
  takeRoute(attributes, route);
  route.metric = attributes.metric;
}

void readMessage(std::span<const unsigned char> message, NetlinkRoute& route) {
  const auto header = readAs<nlmsghdr>(message);
  if (!header) return;
  const auto body = message.subspan(std::min(message.size(), std::size_t{NLMSG_HDRLEN}));
  route.sequence = header->nlmsg_seq;
  switch (header->nlmsg_type) {
    case NLMSG_ERROR:
      route.error = -readAs<int>(body).value_or(-EBADMSG);
      route.complete = true;
      break;
    case NLMSG_DONE:
      if (!route.metric) route.error = ESRCH;
      route.complete = true;
      break;
    case RTM_NEWROUTE:
      readRoute(body, (header->nlmsg_flags & NLM_F_MULTI) != 0, route);
      break;
    default:
      break;
  }
}

}  // namespace

std::vector<unsigned char> netlink_question(const NetlinkQuestion& question) {
  struct {
    nlmsghdr header;
    rtmsg route;
    rtattr attribute;
    std::array<unsigned char, 4> address;
  } message{};
  static_assert(sizeof message == NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(rtmsg)) + RTA_LENGTH(4));
  message.header.nlmsg_len = sizeof message;
  message.header.nlmsg_type = RTM_GETROUTE;
  message.header.nlmsg_flags = NLM_F_REQUEST;
  message.header.nlmsg_seq = question.sequence;
  message.route.rtm_family = AF_INET;
  if (question.address) {
    message.route.rtm_dst_len = 32;
    message.attribute.rta_type = RTA_DST;
    message.attribute.rta_len = RTA_LENGTH(4);
    message.address = *question.address;
  } else {
    message.header.nlmsg_flags |= NLM_F_DUMP;
    message.header.nlmsg_len = offsetof(decltype(message), attribute);
  }
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&message);
  return {bytes, bytes + message.header.nlmsg_len};
}

void netlink_read(std::span<const unsigned char> datagram, NetlinkRoute& route) {
  while (const auto header = readAs<nlmsghdr>(datagram)) {
    const auto message = takeItem<nlmsghdr>(datagram, header->nlmsg_len);
    if (message.empty() || route.complete) return;
    readMessage(message, route);
  }
}
