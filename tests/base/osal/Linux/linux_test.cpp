// The system's own side of the seam.

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include "Files.h"
#include "Limits.h"
#include "base/osal/Linux/keyfile.h"
#include "osal/osal_host.h"
#include "osal/osal_hostnet.h"

namespace {

TEST(Keyfile, FindsAValueAndUnquotesIt) {
  constexpr const char* kCases[][2] = {{"#KEY=1\n KEY=3\nKEYS=1\nKE=2\nKEY\n", "(none)"},
                                       {"KEY=12 \r\nKEY=13\n", "12"},
                                       {"KEY=\"a \\\"b\\\" \\$c \\\\\"\n", "a \"b\" $c \\"},
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

TEST(HostSetNice, ReachesEveryThread) {
  const int former = ::getpriority(PRIO_PROCESS, 0);
  const int nice = former < 19 ? former + 1 : former - 1;
  if (nice < former && ::geteuid() != 0) GTEST_SKIP() << "runs as nicely as it can already";
  std::promise<void> set;
  std::thread other([&] {
    set.get_future().wait();
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), nice);  // of this thread
  });
  EXPECT_EQ(host_setNice(nice), 0);
  EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), nice);
  set.set_value();
  other.join();
  host_setNice(former);
}

// Nothing is sent; or for ever what another process says, or what the kernel has more of.
TEST(HostnetRoute, EndsAtItsDeadlineWhateverArrives) {
  const TempFolder folder;
  nlmsghdr datagram{sizeof datagram, 0, 0, 9, 0};
  for (const int type : {0, NLMSG_DONE, NLMSG_NOOP}) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    struct sockaddr_un name {};
    name.sun_family = AF_UNIX;
    (folder / "sender").copy(name.sun_path, sizeof name.sun_path - 1);
    // A name where the kernel has its number, which is 0.
    if (type == NLMSG_DONE) {
      ASSERT_EQ(::bind(ends[1], reinterpret_cast<struct sockaddr*>(&name), sizeof name), 0);
    }
    datagram.nlmsg_type = static_cast<unsigned short>(type);
    std::atomic<bool> over = false;
    std::thread sender([&] {
      while (!over && type != 0) ::send(ends[1], &datagram, sizeof datagram, MSG_DONTWAIT);
    });
    const Alarms alarms;
    unsigned char reply[999];
    std::size_t length = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(30);
    EXPECT_EQ(hostnet_readRoute(ends[0], deadline, reply, sizeof reply, &length), ETIMEDOUT);
    over = true;
    sender.join();
    for (const int end : ends) ::close(end);
  }
}

}  // namespace
