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
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Files.h"
#include "Said.h"
#include "TempFolder.h"
#include "base/osal/osalnet.h"

namespace {

using ::testing::ElementsAre;

// As long as a name may be; longer than the fixed part of a link-layer address has room for.
constexpr const char* kInterface = "qd-test-veth-00";

/// Runs a command of the shell and tells whether it succeeded.
bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

/// Asks for a path, and tells the result and all outputs.
std::string pathTo(const char* host) {
  char texts[6][1025];
  for (char* const text : texts) std::strcpy(text, "before");
  const int result =
      getnetpathinfo(host, texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]);
  std::string all = std::to_string(result);
  for (const char* const text : texts) all += std::string("|") + text;
  return all;
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
    writeFile(*folder_ / "hosts",
              "127.0.0.1 localhost\n192.0.2.1 gateway.test\n192.0.2.9 neighbour.test\n");
    writeFile(*folder_ / "resolv.conf", "nameserver 127.0.0.1\n");
    const auto bind = [](const char* name) {
      return ::mount((*folder_ / name).c_str(), (std::string("/etc/") + name).c_str(), nullptr,
                     MS_BIND, nullptr) == 0;
    };
    // Nobody mounts /sys anew: it goes on showing the interfaces of the machine.
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 || !bind("hosts") ||
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

  Said said{"OSAL:5;"};

 private:
  static inline std::string reason_;
  static inline TempFolder* folder_ = nullptr;
};

TEST_F(OnAnOwnNetwork, TellsThePathsToHosts) {
  const std::string through = "|gateway.test|192.0.2.1|";
  const std::string name = kInterface;
  EXPECT_EQ(pathTo("203.0.113.5"), "0|203.0.113.5" + through + "Ethernet||" + name);
  EXPECT_EQ(said(), "DBG Gateway = 192.0.2.1 (gateway.test) | DBG Interface = " + name);
  EXPECT_EQ(pathTo("neighbour.test"), "0|192.0.2.9" + through + "Ethernet||" + name);
  EXPECT_EQ(pathTo("localhost"), "0|127.0.0.1" + through + "lo||lo");
  said.clear();
  EXPECT_EQ(pathTo("198.51.100.1"), "-1|198.51.100.1|||||");
  EXPECT_EQ(said(), "ERR _sockRequest: error, socket read (113)");
  EXPECT_EQ(pathTo("no-such-host.test"), "-1||||||");
  EXPECT_TRUE(said().starts_with("ERR getnetpathinfo: error on gethostbyname ("));

  ASSERT_TRUE(run("ip route replace default via 192.0.2.77"));
  EXPECT_EQ(pathTo("203.0.113.5"), "0|203.0.113.5||192.0.2.77|Ethernet||" + name);
  EXPECT_EQ(said(), "DBG Gateway = 192.0.2.77 (NULL) | DBG Interface = " + name);
  ASSERT_TRUE(run("ip route del default"));
  said.clear();
  EXPECT_EQ(pathTo("203.0.113.5"), "-1|203.0.113.5|||||");
  EXPECT_EQ(said(), "ERR _sockRequest: error, socket read (101)");
  EXPECT_EQ(pathTo("192.0.2.9"), "-1|192.0.2.9|||||");
  EXPECT_EQ(said(), "ERR _sockRequest: error, socket read (3)");
}

// A neighbour is reached directly: what is told of its gateway is that of the default route.
TEST_F(OnAnOwnNetwork, TheDefaultRouteIsTheUsableOneOfTheLowestMetric) {
  const std::pair<std::vector<std::string>, std::string> kCases[] = {
      {{"via 192.0.2.1 metric 600", "via 192.0.2.77 metric 100"}, "|192.0.2.77|"},
      {{"via 192.0.2.1 metric 100", "via 192.0.2.77 metric 600"}, "|192.0.2.1|"},
      {{"via 192.0.2.1 metric 600", "via 192.0.2.77 metric 100 table 100"}, "|192.0.2.1|"},
      {{"nexthop via 192.0.2.1 nexthop via 192.0.2.77"}, "|192.0.2.1|"}};
  for (const auto& [routes, gateway] : kCases) {
    run("while ip route del default; do :; done 2>/dev/null; ip route flush table 100 2>/dev/null");
    ASSERT_TRUE(run("ip route add unreachable default metric 50"));
    for (const std::string& route : routes) ASSERT_TRUE(run("ip route add default " + route));
    EXPECT_NE(pathTo("neighbour.test").find(gateway), std::string::npos) << routes[0];
  }
}

TEST_F(OnAnOwnNetwork, TheHardwareAddressIsTheFirst) {
  const bool isFirst = ::if_nametoindex(kInterface) < ::if_nametoindex("qd-peer");
  const std::string first = isFirst ? kInterface : "qd-peer";
  ASSERT_TRUE(run("ip link set " + first + " address 02:00:00:00:00:0a"));
  std::array<unsigned char, 6> mac{};
  EXPECT_TRUE(getMACAddress(mac.data()));
  EXPECT_THAT(mac, ElementsAre(2, 0, 0, 0, 0, 0x0A));
}

}  // namespace
