// What is made of a host's answers. The host is the test's own: this program defines every function
// of the seam, so that nothing of the system's side is linked.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "LogCapture.h"
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
  std::string failing = {};  ///< the call that fails, with `error`
  int error = EIO;
  std::string text = {};  ///< what every text is
  std::vector<HostLinkAddress> links = {};
  int foreignReplies = 0;  ///< that come before the deadline has passed
  std::chrono::steady_clock::time_point deadline = {};
} host;

template <typename Value>
int answer(const char* call, Value& output, const Value& value) {
  if (host.failing == call) return host.error;
  output = value;
  return 0;
}
int answer(const char* call) { return host.failing == call ? host.error : 0; }

}  // namespace

int host_productVersion(std::string& version) { return answer("version", version, host.text); }
int host_productVersionNumbers(std::array<int, 3>& numbers) {
  return answer("numbers", numbers, {13, 2, 1});
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
int hostnet_interfaces(std::vector<HostInterface>&) { return EIO; }
int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  return answer("links", addresses, host.links);
}

namespace {

/// Everything that asks the host, and what it got: numbers and texts with blanks between them.
std::string askAll() {
  std::ostringstream all;
  char uid[33] = "-";
  unsigned char name[99] = "-";
  unsigned int privateMiB = 0;
  unsigned int residentMiB = 0;
  unsigned long long physicalMiB = 0;
  int major = 0;
  _sockRequest_buff buffer;
  osal_getHostUID(uid, sizeof uid);
  osal_getcomputername(name, sizeof name);
  osal_getRAMInfos(privateMiB, residentMiB, physicalMiB);
  osal_macOSReleaseGet(&major);
  _sockRequest(nullptr, &buffer, nullptr, nullptr);
  all << std::string(uid).substr(0, 4) << ' ' << name << ' ' << osal_getRunTimeSecs() << ' '
      << privateMiB << '/' << residentMiB << '/' << physicalMiB << ' ' << major << ' '
      << osal_getFinderUser() << ' ' << osalsysinfo_macOS();
  return all.str();
}

TEST(OnOurHost, WhatFailsIsReportedAndLeavesTheRest) {
  const std::string all = "AB01 14.5 5 5/7/16777216 14 14.5 macOS 14.5 (Sonoma)";
  const std::string ram = "AB01 14.5 5 0/0/0 14 14.5 macOS 14.5 (Sonoma)";
  const std::string ramError = "ERR Cannot get memory information (5) | ";
  const std::string socket = "ERR _sockRequest: error ";
  const std::string reading = socket + "reading in the socket";
  const struct {
    const char* failing;
    std::string expected;
    std::string said;
    int error = EIO;
  } kCases[] = {
      {"", all, reading},
      {"uuid", "-" + all.substr(4), "ERR gethostuuid failed with error 5 | " + reading},
      {"name", "AB01 -" + all.substr(9), "EL2 Error getting computer name | " + reading},
      {"name", "AB01 -" + all.substr(9), "ERR Error converting computer name | " + reading, EILSEQ},
      {"resident", ram, ramError + reading},
      {"regions", ram, ramError + reading},
      {"physical", ram, ramError + reading},
      {"upTime", "AB01 14.5 0" + all.substr(11), reading + " | ERR Cannot get up-time (5)"},
      {"release", "AB01 14.5 5 5/7/16777216 0 14.5 macOS 14.5 (Sonoma)",
       "ERR Cannot get kernel release (5) | " + reading},
      {"user", "AB01 14.5 5 5/7/16777216 14  macOS 14.5 (Sonoma)", reading},
      {"version", "AB01 14.5 5 5/7/16777216 14 14.5 macOS 13.2 (Ventura)", reading},
      {"open", all, socket + "opening socket"},
      {"write", all, socket + "writing in the socket"},
  };
  for (const auto& c : kCases) {
    host = {.failing = c.failing, .error = c.error, .text = "14.5"};
    LogCapture said("OSAL:3;");
    EXPECT_EQ(askAll(), c.expected + (isEmulation() ? " (Emulated)" : ""));
    EXPECT_EQ(said(), c.said);
  }
  const int nice = ::getpriority(PRIO_PROCESS, 0) - static_cast<int>(BASE_POSIX_PRIORITY_DELTA);
  host = {.failing = "nice"};
  LogCapture said("OSAL:3;");
  osal_AdjustProcessPriority(true);
  if (::geteuid() == 0) {
    EXPECT_EQ(said(), "WRN Cannot set process priority (5) to " + std::to_string(nice));
  }
}

TEST(OnOurHost, TheRoutingQuestionEndsFiveSecondsAfterItWasAsked) {
  using Clock = std::chrono::steady_clock;
  host = {.foreignReplies = 1000};
  const Clock::time_point before = Clock::now() + std::chrono::seconds(5);
  _sockRequest_buff buffer;
  EXPECT_EQ(_sockRequest(nullptr, &buffer, nullptr, nullptr), -1);
  EXPECT_EQ(host.foreignReplies, -1);
  EXPECT_TRUE(before <= host.deadline && host.deadline <= Clock::now() + std::chrono::seconds(5));
}

TEST(OnOurHost, TheHardwareAddressIsTheFirstThatIsOneUnlessEn0HasOne) {
  const auto link = [](const char* name, unsigned char byte) {
    HostLinkAddress address{name, {}};
    address.address.fill(byte);
    return address;
  };
  const std::pair<std::vector<HostLinkAddress>, int> kCases[] = {
      {{link("lo", 0), link("x", 0xFF)}, -1},
      {{link("lo", 0), link("eth0", 1), link("eth1", 2)}, 1},
      {{link("eth0", 1), link("en1", 2), link("en0", 3), link("eth2", 4)}, 3},
      {{link("en0", 3), link("eth0", 1)}, 3},
      {{link("en0", 0), link("eth0", 1), link("en0", 0xFF)}, 1}};
  std::array<unsigned char, 6> mac{};
  for (const auto& [links, expected] : kCases) {
    host = {.links = links};
    EXPECT_EQ(getMACAddress(mac.data()) ? mac[0] : -1, expected);
  }
  LogCapture said("OSAL:3;");
  host = {.failing = "links"};
  EXPECT_EQ(said(getMACAddress(mac.data())), "0 ERR getMACAddress: error on getifaddrs (5)");
}

TEST(OnOurHost, TheConsolesUserIsAPerson) {
  for (const auto& [text, user] : {std::pair("anna", "anna"), {"loginwindow", ""}, {"root", ""}}) {
    host = {.text = text};
    EXPECT_EQ(osal_getFinderUser(), user);
  }
}

}  // namespace
