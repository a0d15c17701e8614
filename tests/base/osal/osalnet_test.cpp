// Routing messages, which names are this machine's, and what systems are called.

#include "base/osal/osalnet.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <span>

#include "base/osal/osalsysinfo.h"
#include "osal/osal_routemsg.h"

namespace {

using routemsg::Fault;
using namespace std::string_literals;

constexpr std::size_t kStart = sizeof(routemsg::Header);
constexpr auto kNone = std::nullopt;
const std::string kHost = "\xC0\0\x02\x07"s;

/// A reply as the kernel sends it, with these addresses; `spoil` changes its header.
template <typename Spoil>
std::string reply(int which, const std::string& addresses, Spoil spoil) {
  routemsg::Header header{};
  header.rtm_msglen = static_cast<std::uint16_t>(kStart + addresses.size());
  header.rtm_version = routemsg::kVersion;
  header.rtm_type = routemsg::kGet;
  header.rtm_flags = routemsg::kUp | routemsg::kGateway;
  header.rtm_addrs = which;
  header.rtm_pid = static_cast<int>(::getpid());
  header.rtm_seq = routemsg::kSequence;
  spoil(header);
  std::string message(kStart, '\0');
  std::memcpy(message.data(), &header, kStart);
  return message + addresses;
}

std::span<const unsigned char> span(const std::string& message) {
  return {reinterpret_cast<const unsigned char*>(message.data()), message.size()};
}

std::string inet(const std::string& fourBytes, char length = '\x10') {
  return length + "\x02\0\0"s + fourBytes + std::string(8, '\0');
}
std::string link(const std::string& name, std::size_t nameLength) {
  return "\x14\x12\0\0\0"s + static_cast<char>(nameLength) + "\0\0"s + name +
         std::string(12 - name.size(), '\0');
}

TEST(RouteMessage, AsksForAHostAndItsInterface) {
  routemsg::Buffer buffer;
  ASSERT_EQ(routemsg::buildRequest(reinterpret_cast<const unsigned char*>(kHost.data()), buffer),
            128U);
  std::string expected = "\x80\0\x05\x04\0\0\0\0\x07\x08\0\0\x11\0\0\0\0\0\0\0\x01\0\0\0"s;
  expected.resize(kStart);
  expected += inet(kHost) + "\x14\x12";
  EXPECT_EQ(std::memcmp(&buffer, expected.data(), expected.size()), 0);
}

TEST(RouteMessage, FindsGatewayAndInterfaceAndTrustsNoLength) {
  const std::string en0 = link("en0", 3);
  const struct {
    const char* what;
    int which;  // of the addresses there are
    std::string addresses;
    std::optional<std::size_t> gateway;
    std::optional<std::size_t> interface;
    std::int32_t flags = routemsg::kUp | routemsg::kGateway;
  } kCases[] = {
      {"all", 1 | 2 | 16, inet(kHost) + inet(kHost) + en0, kStart + 16, kStart + 32},
      {"a mask without bytes takes four", 2 | 4 | 16, inet(kHost) + "\0\0\0\0"s + en0, kStart,
       kStart + 20},
      {"a gateway of too few bytes", 2, "\x08\x02\0\0"s + kHost, kNone, kNone},
      {"fewer addresses than told", 1 | 2, inet(kHost), kNone, kNone},
      {"a gateway of a direct route", 2, inet(kHost), kNone, kNone, routemsg::kUp},
      {"a gateway of length 15", 2, inet(kHost, '\x0F'), kNone, kNone},
      {"a gateway of length 17", 2, inet(kHost, '\x11'), kNone, kNone},
      {"a name of 12 bytes", 16, link("en0", 12), kNone, kStart},
      {"a name of 13 bytes", 16, link("en0", 13), kNone, kNone},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const std::string message =
        reply(c.which, c.addresses, [&c](routemsg::Header& header) { header.rtm_flags = c.flags; });
    const routemsg::Reply found = routemsg::parseReply(span(message));
    EXPECT_EQ(found.fault, Fault::None);
    EXPECT_EQ(found.gateway, c.gateway);
    EXPECT_EQ(found.interface, c.interface);
  }
}

TEST(RouteMessage, TellsWhatIsWrongAndWhoseAnswerItIs) {
  constexpr struct {
    Fault fault;
    bool answers;
    void (*spoil)(routemsg::Header&);
  } kCases[] = {{Fault::None, true, [](routemsg::Header&) {}},
                {Fault::None, false, [](routemsg::Header& h) { ++h.rtm_pid; }},
                {Fault::None, false, [](routemsg::Header& h) { ++h.rtm_seq; }},
                {Fault::Version, true, [](routemsg::Header& h) { h.rtm_version = 4; }},
                {Fault::Length, true, [](routemsg::Header& h) { ++h.rtm_msglen; }},
                {Fault::Length, true, [](routemsg::Header& h) { --h.rtm_msglen; }},
                {Fault::Refused, true, [](routemsg::Header& h) { h.rtm_errno = 65; }},
                {Fault::NoAddresses, true, [](routemsg::Header& h) { h.rtm_addrs = 0; }}};
  for (const auto& [fault, answers, spoil] : kCases) {
    const std::string message = reply(16, link("en0", 3), spoil);
    EXPECT_EQ(routemsg::parseReply(span(message)).fault, fault);
    EXPECT_EQ(routemsg::answers(span(message), ::getpid()), answers);
    const std::string cut = message.substr(0, kStart - 1);
    EXPECT_EQ(routemsg::parseReply(span(cut)).fault, Fault::Short);
    EXPECT_FALSE(routemsg::answers(span(cut), ::getpid()));
  }
}

TEST(OsalNet, KnowsAddressesAndNamesOfThisMachine) {
  EXPECT_TRUE(isIPlocal(0x7F000001) && isIPlocal(0x7FFFFFFF));
  EXPECT_FALSE(isIPlocal(0x80000000) || isIPlocal(0x0100007F));
  char own[129] = {};
  ASSERT_EQ(::gethostname(own, sizeof own - 1), 0);
  for (const char* const host : {"127.", "::1", "LOCALHOST", const_cast<const char*>(own)}) {
    EXPECT_TRUE(isHostLocal(host)) << host;
  }
  for (const char* const host :
       {"128.0.0.1", "localhost2", "", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(isHostLocal(host));
  }
  EXPECT_TRUE(osalnet_isLocalOn("box.example.org", "BOX"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "bo"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "boxx"));
}

TEST(OsalSysinfo, NamesMacOSVersions) {
  const std::pair<std::array<int, 3>, const char*> kCases[] = {
      {{10, -1, 3}, "Mac OS X 10.-1.3"},           {{10, 7, 5}, "Mac OS X 10.7.5 (Lion)"},
      {{10, 8, 5}, "OS X 10.8.5 (Mountain Lion)"}, {{10, 12, 6}, "macOS 10.12.6 (Sierra)"},
      {{10, 16, 0}, "macOS 11.0 (Big Sur)"},       {{10, 21, 6}, "macOS 16.6"},
      {{15, 1, 1}, "macOS 15.1 (Sequoia)"},        {{16, 2, 0}, "macOS 16.2.0"},
      {{26, 0, 1}, "macOS 26.0 (Tahoe)"},          {{27, 0, 0}, "macOS 27.0.0"}};
  for (const auto& [v, expected] : kCases) {
    EXPECT_EQ(osalsysinfo_macOSDescription(v[0], v[1], v[2]), expected);
  }
  EXPECT_TRUE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_ARM64_T6000"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_X86_64"));
}

}  // namespace
