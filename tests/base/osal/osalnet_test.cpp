// On a network that answers what the test wants.

#include "base/osal/osalnet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "HostNetFake.h"
#include "LogCapture.h"
#include "RouteReply.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

const std::string kGateway("\x7F\0\0\x01", 4);  // whose name is looked up on this machine

struct PathInfo {
  int result;
  std::string text;  ///< all outputs, one after the other
};

PathInfo pathInfo(const char* host) {
  char outputs[6][1025];
  for (char* const output : outputs) std::snprintf(output, 1025, "before");
  const int result =
      getnetpathinfo(host, outputs[0], outputs[1], outputs[2], outputs[3], outputs[4], outputs[5]);
  std::string text;
  for (const char* const output : outputs) text += std::string(output) + "|";
  return {result, text};
}

class OnAFakeNetwork : public ::testing::Test {
 protected:
  OnAFakeNetwork() { hostNetFake = {}; }

  static RouteReply reply() { return RouteReply(static_cast<int>(::getpid())); }
  static void answer(const RouteReply& reply) { hostNetFake.replies.push_back(reply.bytes()); }

  LogCapture log{QDLOG_OSAL, 5};
};

TEST_F(OnAFakeNetwork, PathThroughAGateway) {
  hostNetFake.interfaces = {{"en1", HostInterfaceKind::Other}, {"en0", HostInterfaceKind::Bond}};
  answer(reply().addInet(2, kGateway).addLink("en0"));
  const PathInfo info = pathInfo("192.0.2.7");
  EXPECT_EQ(info.result, 0);
  EXPECT_THAT(info.text,
              MatchesRegex("192\\.0\\.2\\.7\\|.*\\|127\\.0\\.0\\.1\\|Ethernet\\|\\|en0\\|"));
  EXPECT_THAT(log.lines(), ElementsAre(MatchesRegex("OSAL:DBG Gateway = 127.0.0.1 \\(.+\\)"),
                                       "OSAL:DBG Interface = en0"));
  ASSERT_THAT(hostNetFake.requests, SizeIs(1));
  EXPECT_EQ(hostNetFake.requests[0].substr(96, 4), std::string("\xC0\0\x02\x07", 4));
}

TEST_F(OnAFakeNetwork, DirectHostGetsTheGatewayOfTheDefaultRoute) {
  answer(reply().addLink("en0"));
  answer(reply().addInet(2, kGateway).addLink("en5"));
  const PathInfo info = pathInfo("192.0.2.7");
  EXPECT_EQ(info.result, 0);
  EXPECT_THAT(info.text, MatchesRegex("192\\.0\\.2\\.7\\|.*\\|127\\.0\\.0\\.1\\|en0\\|\\|en0\\|"));
  ASSERT_THAT(hostNetFake.requests, SizeIs(2));
  EXPECT_EQ(hostNetFake.requests[1].substr(96, 4), std::string(4, '\0'));
}

TEST_F(OnAFakeNetwork, NothingFoundIsNoFailure) {
  const std::string host("\xC0\0\x02\x07", 4);
  answer(reply().addInet(1, host));
  answer(reply().addInet(1, host));
  const PathInfo info = pathInfo("192.0.2.7");
  EXPECT_EQ(info.result, 0);
  EXPECT_EQ(info.text, "192.0.2.7||||||");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OnAFakeNetwork, FailureOfEitherQuestionKeepsWhatWasFound) {
  for (const bool second : {false, true}) {
    hostNetFake = {};
    if (second) answer(reply().addLink("en0"));
    const PathInfo info = pathInfo("192.0.2.7");
    EXPECT_EQ(info.result, -1);
    EXPECT_EQ(info.text, "192.0.2.7||||||");
  }
  EXPECT_THAT(log.lines(), SizeIs(2));
  EXPECT_THAT(log.lines(), Each("OSAL:ERR _sockRequest: error reading in the socket"));
}

TEST_F(OnAFakeNetwork, UnknownHostClearsTheOutputs) {
  for (const char* const host : {"", static_cast<const char*>(nullptr)}) {
    log.clear();
    const PathInfo info = pathInfo(host);
    EXPECT_EQ(info.result, -1);
    EXPECT_EQ(info.text, "||||||");
    EXPECT_THAT(log.lines(),
                ElementsAre(MatchesRegex(
                    "OSAL:ERR getnetpathinfo: error on gethostbyname \\(-?[0-9]+\\)")));
  }
}

class SockRequest : public OnAFakeNetwork {
 protected:
  int request(hostent* host = nullptr) {
    gateway = nullptr;
    interface = nullptr;
    return _sockRequest(host, &buf, &gateway, &interface);
  }

  _sockRequest_buff buf;
  routemsg::Inet* gateway = nullptr;
  routemsg::Link* interface = nullptr;
};

TEST_F(SockRequest, SkipsWhatOthersAskedFor) {
  RouteReply another(static_cast<int>(::getpid()) + 1);
  RouteReply earlier = reply();
  earlier.header.rtm_seq = 7;
  answer(another.addLink("en8"));
  answer(earlier.addLink("en9"));
  hostNetFake.replies.emplace_back("short");
  answer(reply().addInet(2, kGateway).addLink("en0"));
  ASSERT_EQ(request(), 0);
  ASSERT_NE(gateway, nullptr);
  ASSERT_NE(interface, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(gateway->sin_addr), 4), kGateway);
  EXPECT_EQ(std::string(interface->sdl_data, interface->sdl_nlen), "en0");
}

TEST_F(SockRequest, ReportsEachFailureOnce) {
  RouteReply version = reply();
  version.addLink("en0").header.rtm_version = 4;
  RouteReply length = reply();
  length.addLink("en0").lengthError = 8;
  RouteReply refused = reply();
  refused.header.rtm_errno = 65;
  const struct {
    const char* message;
    int openError;
    int writeError;
    std::string answer;
  } kCases[] = {
      {"error opening socket", EMFILE, 0, ""},
      {"error writing in the socket", 0, ESRCH, ""},
      {"error reading in the socket", 0, 0, ""},
      {"error, socket read, bad version (4)", 0, 0, version.bytes()},
      {"error, socket read, bad length (112B, should be 120)", 0, 0, length.bytes()},
      {"error, socket read (65)", 0, 0, refused.bytes()},
      {"error, socket read, no infos", 0, 0, reply().bytes()},
  };
  for (const auto& [message, openError, writeError, answer] : kCases) {
    SCOPED_TRACE(message);
    hostNetFake = {};
    hostNetFake.openError = openError;
    hostNetFake.writeError = writeError;
    if (!answer.empty()) hostNetFake.replies = {answer};
    log.clear();
    EXPECT_EQ(request(), -1);
    EXPECT_EQ(gateway, nullptr);
    EXPECT_EQ(interface, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(std::string("OSAL:ERR _sockRequest: ") + message));
  }
}

TEST_F(SockRequest, RefusesALongAddress) {
  hostent host{};
  host.h_length = 16;
  EXPECT_EQ(request(&host), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR _sockRequest: sin_addr too long (16)"));
  EXPECT_THAT(hostNetFake.requests, IsEmpty());
}

TEST_F(OnAFakeNetwork, InterfaceHasAKind) {
  using enum HostInterfaceKind;
  hostNetFake.interfaces = {{"a", Bluetooth}, {"b", Ieee80211}, {"c", Wwan},
                            {"d", Bond},      {"e", Ethernet},  {"f", FireWire},
                            {"g", Ppp},       {"h", Other},     {"lo0", Ethernet}};
  constexpr const char* kCases[][2] = {{"a", "WiFi"},       {"b", "WiFi"},
                                       {"c", "WiFi"},       {"d", "Ethernet"},
                                       {"e", "Ethernet"},   {"f", "Ethernet"},
                                       {"g", "PPP"},        {"h", "h"},
                                       {"utun3", "utun3"},  {"", ""},
                                       {"lo", "lo"},        {"lox", "lox"},
                                       {"lo0", "Loopback"}, {"lo9x", "Loopback"}};
  for (const auto& [name, expected] : kCases) {
    SCOPED_TRACE(name);
    char kind[1025] = "before";
    EXPECT_EQ(_getInterface(name, kind), 0);
    EXPECT_STREQ(kind, expected);
  }
  hostNetFake.listError = EPERM;
  char kind[1025];
  EXPECT_EQ(_getInterface("e", kind), 0);
  EXPECT_STREQ(kind, "e");
  EXPECT_EQ(_getInterface("lo0", kind), 0);
  EXPECT_STREQ(kind, "Loopback");
}

TEST_F(OnAFakeNetwork, PrimaryHardwareAddress) {
  const std::array<unsigned char, 6> zero{};
  const std::array<unsigned char, 6> ones{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const std::array<unsigned char, 6> a{1, 2, 3, 4, 5, 6};
  const std::array<unsigned char, 6> b{0, 0, 0, 0, 0, 1};
  const std::array<unsigned char, 6> before{9, 9, 9, 9, 9, 9};
  const struct {
    const char* what;
    std::vector<HostLinkAddress> addresses;
    bool found;
    std::array<unsigned char, 6> expected;
  } kCases[] = {
      {"none", {}, false, before},
      {"no acceptable one", {{"en0", zero}, {"en1", ones}}, false, before},
      {"the first", {{"lo0", zero}, {"en5", a}, {"en6", b}}, true, a},
      {"en0 before another", {{"en0", a}, {"en6", b}}, true, a},
      {"en0 after another", {{"en5", a}, {"en0", b}, {"en6", a}}, true, b},
      {"en0 without one", {{"en5", a}, {"en0", zero}}, true, a},
  };
  for (const auto& [what, addresses, found, expected] : kCases) {
    SCOPED_TRACE(what);
    hostNetFake.linkAddresses = addresses;
    std::array<unsigned char, 6> mac = before;
    EXPECT_EQ(getMACAddress(mac.data()), found);
    EXPECT_EQ(mac, expected);
  }
  EXPECT_FALSE(getMACAddress(nullptr));
  hostNetFake.listError = EPERM;
  std::array<unsigned char, 6> mac = before;
  EXPECT_FALSE(getMACAddress(mac.data()));
}

TEST(OsalNet, KnowsLoopbackAddresses) {
  EXPECT_TRUE(isIPlocal(0x7F000001));
  EXPECT_TRUE(isIPlocal(0x7FFFFFFF));
  EXPECT_FALSE(isIPlocal(0x0A000001));
  EXPECT_FALSE(isIPlocal(0x80000000));
  EXPECT_FALSE(isIPlocal(0x0100007F));
}

TEST(OsalNet, KnowsNamesOfThisMachine) {
  for (const char* const host :
       {"127.", "127.0.0.5", "127.evil", "::1", "localhost", "LOCALHOST"}) {
    EXPECT_TRUE(isHostLocal(host)) << host;
  }
  char own[129] = {};
  ASSERT_EQ(::gethostname(own, sizeof own - 1), 0);
  EXPECT_TRUE(isHostLocal(own));
  for (const char* const host : {"128.0.0.1", "::2", "::", "localhost2", "no-such-machine.", ""}) {
    EXPECT_FALSE(isHostLocal(host)) << host;
  }
  EXPECT_FALSE(isHostLocal(nullptr));

  EXPECT_TRUE(osalnet_isLocalOn("box.example.org", "box"));
  EXPECT_TRUE(osalnet_isLocalOn("box.example.org", "BOX"));
  EXPECT_TRUE(osalnet_isLocalOn("box", "Box.other.net"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "bo"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "boxx"));
  EXPECT_FALSE(osalnet_isLocalOn("box.example.org", "example.org"));
}

}  // namespace
