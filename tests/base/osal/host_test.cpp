// What is made of a host's answers. The host is the test's own: this program defines every function
// of the seam, so that nothing of the system's side is linked.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "Said.h"
#include "base/osal/MacOS/UxosalTools.h"
#include "base/osal/osalnet.h"
#include "base/osal/osalsysinfo.h"
#include "ground/qdTunablesBaseValues.h"
#include "osal/osal_host.h"
#include "osal/osal_hostnet.h"
#include "osal/osal_sys.h"

namespace {

constexpr std::uint64_t kMiB = 1U << 20;

struct Host {
  int error = 0;  ///< of every call, or of `failing` alone
  std::string failing;
  std::string text;  ///< what every text is
  std::array<int, 3> numbers{13, 2, 1};
  std::vector<HostInterface> interfaces;
  std::vector<HostLinkAddress> links;
  int foreignReplies = 0;  ///< that come before the deadline has passed
  std::chrono::steady_clock::time_point deadline;
} host;

template <typename Value>
int answer(const char* call, Value& output, const Value& value) {
  if (host.error != 0 && (host.failing.empty() || host.failing == call)) return host.error;
  output = value;
  return 0;
}
int answer(const char* call) {
  int none = 0;
  return answer(call, none, 0);
}

}  // namespace

int host_productVersion(std::string& version) { return answer("version", version, host.text); }
int host_productVersionNumbers(std::array<int, 3>& numbers) {
  numbers = host.numbers;
  return ENOENT;
}
int host_productName(std::string& name) { return answer("product", name, host.text); }
int host_kernelRelease(std::string& release) { return answer("release", release, host.text); }
int host_uuid(std::array<unsigned char, 16>& uuid) { return answer("uuid", uuid, {0xAB, 1}); }
int host_machineName(std::string& name) { return answer("name", name, host.text); }
int host_upTimeMs(std::uint64_t& ms) { return answer("upTime", ms, std::uint64_t{5999}); }
int host_consoleUser(std::string& user) { return answer("user", user, host.text); }
int host_setNice(int) { return answer("nice"); }
int host_memoryRegions(std::vector<HostMemoryRegion>& regions) {
  const auto pages = static_cast<unsigned int>(kMiB / static_cast<unsigned>(::getpagesize()));
  return answer("regions", regions,
                {{3 * kMiB, HostShareMode::Private, 9, 0},
                 {kMiB, HostShareMode::CopyOnWrite, 1, 0},
                 {9 * kMiB, HostShareMode::CopyOnWrite, 2, pages},
                 {9 * kMiB, HostShareMode::Other, 1, pages}});
}
int host_residentSize(std::uint64_t& bytes) { return answer("resident", bytes, 8 * kMiB - 1); }
int host_physicalMemory(std::uint64_t& bytes) { return answer("physical", bytes, kMiB << 24); }
int hostnet_openRoute(ScopedFd&) { return answer("open"); }
int hostnet_writeRoute(int, const void*, std::size_t) { return answer("write"); }
int hostnet_readRoute(int, std::chrono::steady_clock::time_point deadline, void* message,
                      std::size_t, std::size_t* length) {
  host.deadline = deadline;
  if (host.foreignReplies-- <= 0) return ETIMEDOUT;
  *length = sizeof(routemsg::Header);
  std::memset(message, 0, *length);
  return 0;
}
int hostnet_interfaces(std::vector<HostInterface>& interfaces) {
  return answer("interfaces", interfaces, host.interfaces);
}
int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  return answer("links", addresses, host.links);
}

namespace {

class OnOurHost : public testing::Test {
 protected:
  ~OnOurHost() override { host = {}; }

  static int hostUid() {
    char buffer[33];
    return osal_getHostUID(buffer, sizeof buffer);
  }
  static int computerName() {
    unsigned char buffer[99];
    return osal_getcomputername(buffer, sizeof buffer);
  }
  static int ramInfos() {
    unsigned int small = 0;
    unsigned long long large = 0;
    return osal_getRAMInfos(small, small, large);
  }
  static int route() {
    _sockRequest_buff buffer;
    return _sockRequest(nullptr, &buffer, nullptr, nullptr);
  }

  Said said{"OSAL:5;"};
};

TEST_F(OnOurHost, ACallThatFailsIsReported) {
  const std::string ram = "-1 ERR Cannot get memory information (5)";
  const std::string socket = "-1 ERR _sockRequest: error ";
  const int nice = ::getpriority(PRIO_PROCESS, 0) - static_cast<int>(BASE_POSIX_PRIORITY_DELTA);
  const struct {
    std::string failing;
    std::function<int()> call;
    std::string said;
    int error = EIO;
  } kCases[] = {
      {"uuid", hostUid, "-1 ERR gethostuuid failed with error 5"},
      {"name", computerName, "-1 EL2 Error getting computer name"},
      {"name", computerName, "-1 ERR Error converting computer name", EILSEQ},
      {"upTime", [] { return static_cast<int>(osal_getRunTimeSecs()); },
       "0 ERR Cannot get up-time (5)"},
      {"resident", ramInfos, ram},
      {"regions", ramInfos, ram},
      {"physical", ramInfos, ram},
      {"release", [] { return osal_macOSReleaseGet(nullptr); },
       "-1 ERR Cannot get kernel release (5)"},
      {"nice", [] { return osal_AdjustProcessPriority(true), 0; },
       ::geteuid() != 0 ? "0" : "0 WRN Cannot set process priority (5) to " + std::to_string(nice)},
      {"links",
       [] { return static_cast<int>(getMACAddress(std::array<unsigned char, 6>{}.data())); },
       "0 ERR getMACAddress: error on getifaddrs (5)"},
      {"open", route, socket + "opening socket"},
      {"write", route, socket + "writing in the socket"},
  };
  for (const auto& c : kCases) {
    host.failing = c.failing;
    host.error = c.error;
    EXPECT_EQ(said(c.call()), c.said);
  }
}

TEST_F(OnOurHost, TheRoutingQuestionEndsFiveSecondsAfterItWasAsked) {
  using Clock = std::chrono::steady_clock;
  host.foreignReplies = 1000;
  const Clock::time_point before = Clock::now() + std::chrono::seconds(5);
  EXPECT_EQ(said(route()), "-1 ERR _sockRequest: error reading in the socket");
  EXPECT_EQ(host.foreignReplies, -1);
  EXPECT_TRUE(before <= host.deadline && host.deadline <= Clock::now() + std::chrono::seconds(5));
}

TEST_F(OnOurHost, TheHardwareAddressIsTheFirstThatIsOneUnlessEn0HasOne) {
  const auto link = [](const char* name, unsigned char byte) {
    HostLinkAddress address{name, {}};
    address.address.fill(byte);
    return address;
  };
  const std::pair<std::vector<HostLinkAddress>, int> kCases[] = {
      {{}, -1},
      {{link("lo", 0), link("x", 0xFF)}, -1},
      {{link("lo", 0), link("eth0", 1), link("eth1", 2)}, 1},
      {{link("eth0", 1), link("en1", 2), link("en0", 3), link("eth2", 4)}, 3},
      {{link("en0", 3), link("eth0", 1)}, 3},
      {{link("en0", 0), link("eth0", 1), link("en0", 0xFF)}, 1}};
  for (const auto& [links, expected] : kCases) {
    host.links = links;
    std::array<unsigned char, 6> mac{};
    EXPECT_EQ(getMACAddress(mac.data()) ? mac[0] : -1, expected);
  }
}

TEST_F(OnOurHost, TextsAreTakenAsTheyAreMeant) {
  const bool emulated = isEmulation();
  for (const auto& [text, user, system] : std::initializer_list<std::array<std::string, 3>>{
           {"anna", "anna", "macOS 0.0.0"},
           {"loginwindow", "", "macOS 13.2 (Ventura)"},
           {"root", "", "macOS 0.0.0"},
           {"14.5", "14.5", "macOS 14.5 (Sonoma)"},
           {"14.", "14.", "macOS 13.2 (Ventura)"}}) {
    host.text = text;
    EXPECT_EQ(osal_getFinderUser(), user);
    EXPECT_EQ(osalsysinfo_macOS(), system + (emulated ? " (Emulated)" : ""));
  }
  int major = 0;
  host.text = "23.5.0";
  EXPECT_EQ(osal_macOSReleaseGet(&major), 0);
  EXPECT_EQ(major, 23);
  host.error = EILSEQ;
  EXPECT_EQ(osal_getFinderUser(), "");
  EXPECT_EQ(osalsysinfo_macOS(),
            std::string("macOS 13.2 (Ventura)") + (emulated ? " (Emulated)" : ""));
}

TEST_F(OnOurHost, NumbersAreRoundedDown) {
  unsigned int privateMiB = 0;
  unsigned int residentMiB = 0;
  unsigned long long physicalMiB = 0;
  EXPECT_EQ(osal_getRAMInfos(privateMiB, residentMiB, physicalMiB), 0);
  EXPECT_EQ(privateMiB, 5U);
  EXPECT_EQ(residentMiB, 7U);
  EXPECT_EQ(physicalMiB, 1ULL << 24);
  EXPECT_EQ(osal_getRunTimeSecs(), 5U);
}

TEST_F(OnOurHost, AnInterfaceIsOfAKindOrItsName) {
  using enum HostInterfaceKind;
  const std::pair<HostInterfaceKind, const char*> kCases[] = {
      {Bluetooth, "WiFi"},    {Ieee80211, "WiFi"},    {Wwan, "WiFi"}, {Bond, "Ethernet"},
      {Ethernet, "Ethernet"}, {FireWire, "Ethernet"}, {Ppp, "PPP"},   {Other, "en7"}};
  char text[1025];
  for (const auto& [kind, expected] : kCases) {
    host.interfaces = {{"en70", Ppp}, {"en7", kind}, {"lo0", Ppp}};
    EXPECT_EQ(_getInterface("en7", text), 0);
    EXPECT_STREQ(text, expected);
  }
  for (const auto& [name, expected] :
       {std::pair("lo0", "Loopback"), {"lo", "lo"}, {"en8", "en8"}}) {
    EXPECT_EQ(_getInterface(name, text), 0);
    EXPECT_STREQ(text, expected);
  }
}

}  // namespace
