// On a real network of its own: a network namespace with a pair of virtual Ethernet interfaces and
// a default route, which goes away with the process. Nothing leaves the machine.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "LogCapture.h"
#include "TempFolder.h"
#include "base/osal/osalnet.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

// As long as a name may be; longer than the fixed part of a link-layer address has room for.
constexpr const char* kInterface = "qd-test-veth-00";

/// Runs a command of the shell and tells whether it succeeded.
bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

struct PathInfo {
  int result = 0;
  std::string hostAddress, gatewayName, gatewayAddress, interfaceKind, reserved, interfaceName;

  bool operator==(const PathInfo&) const = default;
};

void PrintTo(const PathInfo& info, std::ostream* out) {
  *out << info.result << " " << info.hostAddress << "|" << info.gatewayName << "|"
       << info.gatewayAddress << "|" << info.interfaceKind << "|" << info.reserved << "|"
       << info.interfaceName;
}

PathInfo pathInfo(const char* host) {
  std::array<std::array<char, 1025>, 6> text;
  for (auto& output : text) std::snprintf(output.data(), output.size(), "before");
  const int result = getnetpathinfo(host, text[0].data(), text[1].data(), text[2].data(),
                                    text[3].data(), text[4].data(), text[5].data());
  return {result,         text[0].data(), text[1].data(), text[2].data(),
          text[3].data(), text[4].data(), text[5].data()};
}

class OnAnOwnNetwork : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) {
      reason_ = std::string("cannot make namespaces: ") + std::strerror(errno);
      return;
    }
    if (!run("ip -V >/dev/null 2>&1")) {
      reason_ = "there is no ip command";
      return;
    }
    folder_ = new TempFolder;
    std::ofstream(*folder_ / "hosts") << "127.0.0.1 localhost\n192.0.2.1 gateway.test\n"
                                         "192.0.2.9 neighbour.test\n";
    std::ofstream(*folder_ / "resolv.conf") << "nameserver 127.0.0.1\n";
    const auto bind = [](const char* name) {
      return ::mount((*folder_ / name).c_str(), (std::string("/etc/") + name).c_str(), nullptr,
                     MS_BIND, nullptr) == 0;
    };
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0 || !bind("hosts") ||
        !bind("resolv.conf")) {
      reason_ = std::string("cannot mount: ") + std::strerror(errno);
      return;
    }
    const std::string name = kInterface;
    ASSERT_TRUE(run("ip link set lo up"));
    if (!run("ip link add " + name + " type veth peer name qd-peer")) {
      reason_ = "there are no virtual Ethernet interfaces";
      return;
    }
    ASSERT_TRUE(run("ip addr add 192.0.2.2/24 dev " + name));
    ASSERT_TRUE(run("ip link set " + name + " up && ip link set qd-peer up"));
    ASSERT_TRUE(run("ip route add unreachable 198.51.100.0/24"));
  }

  static void TearDownTestSuite() {
    ::umount2("/etc/hosts", MNT_DETACH);
    ::umount2("/etc/resolv.conf", MNT_DETACH);
    delete folder_;
  }

  void SetUp() override {
    if (!reason_.empty()) GTEST_SKIP() << reason_;
    ASSERT_TRUE(run("ip route replace default via 192.0.2.1"));
  }

  LogCapture log{QDLOG_OSAL, 5};

 private:
  static inline std::string reason_;
  static inline TempFolder* folder_ = nullptr;
};

TEST_F(OnAnOwnNetwork, DistantHostIsReachedThroughTheGateway) {
  const PathInfo expected{0,  "203.0.113.5", "gateway.test", "192.0.2.1", "Ethernet",
                          "", kInterface};
  EXPECT_EQ(pathInfo("203.0.113.5"), expected);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:DBG Gateway = 192.0.2.1 (gateway.test)",
                                       std::string("OSAL:DBG Interface = ") + kInterface));
}

TEST_F(OnAnOwnNetwork, NeighbourGetsTheGatewayOfTheDefaultRoute) {
  const PathInfo expected{0, "192.0.2.9", "gateway.test", "192.0.2.1", "Ethernet", "", kInterface};
  EXPECT_EQ(pathInfo("neighbour.test"), expected);
}

TEST_F(OnAnOwnNetwork, OwnMachineIsReachedThroughLo) {
  const PathInfo expected{0, "127.0.0.1", "gateway.test", "192.0.2.1", "lo", "", "lo"};
  EXPECT_EQ(pathInfo("localhost"), expected);
}

TEST_F(OnAnOwnNetwork, GatewayMayHaveNoName) {
  ASSERT_TRUE(run("ip route replace default via 192.0.2.77"));
  const PathInfo expected{0, "203.0.113.5", "", "192.0.2.77", "Ethernet", "", kInterface};
  EXPECT_EQ(pathInfo("203.0.113.5"), expected);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:DBG Gateway = 192.0.2.77 (NULL)",
                                       std::string("OSAL:DBG Interface = ") + kInterface));
}

TEST_F(OnAnOwnNetwork, TheDefaultRouteIsTheBestOne) {
  ASSERT_TRUE(run("ip route add default via 192.0.2.50 metric 50"));
  ASSERT_TRUE(run("ip route add default via 192.0.2.40 metric 40"));
  ASSERT_TRUE(run("ip route del default via 192.0.2.1"));
  const PathInfo info = pathInfo("neighbour.test");
  ASSERT_TRUE(run("ip route del default via 192.0.2.50 && ip route del default via 192.0.2.40"));
  EXPECT_EQ(info.gatewayAddress, "192.0.2.40");
}

TEST_F(OnAnOwnNetwork, UnreachableHostIsAFailure) {
  const PathInfo expected{-1, "198.51.100.1", "", "", "", "", ""};
  EXPECT_EQ(pathInfo("198.51.100.1"), expected);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR _sockRequest: error, socket read (113)"));
}

TEST_F(OnAnOwnNetwork, WithoutADefaultRouteNoPathIsComplete) {
  ASSERT_TRUE(run("ip route del default"));
  const PathInfo distant{-1, "203.0.113.5", "", "", "", "", ""};
  EXPECT_EQ(pathInfo("203.0.113.5"), distant);
  const PathInfo neighbour{-1, "192.0.2.9", "", "", "", "", ""};
  EXPECT_EQ(pathInfo("192.0.2.9"), neighbour);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR _sockRequest: error, socket read (101)",
                                       "OSAL:ERR _sockRequest: error, socket read (3)"));
}

TEST_F(OnAnOwnNetwork, NameThatDoesNotResolveIsAFailure) {
  const PathInfo expected{-1, "", "", "", "", "", ""};
  EXPECT_EQ(pathInfo("no-such-host.test"), expected);
  EXPECT_THAT(
      log.lines(),
      ElementsAre(MatchesRegex("OSAL:ERR getnetpathinfo: error on gethostbyname \\([0-9]+\\)")));
}

TEST_F(OnAnOwnNetwork, HardwareAddressIsTheFirstOrTheOneOfEn0) {
  const std::string name = kInterface;
  ASSERT_TRUE(run("ip link set " + name + " address 02:00:00:00:00:0a"));
  ASSERT_TRUE(run("ip link set qd-peer address 02:00:00:00:00:0b"));
  const bool isFirst = ::if_nametoindex(kInterface) < ::if_nametoindex("qd-peer");
  std::array<unsigned char, 6> mac{};
  ASSERT_TRUE(getMACAddress(mac.data()));
  EXPECT_THAT(mac, ElementsAre(2, 0, 0, 0, 0, isFirst ? 0x0A : 0x0B));
  for (const bool peer : {true, false}) {
    const std::string from = peer ? "qd-peer" : name;
    ASSERT_TRUE(run("ip link set " + from + " down && ip link set " + from + " name en0"));
    EXPECT_TRUE(getMACAddress(mac.data()));
    EXPECT_THAT(mac, ElementsAre(2, 0, 0, 0, 0, peer ? 0x0B : 0x0A));
    ASSERT_TRUE(run("ip link set en0 name " + from + " && ip link set " + from + " up"));
  }
}

}  // namespace
