#include <pwd.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/osal/Linux/keyfile.h"
#include "ground/osal_hex.h"
#include "osal/osal_host.h"

namespace {

int osRelease(const char* key, std::string& value) {
  const int error = keyfile_value("/etc/os-release", key, value);
  return error == ENOENT ? keyfile_value("/usr/lib/os-release", key, value) : error;
}

int userName(uid_t uid, std::string& name) {
  char buffer[16384];
  struct passwd entry {};
  struct passwd* found = nullptr;
  if (const int error = ::getpwuid_r(uid, &entry, buffer, sizeof buffer, &found); error != 0) {
    return error;
  }
  if (found == nullptr) return ENOENT;
  name = found->pw_name;
  return 0;
}

}  // namespace

int host_productVersion(std::string& version) { return osRelease("VERSION_ID", version); }

int host_productVersionNumbers(std::array<int, 3>& numbers) {
  struct utsname system {};
  if (::uname(&system) != 0) return errno;
  // Read into a copy: what follows the numbers ("-amd64") is no fault.
  std::array<int, 3> read{};
  if (std::sscanf(system.release, "%9d.%9d.%9d", &read[0], &read[1], &read[2]) < 1) return EINVAL;
  numbers = read;
  return 0;
}

int host_productName(std::string& name) { return osRelease("PRETTY_NAME", name); }

int host_kernelRelease(std::string& release) {
  struct utsname system {};
  if (::uname(&system) != 0) return errno;
  release = system.release;
  return 0;
}

int host_uuid(std::array<unsigned char, 16>& uuid) {
  std::string text;
  if (const int error = keyfile_read("/etc/machine-id", text); error != 0) return error;
  if (text.size() < 2 * uuid.size()) return EINVAL;
  std::array<unsigned char, 16> read{};
  for (std::size_t i = 0; i < read.size(); ++i) {
    const std::uint8_t high = osal_hexValue(static_cast<std::uint8_t>(text[2 * i]));
    const std::uint8_t low = osal_hexValue(static_cast<std::uint8_t>(text[2 * i + 1]));
    // "uninitialized" until the first boot is complete.
    if (high == kNoHexDigit || low == kNoHexDigit) return EINVAL;
    read[i] = static_cast<unsigned char>(high << 4 | low);
  }
  uuid = read;
  return 0;
}

int host_machineName(std::string& name) {
  std::string pretty;
  if (keyfile_value("/etc/machine-info", "PRETTY_HOSTNAME", pretty) == 0 && !pretty.empty()) {
    name = pretty;
    return 0;
  }
  char host[1025] = {};
  if (::gethostname(host, sizeof host - 1) != 0) return errno;
  if (*host == '\0') return ENOENT;
  name = host;
  return 0;
}

int host_upTimeMs(std::uint64_t& ms) {
  struct timespec sinceBoot {};
  if (::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) return errno;
  ms = static_cast<std::uint64_t>(sinceBoot.tv_sec) * 1000 +
       static_cast<std::uint64_t>(sinceBoot.tv_nsec) / 1000000;
  return 0;
}

int host_consoleUser(std::string& user) {
  std::string text;
  if (const int error = keyfile_value("/run/systemd/seats/seat0", "ACTIVE_UID", text); error != 0) {
    return error;
  }
  uid_t uid = 0;
  const char* const end = text.data() + text.size();
  if (const auto [last, fault] = std::from_chars(text.data(), end, uid);
      fault != std::errc() || last != end) {
    return EINVAL;
  }
  std::string name;
  if (const int error = userName(uid, name); error != 0) return error;
  if (name.size() > 255) return EILSEQ;
  user = name;
  return 0;
}

int host_setNice(int nice) {
  // The kernel keeps the value for each thread.
  std::error_code fault;
  std::filesystem::directory_iterator threads("/proc/self/task", fault);
  for (const std::filesystem::directory_iterator none; !fault && threads != none;
       threads.increment(fault)) {
    const auto id =
        static_cast<id_t>(std::strtoul(threads->path().filename().c_str(), nullptr, 10));
    if (::setpriority(PRIO_PROCESS, id, nice) != 0 && errno != ESRCH) return errno;
  }
  return fault.value();
}
