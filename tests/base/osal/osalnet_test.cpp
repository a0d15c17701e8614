// Routing messages, and what is made of them on a network that answers what the test wants.

#include "base/osal/osalnet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>

#include "HostFake.h"
#include "Said.h"
#include "osal/osal_routemsg.h"

namespace {

using routemsg::Fault;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

const std::string kHost("\xC0\0\x02\x07", 4);
const std::string kGateway("\x7F\0\0\x01", 4);  // whose name is looked up on this machine
constexpr std::size_t kStart = sizeof(routemsg::Header);

/// A routing reply put together piece by piece. The header is right until a test changes it.
struct RouteReply {
  RouteReply() {
    header.rtm_version = routemsg::kVersion;
    header.rtm_type = routemsg::kGet;
    header.rtm_flags = routemsg::kUp | routemsg::kGateway;
    header.rtm_pid = static_cast<int>(::getpid());
    header.rtm_seq = routemsg::kSequence;
  }

  /// Appends an address of any bytes, whose first is its length, and its padding.
  RouteReply& add(int bit, const std::string& address) {
    header.rtm_addrs |= bit;
    addresses += address;
    addresses.resize(addresses.size() +
                     routemsg::paddedLength(static_cast<std::uint8_t>(address.size())) -
                     address.size());
    return *this;
  }
  RouteReply& addInet(int bit, const std::string& fourBytes) {
    return add(bit, std::string("\x10\x02\0\0", 4) + fourBytes + std::string(8, '\0'));
  }
  RouteReply& addLink(const std::string& name) {
    std::string link = std::string(8, '\0') + name;
    if (link.size() < sizeof(routemsg::Link)) link.resize(sizeof(routemsg::Link));
    link[0] = static_cast<char>(link.size());
    link[1] = static_cast<char>(routemsg::kLinkFamily);
    link[5] = static_cast<char>(name.size());
    return add(routemsg::kHasInterface, link);
  }

  [[nodiscard]] std::string bytes() const {
    routemsg::Header complete = header;
    complete.rtm_msglen = static_cast<std::uint16_t>(kStart + addresses.size() + lengthError);
    std::string message(kStart, '\0');
    std::memcpy(message.data(), &complete, kStart);
    return message + addresses;
  }

  routemsg::Header header{};
  std::string addresses;
  std::size_t lengthError = 0;  ///< what the header's length is too large by
};

routemsg::Reply parse(const std::string& message) {
  return routemsg::parseReply(
      {reinterpret_cast<const unsigned char*>(message.data()), message.size()});
}

TEST(RouteMessage, AsksForAHostAndItsInterface) {
  routemsg::Buffer buffer;
  std::memset(&buffer, 0xEE, sizeof buffer);
  ASSERT_EQ(routemsg::buildRequest(reinterpret_cast<const unsigned char*>(kHost.data()), buffer),
            128U);
  std::string expected("\x80\0\x05\x04\0\0\0\0\x07\x08\0\0\x11\0\0\0\0\0\0\0\x01\0\0\0", 24);
  expected.resize(kStart);
  expected += std::string("\x10\x02\0\0", 4) + kHost + std::string(8, '\0') + "\x14\x12";
  expected.resize(sizeof buffer);
  EXPECT_EQ(std::memcmp(&buffer, expected.data(), expected.size()), 0);
}

TEST(RouteMessage, FindsGatewayAndInterfaceAndTrustsNoLength) {
  const auto none = std::nullopt;
  const auto reply = [] { return RouteReply(); };
  const auto withByte = [](RouteReply other, std::size_t offset, int value) {
    other.addresses[offset] = static_cast<char>(value);
    return other;
  };
  const RouteReply toGateway = reply().addInet(2, kGateway);
  const RouteReply toInterface = reply().addLink("en0");
  RouteReply direct = toGateway;
  direct.header.rtm_flags = routemsg::kUp;
  const struct {
    const char* what;
    RouteReply reply;
    std::optional<std::size_t> gateway;
    std::optional<std::size_t> interface;
  } kCases[] = {
      {"both", reply().addInet(1, kHost).addInet(2, kGateway).addLink("en0"), kStart + 16,
       kStart + 32},
      {"a mask without bytes takes four",
       reply().addInet(2, kGateway).add(4, std::string(1, '\0')).addLink("en0"), kStart,
       kStart + 20},
      {"a padded mask", reply().add(4, std::string("\x07\0\0\0\xFF\xFF\xFF", 7)).addLink("en0"),
       none, kStart + 8},
      {"a long name", reply().addLink("a-name-of-21-bytes-xx"), none, kStart},
      {"what follows the interface", reply().addLink("en0").addInet(0x20, kHost), none, kStart},
      {"a link-layer gateway", reply().add(2, std::string("\x14\x12", 2) + std::string(18, '\0')),
       none, none},
      {"a gateway of too few bytes", reply().add(2, std::string("\x08\x02\0\0", 4) + kGateway),
       none, none},
      {"an interface of another family", reply().addInet(0x10, kHost), none, none},
      {"fewer addresses than told", reply().addInet(1, kHost).add(2, ""), none, none},
      {"a gateway of a direct route", direct, none, none},
      {"a gateway", toGateway, kStart, none},
      {"of length 1", withByte(toGateway, 0, 1), none, none},
      {"of length 15", withByte(toGateway, 0, 15), none, none},
      {"of length 17", withByte(toGateway, 0, 17), none, none},
      {"of length 255", withByte(toGateway, 0, 255), none, none},
      {"a name of 12 bytes", withByte(toInterface, 5, 12), none, kStart},
      {"a name of 13 bytes", withByte(toInterface, 5, 13), none, none},
      {"a name of 255 bytes", withByte(toInterface, 5, 255), none, none},
  };
  for (const auto& [what, message, gateway, interface] : kCases) {
    SCOPED_TRACE(what);
    const routemsg::Reply found = parse(message.bytes());
    EXPECT_EQ(found.fault, Fault::None);
    EXPECT_EQ(found.gateway, gateway);
    EXPECT_EQ(found.interface, interface);
  }
  EXPECT_EQ(parse(std::string(kStart - 1, '\0')).fault, Fault::Short);
}

class OnAFakeNetwork : public ::testing::Test {
 protected:
  OnAFakeNetwork() { hostNetFake = {}; }

  /// The result and the records of asking for a path; `outputs` gets all that it tells.
  std::string path(const char* host) {
    char texts[6][1025];
    for (char* const text : texts) std::strcpy(text, "before");
    const int result =
        getnetpathinfo(host, texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]);
    outputs.clear();
    for (const char* const text : texts) outputs += std::string(text) + "|";
    return said(result);
  }
  std::string request(hostent* host = nullptr) {
    return said(_sockRequest(host, &buf, &gateway, &interface));
  }
  static void answer(const RouteReply& reply) { hostNetFake.replies.push_back(reply.bytes()); }

  Said said{"OSAL:5;"};
  std::string outputs;
  _sockRequest_buff buf;
  routemsg::Inet* gateway = nullptr;
  routemsg::Link* interface = nullptr;
};

TEST_F(OnAFakeNetwork, PathThroughAGateway) {
  hostNetFake.interfaces = {{"en1", HostInterfaceKind::Other}, {"en0", HostInterfaceKind::Bond}};
  answer(RouteReply().addInet(2, kGateway).addLink("en0"));
  EXPECT_THAT(path("192.0.2.7"), MatchesRegex("0 DBG Gateway = 127.0.0.1 \\(.+\\) [|] "
                                              "DBG Interface = en0"));
  EXPECT_THAT(outputs, MatchesRegex("192.0.2.7[|].*[|]127.0.0.1[|]Ethernet[|][|]en0[|]"));
  ASSERT_THAT(hostNetFake.requests, SizeIs(1));
  EXPECT_EQ(hostNetFake.requests[0].substr(96, 4), kHost);
  EXPECT_EQ(hostNetFake.timeoutMs, 5000U);
}

TEST_F(OnAFakeNetwork, DirectHostGetsTheGatewayOfTheDefaultRoute) {
  answer(RouteReply().addLink("en0"));
  answer(RouteReply().addInet(2, kGateway).addLink("en5"));
  path("192.0.2.7");
  EXPECT_THAT(outputs, MatchesRegex("192.0.2.7[|].*[|]127.0.0.1[|]en0[|][|]en0[|]"));
  ASSERT_THAT(hostNetFake.requests, SizeIs(2));
  EXPECT_EQ(hostNetFake.requests[1].substr(96, 4), std::string(4, '\0'));
}

TEST_F(OnAFakeNetwork, WhatIsNotFoundStaysEmpty) {
  const RouteReply useless = RouteReply().addInet(1, kHost);
  const std::string failure = "-1 ERR _sockRequest: error reading in the socket";
  const struct {
    const char* host;
    std::vector<RouteReply> replies;
    const char* said;
    const char* outputs;
  } kCases[] = {
      {"192.0.2.7", {useless, useless}, "0", "192.0.2.7||||||"},
      {"192.0.2.7", {}, failure.c_str(), "192.0.2.7||||||"},
      {"192.0.2.7", {RouteReply().addLink("en0")}, failure.c_str(), "192.0.2.7||||||"},
      {"", {}, "-1 ERR getnetpathinfo: error on gethostbyname \\(-?[0-9]+\\)", "||||||"},
      {nullptr, {}, "-1 ERR getnetpathinfo: error on gethostbyname \\(-?[0-9]+\\)", "||||||"},
  };
  for (const auto& c : kCases) {
    hostNetFake = {};
    for (const RouteReply& reply : c.replies) answer(reply);
    EXPECT_THAT(path(c.host), MatchesRegex(c.said));
    EXPECT_EQ(outputs, c.outputs);
  }
}

TEST_F(OnAFakeNetwork, SkipsWhatOthersAskedFor) {
  RouteReply another = RouteReply().addLink("en8");
  RouteReply earlier = RouteReply().addLink("en9");
  ++another.header.rtm_pid;
  ++earlier.header.rtm_seq;
  answer(another);
  answer(earlier);
  hostNetFake.replies.push_back(RouteReply().bytes().substr(0, kStart - 1));
  answer(RouteReply().addInet(2, kGateway).addLink("en0"));
  ASSERT_EQ(request(), "0");
  ASSERT_NE(gateway, nullptr);
  ASSERT_NE(interface, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(gateway->sin_addr), 4), kGateway);
  EXPECT_EQ(std::string(interface->sdl_data, interface->sdl_nlen), "en0");
#if defined(__linux__)
  hostNetFake = {};
  hostNetFake.readTakes = std::chrono::milliseconds(1000);
  hostNetFake.replies.assign(10, another.bytes());
  EXPECT_EQ(request(), "-1 ERR _sockRequest: error reading in the socket");
  EXPECT_THAT(hostNetFake.replies, SizeIs(5)) << "it waits for five seconds";
#endif
}

TEST_F(OnAFakeNetwork, ReportsEachFailureOnce) {
  const RouteReply good = RouteReply().addLink("en0");
  const struct {
    const char* said;
    std::function<void(RouteReply&)> spoil;
  } kCases[] = {
      {"error opening socket", [](RouteReply&) { hostNetFake.openError = EMFILE; }},
      {"error writing in the socket", [](RouteReply&) { hostNetFake.writeError = ESRCH; }},
      {"error, socket read, bad version (4)", [](RouteReply& r) { r.header.rtm_version = 4; }},
      {"error, socket read, bad length (112B, should be 120)",
       [](RouteReply& r) { r.lengthError = 8; }},
      {"error, socket read, bad length (112B, should be 111)",
       [](RouteReply& r) { r.lengthError = static_cast<std::size_t>(-1); }},
      {"error, socket read (65)", [](RouteReply& r) { r.header.rtm_errno = 65; }},
      {"error, socket read, no infos", [](RouteReply& r) { r.header.rtm_addrs = 0; }},
  };
  for (const auto& c : kCases) {
    hostNetFake = {};
    RouteReply reply = good;
    c.spoil(reply);
    answer(reply);
    EXPECT_EQ(request(), std::string("-1 ERR _sockRequest: ") + c.said);
    EXPECT_EQ(gateway, nullptr);
    EXPECT_EQ(interface, nullptr);
  }
  hostNetFake = {};
  hostent host{};
  host.h_length = 16;
  EXPECT_EQ(request(&host), "-1 ERR _sockRequest: sin_addr too long (16)");
  EXPECT_THAT(hostNetFake.requests, SizeIs(0));
}

TEST_F(OnAFakeNetwork, InterfaceHasAKind) {
  using enum HostInterfaceKind;
  hostNetFake.interfaces = {{"a", Bluetooth}, {"b", Ieee80211}, {"c", Wwan},
                            {"d", Bond},      {"e", Ethernet},  {"f", FireWire},
                            {"g", Ppp},       {"h", Other},     {"lo0", Ethernet}};
  constexpr const char* kCases[][2] = {{"a", "WiFi"},     {"b", "WiFi"},      {"c", "WiFi"},
                                       {"d", "Ethernet"}, {"e", "Ethernet"},  {"f", "Ethernet"},
                                       {"g", "PPP"},      {"h", "h"},         {"utun3", "utun3"},
                                       {"lo", "lo"},      {"lo0", "Loopback"}};
  char kind[1025] = "before";
  for (const auto& [name, expected] : kCases) {
    EXPECT_EQ(_getInterface(name, kind), 0);
    EXPECT_STREQ(kind, expected);
  }
  hostNetFake.listError = EPERM;
  EXPECT_EQ(_getInterface("e", kind), 0);
  EXPECT_STREQ(kind, "e");
}

TEST_F(OnAFakeNetwork, PrimaryHardwareAddress) {
  using Address = std::array<unsigned char, 6>;
  const Address zero{};
  const Address ones{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const Address a{1, 2, 3, 4, 5, 6};
  const Address b{0, 0, 0, 0, 0, 1};
  const Address before{9, 9, 9, 9, 9, 9};
  const struct {
    std::vector<HostLinkAddress> addresses;
    bool found;
    Address expected;
  } kCases[] = {{{}, false, before},
                {{{"en0", zero}, {"en1", ones}}, false, before},
                {{{"lo0", zero}, {"en5", a}, {"en6", b}}, true, a},
                {{{"en0", a}, {"en6", b}}, true, a},
                {{{"en5", a}, {"en0", b}, {"en6", a}}, true, b},
                {{{"en5", a}, {"en0", zero}}, true, a}};
  for (const auto& [addresses, found, expected] : kCases) {
    hostNetFake.linkAddresses = addresses;
    Address mac = before;
    EXPECT_EQ(getMACAddress(mac.data()), found);
    EXPECT_EQ(mac, expected);
  }
  EXPECT_FALSE(getMACAddress(nullptr));
  hostNetFake.listError = EPERM;
  Address mac = before;
  EXPECT_FALSE(getMACAddress(mac.data()));
  EXPECT_EQ(said(), "ERR getMACAddress: error on getifaddrs (1)");
}

TEST(OsalNet, KnowsAddressesAndNamesOfThisMachine) {
  EXPECT_TRUE(isIPlocal(0x7F000001));
  EXPECT_TRUE(isIPlocal(0x7FFFFFFF));
  EXPECT_FALSE(isIPlocal(0x80000000));
  EXPECT_FALSE(isIPlocal(0x0100007F));
  char own[129] = {};
  ASSERT_EQ(::gethostname(own, sizeof own - 1), 0);
  for (const char* const host :
       {"127.", "127.evil", "::1", "LOCALHOST", const_cast<const char*>(own)}) {
    EXPECT_TRUE(isHostLocal(host)) << host;
  }
  for (const char* const host : {"128.0.0.1", "::2", "localhost2", "no-such-machine.", ""}) {
    EXPECT_FALSE(isHostLocal(host)) << host;
  }
  EXPECT_FALSE(isHostLocal(nullptr));
  EXPECT_TRUE(osalnet_isLocalOn("box.example.org", "BOX"));
  EXPECT_TRUE(osalnet_isLocalOn("box", "Box.other.net"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "bo"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "boxx"));
}

}  // namespace
