// What Linux tells in texts and datagrams, and what is made of it.

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>

#include "Files.h"
#include "TempFolder.h"
#include "base/osal/Linux/keyfile.h"
#include "base/osal/Linux/netlink_route.h"

namespace {

TEST(Keyfile, FindsAValueAndUnquotesIt) {
  constexpr const char* kCases[][2] = {{"#KEY=1\n KEY=3\nKEYS=1\nKE=2\nKEY\n", "(none)"},
                                       {"OTHER=1\nKEY=12\nKEY=13\n", "12"},
                                       {"KEY=12 \r\n", "12"},
                                       {"KEY=\"a \\\"b\\\" \\$c \\\\\"\n", "a \"b\" $c \\"},
                                       {"KEY=\"open\n", "\"open"},
                                       {"KEY=\"end\\\"\n", "end\\"}};
  for (const auto& [text, value] : kCases) {
    EXPECT_EQ(keyfile_find(text, "KEY").value_or("(none)"), value) << text;
  }
  const TempFolder folder;
  const std::string path = folder / "file";
  std::string value = "before";
  EXPECT_EQ(keyfile_value(path.c_str(), "KEY", value), ENOENT);
  writeFile(path, "KEY=\"two words\"\n" + std::string(200000, '#'));
  EXPECT_EQ(keyfile_value(path.c_str(), "KEY", value), 0);
  EXPECT_EQ(value, "two words");
  EXPECT_EQ(keyfile_read(path.c_str(), value, 65537), 0);
  EXPECT_EQ(value.size(), 65537U);
}

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

/// Such an attribute. Several paths: the first is 192.1.2.1 through `interface`.
std::string paths(int interface, int tooLongBy = 0) {
  std::string hops;
  for (const char last : {'\1', '\2'}) {
    rtnexthop hop{};
    const std::string gateway = attribute(RTA_GATEWAY, std::string("\xC0\1\2") + last);
    hop.rtnh_len =
        static_cast<unsigned short>(static_cast<int>(sizeof hop + gateway.size()) + tooLongBy);
    hop.rtnh_ifindex = interface++;
    hops += raw(hop) + gateway;
  }
  return attribute(RTA_MULTIPATH, hops);
}

TEST(NetlinkRoute, TakesTheRouteThatCounts) {
  const std::string done = message(NLMSG_DONE, NLM_F_MULTI, std::string(4, '\0'));
  const std::string unreachable =
      message(NLMSG_ERROR, 0, raw(-ENETUNREACH) + std::string(16, '\0'));
  const std::string first = attribute(RTA_GATEWAY, "\xC0\1\2\1");
  const std::string second = attribute(RTA_GATEWAY, "\xC0\1\2\2");
  const std::string worse = route(0, number(RTA_OIF, 2) + first + number(RTA_PRIORITY, 600));
  const std::string better = route(0, number(RTA_OIF, 3) + second + number(RTA_PRIORITY, 100));
  const std::string others = route(24, number(RTA_OIF, 4)) +
                             route(0, number(RTA_OIF, 5), NLM_F_MULTI, RTN_UNREACHABLE) +
                             route(0, number(RTA_OIF, 6), NLM_F_MULTI, RTN_UNICAST, 100);
  const struct {
    std::string datagram;
    bool complete;
    int error;
    unsigned int interface;
    char lastOfGateway;  // 0: none
  } kCases[] = {
      {route(32, attribute(RTA_DST, "\xC6\1\2\3") + number(RTA_OIF, 3) + first, 0), true, 0, 3, 1},
      {worse + better + others + done, true, 0, 3, 2},
      {worse, false, 0, 2, 1},
      {others + done, true, ESRCH, 0, 0},
      {route(0, paths(7)) + done, true, 0, 7, 1},
      {route(0, paths(7, 1000)) + done, true, 0, 0, 0},
      {unreachable, true, ENETUNREACH, 0, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    NetlinkRoute found;
    const std::vector<unsigned char> datagram(c.datagram.begin(), c.datagram.end());
    netlink_read(datagram, found);
    EXPECT_EQ(found.complete, c.complete);
    EXPECT_EQ(found.error, c.error);
    EXPECT_EQ(found.sequence, 9U);
    EXPECT_EQ(found.interface, c.interface);
    EXPECT_EQ(found.gateway.value_or(Address{})[3], c.lastOfGateway);
    EXPECT_EQ(found.destination[3], &c == kCases ? 3 : 0);
  }
  // The sanitizers look on: each prefix is a buffer of its own.
  const std::string whole = worse + unreachable;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    NetlinkRoute found;
    const auto end = whole.begin() + static_cast<long>(length);
    netlink_read(std::vector<unsigned char>(whole.begin(), end), found);
    EXPECT_FALSE(found.complete) << length;
  }
}

}  // namespace
