// Routing messages, and which names are this machine's.

#include "base/osal/osalnet.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <optional>
#include <span>

#include "osal/osal_routemsg.h"

namespace {

using routemsg::Fault;

const std::string kHost("\xC0\0\x02\x07", 4);
const std::string kGateway("\x7F\0\0\x01", 4);
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

std::span<const unsigned char> span(const std::string& message) {
  return {reinterpret_cast<const unsigned char*>(message.data()), message.size()};
}
routemsg::Reply parse(const std::string& message) { return routemsg::parseReply(span(message)); }

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
      {"a gateway of too few bytes", reply().add(2, std::string("\x08\x02\0\0", 4) + kGateway),
       none, none},
      {"a gateway", toGateway, kStart, none},
      {"fewer addresses than told", reply().addInet(1, kHost).add(2, ""), none, none},
      {"a gateway of a direct route", direct, none, none},
      {"a gateway of length 15", withByte(toGateway, 0, 15), none, none},
      {"a gateway of length 17", withByte(toGateway, 0, 17), none, none},
      {"a name of 12 bytes", withByte(toInterface, 5, 12), none, kStart},
      {"a name of 13 bytes", withByte(toInterface, 5, 13), none, none},
  };
  for (const auto& [what, message, gateway, interface] : kCases) {
    SCOPED_TRACE(what);
    const routemsg::Reply found = parse(message.bytes());
    EXPECT_EQ(found.fault, Fault::None);
    EXPECT_EQ(found.gateway, gateway);
    EXPECT_EQ(found.interface, interface);
  }
}

TEST(RouteMessage, TellsWhatIsWrongAndWhoseAnswerItIs) {
  const std::pair<Fault, std::function<void(RouteReply&)>> kCases[] = {
      {Fault::None, [](RouteReply&) {}},
      {Fault::Version, [](RouteReply& r) { r.header.rtm_version = 4; }},
      {Fault::Length, [](RouteReply& r) { r.lengthError = 8; }},
      {Fault::Length, [](RouteReply& r) { r.lengthError = static_cast<std::size_t>(-1); }},
      {Fault::Refused, [](RouteReply& r) { r.header.rtm_errno = 65; }},
      {Fault::NoAddresses, [](RouteReply& r) { r.header.rtm_addrs = 0; }}};
  const int pid = ::getpid();
  for (const auto& [fault, spoil] : kCases) {
    RouteReply reply = RouteReply().addLink("en0");
    spoil(reply);
    EXPECT_EQ(parse(reply.bytes()).fault, fault);
    EXPECT_TRUE(routemsg::answers(span(reply.bytes()), pid));
    EXPECT_FALSE(routemsg::answers(span(reply.bytes()), pid + 1));
  }
  EXPECT_EQ(parse(std::string(kStart - 1, '\0')).fault, Fault::Short);
  RouteReply earlier;
  ++earlier.header.rtm_seq;
  EXPECT_FALSE(routemsg::answers(span(earlier.bytes()), pid));
  EXPECT_FALSE(routemsg::answers(span(RouteReply().bytes().substr(0, kStart - 1)), pid));
}

TEST(OsalNet, KnowsAddressesAndNamesOfThisMachine) {
  EXPECT_TRUE(isIPlocal(0x7F000001));
  EXPECT_TRUE(isIPlocal(0x7FFFFFFF));
  EXPECT_FALSE(isIPlocal(0x80000000));
  EXPECT_FALSE(isIPlocal(0x0100007F));
  char own[129] = {};
  ASSERT_EQ(::gethostname(own, sizeof own - 1), 0);
  for (const char* const host : {"127.", "::1", "LOCALHOST", const_cast<const char*>(own)}) {
    EXPECT_TRUE(isHostLocal(host)) << host;
  }
  for (const char* const host : {"128.0.0.1", "localhost2", ""}) {
    EXPECT_FALSE(isHostLocal(host)) << host;
  }
  EXPECT_FALSE(isHostLocal(nullptr));
  EXPECT_TRUE(osalnet_isLocalOn("box.example.org", "BOX"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "bo"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "boxx"));
}

}  // namespace
