#include "base/osal/MacOS/UxosalTools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "TempFolder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A folder of scripts at the front of PATH.
class Tools {
 public:
  Tools() : path_(std::getenv("PATH")) {
    ::setenv("PATH", (folder_.path().string() + ":" + path_).c_str(), 1);
  }
  Tools(const Tools&) = delete;
  Tools& operator=(const Tools&) = delete;
  ~Tools() { ::setenv("PATH", path_.c_str(), 1); }

  void add(const std::string& name, const std::string& body) const {
    std::ofstream(folder_ / name) << "#!/bin/sh\n" << body;
    std::filesystem::permissions(folder_ / name, std::filesystem::perms::owner_all);
  }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream file(folder_ / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] std::string operator/(const std::string& name) const { return folder_ / name; }

 private:
  TempFolder folder_;
  std::string path_;
};

/// Prints `text` as it is.
std::string print(const std::string& text) { return "cat <<'END'\n" + text + "\nEND\n"; }

TEST(Commands, GiveTheirOutput) {
  constexpr struct {
    const char* command;
    const char* result;
    const char* output;
  } kCases[] = {
      {"true", "", ""},
      {"printf ''", "", ""},
      {"printf 'a'", "a", "a"},
      {"echo a; exit 3", "a", "a\n"},
      {"printf 'a\\n\\n'", "a\n", "a\n\n"},
      {"printf '\\n'", "", "\n"},
      {"echo a | tr a b", "b", "b\n"},
  };
  for (const auto& [command, result, output] : kCases) {
    SCOPED_TRACE(command);
    EXPECT_EQ(resultOfCommand(command), result);
    EXPECT_EQ(executeCommand(command), output);
  }
  for (const std::size_t size : {127U, 128U, 129U, 255U, 256U, 257U, 512U, 100000U}) {
    SCOPED_TRACE(size);
    const std::string command = "head -c " + std::to_string(size) + " /dev/zero | tr '\\0' x";
    EXPECT_EQ(resultOfCommand(command), std::string(size, 'x'));
    EXPECT_EQ(executeCommand(command), std::string(size, 'x'));
  }
}

TEST(Commands, ReportAShellThatCannotBeStarted) {
  struct rlimit limit {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const struct rlimit none = {3, limit.rlim_max};
  LogCapture log(QDLOG_OSAL, 5);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string result = resultOfCommand("echo a");
  const std::string output = executeCommand("echo b");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(result, "");
  EXPECT_EQ(output, "");
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR popen failed on command \"echo a\"",
                                       "OSAL:WRN Error executing command: echo b"));
}

TEST(Commands, RunOneAtATime) {
  const TempFolder folder;
  const std::string command =
      "mkdir '" + (folder / "busy") + "' && rmdir '" + (folder / "busy") + "' && echo alone";
  std::atomic<int> alone = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 5; ++n) {
        if (resultOfCommand(command) == "alone") ++alone;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(alone, 20);
}

TEST(UxosalTools, TakesTheSerialNumberOutOfItsQuotes) {
  const Tools tools;
  tools.add("ioreg", "[ \"$*\" = -l ] || exit 1\n" +
                         print("  | \"IOPlatformUUID\" = \"X\"\n"
                               "  |   \"IOPlatformSerialNumber\" = \"C02ABC123\"\n"));
  LogCapture log(QDLOG_OSAL, 5);
  EXPECT_EQ(osal_getSerialNumber(), "C02ABC123");
  EXPECT_THAT(log.lines(), IsEmpty());
  tools.add("ioreg", "");
  EXPECT_EQ(osal_getSerialNumber(), "");
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Unable to retrieve serial number."));
}

TEST(UxosalTools, ListsTheAddressesOfAllInterfaces) {
  const Tools tools;
  tools.add("ifconfig", print("lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n"
                              "\tinet 127.0.0.1 netmask 0xff000000\n"
                              "\tinet6 ::1 prefixlen 128\n"
                              "\tinet6 fe80::1%lo0 prefixlen 64 scopeid 0x1\n"
                              "en0: flags=8863<UP,BROADCAST> mtu 1500\n"
                              "\tether a4:83:e7:00:11:22\n"
                              "\tinet 192.168.1.5 netmask 0xffffff00\n"
                              "en1: flags=8863<UP>\n"
                              "\tether a4:83:e7:00:11:23\n"));
  EXPECT_EQ(osal_getMACAddress(), "a4:83:e7:00:11:22\na4:83:e7:00:11:23");
  EXPECT_EQ(osal_getIPv4Address(), "127.0.0.1\n192.168.1.5");
  EXPECT_EQ(osal_getIPv6Address(), "::1\nfe80::1");
  tools.add("ifconfig", "");
  EXPECT_EQ(osal_getMACAddress(), "");
  EXPECT_EQ(osal_getIPv4Address(), "");
  EXPECT_EQ(osal_getIPv6Address(), "");
}

TEST(UxosalTools, AsksForTheLocaleOfAPlainNameOnly) {
  const Tools tools;
  tools.add("sudo", "echo \"$#:$*\" >> '" + (tools / "asked") + "'; echo fr_FR\n");
  constexpr struct {
    const char* last;
    int result;
    const char* user;
    const char* asked;
  } kCases[] = {
      {"alice  console  Mon Jan  1", 0, "alice", "6:-u alice defaults read -g AppleLocale\n"},
      {"a.b_c-9  tty1", 0, "a.b_c-9", "6:-u a.b_c-9 defaults read -g AppleLocale\n"},
      {"$(reboot)  tty1", 0, "$(reboot)", ""},
      {"a\"b  tty1", 0, "a\"b", ""},
      {"", -1, "before", ""},
  };
  for (const auto& [last, result, expected, asked] : kCases) {
    SCOPED_TRACE(last);
    tools.add("last", "[ \"$*\" = -1w ] || exit 1\n" + print(std::string(last) + "\nwtmp begins"));
    std::filesystem::remove(tools / "asked");
    std::string user = "before";
    EXPECT_EQ(osal_getLastLogonName(user), result);
    EXPECT_EQ(user, expected);
    EXPECT_EQ(tools.read("asked"), asked);
  }
}

}  // namespace
