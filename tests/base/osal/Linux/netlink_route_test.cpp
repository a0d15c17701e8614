#include "base/osal/Linux/netlink_route.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>

#include "base/osal/Linux/linkkind.h"

namespace {

using Address = std::array<unsigned char, 4>;

template <typename T>
std::string raw(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string attribute(unsigned short type, const std::string& value) {
  const rtattr prefix{static_cast<unsigned short>(sizeof prefix + value.size()), type};
  std::string text = raw(prefix) + value;
  text.resize(RTA_ALIGN(text.size()));
  return text;
}

std::string number(unsigned short type, std::uint32_t value) { return attribute(type, raw(value)); }

std::string message(unsigned short type, unsigned short flags, const std::string& body) {
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + body.size());
  header.nlmsg_type = type;
  header.nlmsg_flags = flags;
  header.nlmsg_seq = 9;
  return raw(header) + body;
}

std::string route(unsigned char prefixLength, const std::string& attributes,
                  unsigned short flags = NLM_F_MULTI, unsigned char type = RTN_UNICAST,
                  unsigned char table = RT_TABLE_MAIN) {
  rtmsg body{};
  body.rtm_family = AF_INET;
  body.rtm_dst_len = prefixLength;
  body.rtm_type = type;
  body.rtm_table = table;
  return message(RTM_NEWROUTE, flags, raw(body) + attributes);
}

NetlinkRoute read(const std::string& datagram) {
  NetlinkRoute result;
  netlink_read({reinterpret_cast<const unsigned char*>(datagram.data()), datagram.size()}, result);
  return result;
}

const std::string kDone = message(NLMSG_DONE, NLM_F_MULTI, std::string(4, '\0'));
const std::string kFirst = attribute(RTA_GATEWAY, "\xC0\x01\x02\x01");
const std::string kSecond = attribute(RTA_GATEWAY, "\xC0\x01\x02\x02");
constexpr Address kFirstAddress{0xC0, 1, 2, 1};
constexpr Address kSecondAddress{0xC0, 1, 2, 2};

TEST(NetlinkRoute, ReadsTheRouteToAHost) {
  const NetlinkRoute found =
      read(route(32, attribute(RTA_DST, "\xC6\x01\x02\x03") + number(RTA_OIF, 3) + kFirst, 0));
  EXPECT_TRUE(found.complete);
  EXPECT_EQ(found.error, 0);
  EXPECT_EQ(found.sequence, 9U);
  EXPECT_EQ(found.interface, 3U);
  EXPECT_EQ(found.gateway, kFirstAddress);
  EXPECT_EQ(found.destination, (Address{0xC6, 1, 2, 3}));
}

TEST(NetlinkRoute, TakesTheBestDefaultRouteOfAll) {
  const std::string worse = route(0, number(RTA_OIF, 2) + kFirst + number(RTA_PRIORITY, 600));
  const std::string better = route(0, number(RTA_OIF, 3) + kSecond + number(RTA_PRIORITY, 100));
  const std::string others = route(24, number(RTA_OIF, 4)) +
                             route(0, number(RTA_OIF, 5), NLM_F_MULTI, RTN_UNREACHABLE) +
                             route(0, number(RTA_OIF, 6), NLM_F_MULTI, RTN_UNICAST, 100);
  for (const std::string& datagram :
       {worse + better + others + kDone, others + better + worse + kDone}) {
    const NetlinkRoute found = read(datagram);
    EXPECT_TRUE(found.complete);
    EXPECT_EQ(found.error, 0);
    EXPECT_EQ(found.interface, 3U);
    EXPECT_EQ(found.gateway, kSecondAddress);
  }
  EXPECT_FALSE(read(worse).complete);
  EXPECT_EQ(read(others + kDone).error, ESRCH);
}

TEST(NetlinkRoute, TakesTheFirstOfSeveralPaths) {
  const auto hop = [](int interface, const std::string& attributes) {
    rtnexthop prefix{};
    prefix.rtnh_len = static_cast<unsigned short>(sizeof prefix + attributes.size());
    prefix.rtnh_ifindex = interface;
    return raw(prefix) + attributes;
  };
  const NetlinkRoute found =
      read(route(0, attribute(RTA_MULTIPATH, hop(7, kFirst) + hop(8, kSecond))) + kDone);
  EXPECT_EQ(found.interface, 7U);
  EXPECT_EQ(found.gateway, kFirstAddress);
}

TEST(NetlinkRoute, ReportsTheKernelsError) {
  const NetlinkRoute found = read(message(NLMSG_ERROR, 0, raw(-ENETUNREACH) + std::string(16, 0)));
  EXPECT_TRUE(found.complete);
  EXPECT_EQ(found.error, ENETUNREACH);
}

TEST(NetlinkRoute, ReadsNothingBehindTheEnd) {
  // The sanitizers look on: each prefix is a buffer of its own.
  const std::string whole = route(0, number(RTA_OIF, 2) + kFirst + number(RTA_PRIORITY, 600)) +
                            message(NLMSG_ERROR, 0, raw(-ENETUNREACH));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const std::vector<char> part(whole.begin(), whole.begin() + static_cast<long>(length));
    EXPECT_FALSE(read({part.begin(), part.end()}).complete) << length;
  }
}

TEST(LinkKind, FollowsHardwareAndDeviceType) {
  using enum HostInterfaceKind;
  constexpr struct {
    unsigned int hardware;
    const char* device;
    HostInterfaceKind kind;
  } kCases[] = {
      {ARPHRD_ETHER, "", Ethernet},
      {ARPHRD_ETHER, "wlan", Ieee80211},
      {ARPHRD_ETHER, "bond", Bond},
      {ARPHRD_ETHER, "bridge", Ethernet},
      {ARPHRD_ETHER, "bluetooth", Bluetooth},
      {ARPHRD_RAWIP, "wwan", Wwan},
      {ARPHRD_PPP, "ppp", Ppp},
      {ARPHRD_IEEE1394, "", FireWire},
      {ARPHRD_LOOPBACK, "", Other},
      {ARPHRD_NONE, "", Other},
      {ARPHRD_TUNNEL, "", Other},
      {0xFFFF, "", Other},
  };
  for (const auto& [hardware, device, kind] : kCases) {
    SCOPED_TRACE(std::to_string(hardware) + device);
    EXPECT_EQ(linkKind(hardware, device), kind);
  }
}

}  // namespace
