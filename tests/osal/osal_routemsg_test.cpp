#include "osal/osal_routemsg.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>
#include <string>

#include "RouteReply.h"

namespace {

using routemsg::Fault;

constexpr int kPid = 4711;

std::span<const unsigned char> bytes(const std::string& message) {
  return {reinterpret_cast<const unsigned char*>(message.data()), message.size()};
}

routemsg::Reply parse(const RouteReply& reply) {
  const std::string message = reply.bytes();
  return routemsg::parseReply(bytes(message));
}

TEST(RouteMessage, AsksForAHostAndItsInterface) {
  const unsigned char address[] = {192, 0, 2, 7};
  routemsg::Buffer buffer;
  std::memset(&buffer, 0xEE, sizeof buffer);
  ASSERT_EQ(routemsg::buildRequest(address, buffer), 128U);
  EXPECT_EQ(buffer.header.rtm_msglen, 128);
  EXPECT_EQ(buffer.header.rtm_version, 5);
  EXPECT_EQ(buffer.header.rtm_type, 4);
  EXPECT_EQ(buffer.header.rtm_flags, 0x807);
  EXPECT_EQ(buffer.header.rtm_addrs, 0x11);
  EXPECT_EQ(buffer.header.rtm_pid, 0);
  EXPECT_EQ(buffer.header.rtm_seq, 1);
  EXPECT_EQ(buffer.header.rtm_errno, 0);
  std::string expected("\x10\x02\0\0\xC0\0\x02\x07", 8);
  expected += std::string(8, '\0') + "\x14\x12" + std::string(18, '\0');
  expected.resize(sizeof buffer.addresses);
  EXPECT_EQ(std::memcmp(buffer.addresses, expected.data(), expected.size()), 0);
}

TEST(RouteMessage, AsksForTheDefaultRouteWithoutAHost) {
  const unsigned char anyAddress[] = {0, 0, 0, 0};
  routemsg::Buffer byDefault;
  routemsg::Buffer expected;
  EXPECT_EQ(routemsg::buildRequest(nullptr, byDefault), 128U);
  routemsg::buildRequest(anyAddress, expected);
  EXPECT_EQ(std::memcmp(&byDefault, &expected, sizeof expected), 0);
}

TEST(RouteMessage, KnowsItsAnswerByProcessAndSequence) {
  RouteReply reply(kPid);
  EXPECT_TRUE(routemsg::answers(bytes(reply.bytes()), kPid));
  EXPECT_FALSE(routemsg::answers(bytes(reply.bytes()), kPid + 1));
  EXPECT_FALSE(routemsg::answers(bytes(reply.bytes().substr(0, 91)), kPid));
  EXPECT_FALSE(routemsg::answers({}, kPid));
  reply.header.rtm_seq = 2;
  EXPECT_FALSE(routemsg::answers(bytes(reply.bytes()), kPid));
}

TEST(RouteMessage, FindsGatewayAndInterface) {
  const std::string host("\xC0\0\x02\x07", 4);
  const std::string gateway("\xC0\0\x02\x01", 4);
  const std::string noMask(1, '\0');  // a mask of length 0 takes 4 bytes
  const std::string shortMask("\x07\0\0\0\xFF\xFF\xFF", 7);
  const std::size_t start = sizeof(routemsg::Header);
  const auto reply = [] { return RouteReply(kPid); };
  const struct {
    const char* what;
    RouteReply reply;
    std::optional<std::size_t> gateway;
    std::optional<std::size_t> interface;
  } kCases[] = {
      {"both", reply().addInet(1, host).addInet(2, gateway).addLink("en0"), start + 16, start + 32},
      {"a mask without bytes",
       reply().addInet(1, host).addInet(2, gateway).add(4, noMask).addLink("en0"), start + 16,
       start + 36},
      {"a padded mask",
       reply().addInet(1, host).addInet(2, gateway).add(4, shortMask).addLink("en0"), start + 16,
       start + 40},
      {"no gateway", reply().addInet(1, host).addLink("en0"), std::nullopt, start + 16},
      {"no interface", reply().addInet(2, gateway), start, std::nullopt},
      {"a long name", reply().addLink("a-name-of-21-bytes-xx"), std::nullopt, start},
      {"what follows the interface", reply().addLink("en0").addInet(0x20, host), std::nullopt,
       start},
      {"a link-layer gateway", reply().add(2, std::string("\x14\x12", 2) + std::string(18, '\0')),
       std::nullopt, std::nullopt},
      {"a gateway cut short", reply().add(2, std::string("\x08\x02\0\0\xC0\0\x02\x01", 8)),
       std::nullopt, std::nullopt},
      {"an interface of another family", reply().addInet(0x10, host), std::nullopt, std::nullopt},
      {"fewer addresses than told", reply().addInet(1, host).add(2, ""), std::nullopt,
       std::nullopt},
  };
  for (const auto& [what, message, expectedGateway, expectedInterface] : kCases) {
    SCOPED_TRACE(what);
    const routemsg::Reply found = parse(message);
    EXPECT_EQ(found.fault, Fault::None);
    EXPECT_EQ(found.gateway, expectedGateway);
    EXPECT_EQ(found.interface, expectedInterface);
  }
}

TEST(RouteMessage, TakesAGatewayOnlyFromARouteThatHasOne) {
  RouteReply reply(kPid);
  reply.addInet(2, std::string("\xC0\0\x02\x01", 4));
  reply.header.rtm_flags = routemsg::kUp;
  EXPECT_EQ(parse(reply).gateway, std::nullopt);
}

TEST(RouteMessage, TrustsNoLength) {
  const std::size_t start = sizeof(routemsg::Header);
  const auto withByte = [](std::string message, std::size_t offset, int value) {
    message[offset] = static_cast<char>(value);
    return message;
  };
  const std::string gateway = RouteReply(kPid).addInet(2, std::string("\xC0\0\x02\x01", 4)).bytes();
  EXPECT_TRUE(routemsg::parseReply(bytes(gateway)).gateway.has_value());
  for (const int length : {1, 15, 17, 255}) {
    SCOPED_TRACE(length);
    EXPECT_FALSE(routemsg::parseReply(bytes(withByte(gateway, start, length))).gateway.has_value());
  }
  const std::string interface = RouteReply(kPid).addLink("en0").bytes();
  EXPECT_TRUE(routemsg::parseReply(bytes(interface)).interface.has_value());
  for (const int nameLength : {13, 255}) {
    SCOPED_TRACE(nameLength);
    EXPECT_FALSE(routemsg::parseReply(bytes(withByte(interface, start + 5, nameLength))).interface);
  }
}

TEST(RouteMessage, NamesWhatIsWrong) {
  const struct {
    Fault fault;
    std::function<void(RouteReply&)> spoil;
  } kCases[] = {
      {Fault::None, [](RouteReply&) {}},
      {Fault::Version, [](RouteReply& r) { r.header.rtm_version = 4; }},
      {Fault::Length, [](RouteReply& r) { r.lengthError = 4; }},
      {Fault::Length, [](RouteReply& r) { r.lengthError = static_cast<std::size_t>(-1); }},
      {Fault::Refused, [](RouteReply& r) { r.header.rtm_errno = 3; }},
      {Fault::NoAddresses, [](RouteReply& r) { r.header.rtm_addrs = 0; }},
  };
  for (const auto& [fault, spoil] : kCases) {
    SCOPED_TRACE(static_cast<int>(fault));
    RouteReply reply(kPid);
    reply.addLink("en0");
    spoil(reply);
    EXPECT_EQ(parse(reply).fault, fault);
  }
  EXPECT_EQ(routemsg::parseReply(bytes(std::string(91, '\0'))).fault, Fault::Short);
}

}  // namespace
