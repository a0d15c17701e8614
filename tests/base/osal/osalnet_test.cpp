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

std::string inet(const std::string& fourBytes) {
  return "\x10\x02\0\0"s + fourBytes + std::string(8, '\0');
}
const std::string kEn0 = "\x14\x12\0\0\0\x03\0\0en0"s + std::string(9, '\0');

TEST(RouteMessage, AsksForAHostAndItsInterface) {
  routemsg::Buffer buffer;
  ASSERT_EQ(routemsg::buildRequest(reinterpret_cast<const unsigned char*>(kHost.data()), buffer),
            128U);
  std::string expected = "\x80\0\x05\x04\0\0\0\0\x07\x08\0\0\x11\0\0\0\0\0\0\0\x01\0\0\0"s;
  expected.resize(kStart);
  expected += inet(kHost) + "\x14\x12";
  EXPECT_EQ(std::memcmp(&buffer, expected.data(), expected.size()), 0);
}

TEST(RouteMessage, FindsGatewayAndInterfaceOrTellsWhatIsWrongAndWhoseAnswerItIs) {
  constexpr struct {
    Fault fault;
    bool answers;
    void (*spoil)(routemsg::Header&);
    bool gateway = true;
  } kCases[] = {
      {Fault::None, true, [](routemsg::Header&) {}},
      {Fault::None, true, [](routemsg::Header& h) { h.rtm_flags = routemsg::kUp; }, false},
      {Fault::None, false, [](routemsg::Header& h) { ++h.rtm_pid; }},
      {Fault::None, false, [](routemsg::Header& h) { ++h.rtm_seq; }},
      {Fault::Version, true, [](routemsg::Header& h) { h.rtm_version = 4; }},
      {Fault::Length, true, [](routemsg::Header& h) { ++h.rtm_msglen; }},
      {Fault::Refused, true, [](routemsg::Header& h) { h.rtm_errno = 65; }},
      {Fault::NoAddresses, true, [](routemsg::Header& h) { h.rtm_addrs = 0; }}};
  for (const auto& c : kCases) {
    // A gateway, a mask without bytes, which takes four, and the interface.
    const std::string message = reply(2 | 4 | 16, inet(kHost) + "\0\0\0\0"s + kEn0, c.spoil);
    const routemsg::Reply found = routemsg::parseReply(span(message));
    EXPECT_EQ(found.fault, c.fault);
    EXPECT_EQ(routemsg::answers(span(message), ::getpid()), c.answers);
    if (c.fault != Fault::None) continue;
    EXPECT_EQ(found.gateway, c.gateway ? std::optional(kStart) : std::nullopt);
    EXPECT_EQ(found.interface, kStart + 20);
  }
}

TEST(OsalNet, KnowsAddressesAndNamesOfThisMachine) {
  EXPECT_TRUE(isIPlocal(0x7F000001) && isIPlocal(0x7FFFFFFF));
  EXPECT_FALSE(isIPlocal(0x80000000) || isIPlocal(0x0100007F));
  EXPECT_TRUE(isHostLocal("127.") && isHostLocal("::1") && isHostLocal("LOCALHOST"));
  EXPECT_FALSE(isHostLocal("128.0.0.1") || isHostLocal("localhost2") || isHostLocal(""));
  EXPECT_TRUE(osalnet_isLocalOn("box.example.org", "BOX"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "bo"));
}

TEST(OsalSysinfo, NamesMacOSVersions) {
  const std::pair<std::array<int, 3>, const char*> kCases[] = {
      {{10, 8, 5}, "OS X 10.8.5 (Mountain Lion)"},
      {{10, 16, 0}, "macOS 11.0 (Big Sur)"},
      {{26, 0, 1}, "macOS 26.0 (Tahoe)"},
      {{27, 0, 0}, "macOS 27.0.0"}};
  for (const auto& [v, expected] : kCases) {
    EXPECT_EQ(osalsysinfo_macOSDescription(v[0], v[1], v[2]), expected);
  }
  EXPECT_TRUE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_ARM64_T6000"));
  EXPECT_FALSE(osalsysinfo_isArm64Kernel("xnu-10063.121.3~5/RELEASE_X86_64"));
}

}  // namespace
