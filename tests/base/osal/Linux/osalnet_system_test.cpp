// On a real network of its own: a network namespace with a pair of virtual Ethernet interfaces and
// a default route, which goes away with the process. Nothing leaves the machine.

#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Files.h"
#include "LogCapture.h"
#include "base/osal/osalnet.h"

namespace {

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

/// Makes the network, and tells why there is none.
std::string makeNetwork() {
  if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) return "cannot make namespaces";
  const TempFolder folder;
  writeFile(folder / "hosts",
            "127.0.0.1 localhost\n192.0.2.1 gateway.test\n192.0.2.9 neighbour.test\n");
  writeFile(folder / "resolv.conf", "nameserver 127.0.0.1\n");
  ::setenv("name", kInterface, 1);
  // Nobody mounts /sys anew: it goes on showing the interfaces of the machine.
  const bool made = run("mount --make-rprivate / && cd '" + folder.path().string() + R"(' &&
    mount --bind hosts /etc/hosts && mount --bind resolv.conf /etc/resolv.conf &&
    ip link add $name type veth peer name qd-peer && ip addr add 192.0.2.2/24 dev $name &&
    for link in lo $name qd-peer; do ip link set $link up; done &&
    ip route add unreachable 198.51.100.0/24 && ip route add default via 192.0.2.1)");
  return made ? "" : "cannot mount, or there are no virtual Ethernet interfaces";
}

TEST(OnAnOwnNetwork, TellsThePathsToHosts) {
  const std::string reason = makeNetwork();
  if (!reason.empty()) GTEST_SKIP() << reason;
  LogCapture said("OSAL:5;");
  const std::string through = "|gateway.test|192.0.2.1|";
  const std::string name = kInterface;
  EXPECT_EQ(pathTo("203.0.113.5"), "0|203.0.113.5" + through + "Ethernet||" + name);
  EXPECT_EQ(said(), "DBG Gateway = 192.0.2.1 (gateway.test) | DBG Interface = " + name);
  EXPECT_EQ(pathTo("neighbour.test"), "0|192.0.2.9" + through + "Ethernet||" + name);
  EXPECT_EQ(pathTo("localhost"), "0|127.0.0.1" + through + "lo||lo");
  said();
  EXPECT_EQ(pathTo("198.51.100.1"), "-1|198.51.100.1|||||");
  EXPECT_EQ(said(), "ERR _sockRequest: error, socket read (113)");
  EXPECT_EQ(pathTo("no-such-host.test"), "-1||||||");

  // A neighbour is reached directly: what is told of its gateway is that of the default route, the
  // usable one of the lowest metric.
  const std::pair<std::vector<std::string>, std::string> kCases[] = {
      {{"via 192.0.2.1 metric 600", "via 192.0.2.77 metric 100"}, "|192.0.2.77|"},
      {{"via 192.0.2.1 metric 600", "via 192.0.2.77 metric 100 table 100"}, "|192.0.2.1|"},
      {{"nexthop via 192.0.2.1 nexthop via 192.0.2.77"}, "|192.0.2.1|"}};
  for (const auto& [routes, gateway] : kCases) {
    run("while ip route del default; do :; done 2>/dev/null; ip route flush table 100 2>/dev/null");
    ASSERT_TRUE(run("ip route add unreachable default metric 50"));
    for (const std::string& route : routes) ASSERT_TRUE(run("ip route add default " + route));
    EXPECT_NE(pathTo("neighbour.test").find(gateway), std::string::npos) << routes[0];
  }
}

}  // namespace
