#include "base/osal/MacOS/UxosalTools.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

#include "logging/QDLog.h"
#include "osal/osal_host.h"

namespace {

constexpr const char* kSerialNumberCommand =
    "ioreg -l | grep 'IOPlatformSerialNumber' | awk '/IOPlatformSerialNumber/ {print $4}'";
constexpr const char* kMacAddressCommand =
    "ifconfig | grep -o -E '([0-9a-fA-F]{2}:){5}([0-9a-fA-F]{2})'";
constexpr const char* kIPv4Command = "ifconfig | grep \"inet \" | awk '{print $2}'";
constexpr const char* kIPv6Command =
    "ifconfig | grep 'inet6' | awk '/inet6/ {print $2}' | cut -d '%' -f1";
constexpr const char* kLastUserCommand = "last -1w | cut -f 1 -d \" \" | head -n 1";

std::mutex popenMutex;

struct ClosePipe {
  void operator()(std::FILE* pipe) const noexcept { ::pclose(pipe); }
};
using PipePtr = std::unique_ptr<std::FILE, ClosePipe>;

PipePtr startCommand(const std::string& command) {
  PipePtr pipe(::popen(command.c_str(), "r"));
  if (pipe) ::fcntl(::fileno(pipe.get()), F_SETFD, FD_CLOEXEC);
  return pipe;
}

template <std::size_t Piece>
std::string readToEnd(std::FILE* pipe) {
  std::string output;
  std::array<char, Piece> piece;
  while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), pipe)) {
    output.append(piece.data(), got);
  }
  return output;
}

std::string withoutLastCharacter(std::string text) {
  if (!text.empty()) text.pop_back();
  return text;
}

/// Whether the name is the same text inside a shell command's double quotes.
bool isPlainName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
  });
}

}  // namespace

std::string resultOfCommand(const std::string& command) {
  const std::lock_guard guard(popenMutex);
  const PipePtr pipe = startCommand(command);
  if (!pipe) {
    QDLOG(OSAL, ERR, "popen failed on command \"" << command << '"');
    return {};
  }
  std::string output = readToEnd<256>(pipe.get());
  return output.ends_with('\n') ? withoutLastCharacter(std::move(output)) : output;
}

std::string executeCommand(const std::string& command) {
  const PipePtr pipe = startCommand(command);
  if (!pipe) {
    QDLOG(OSAL, WRN, "Error executing command: " << command);
    return {};
  }
  return readToEnd<128>(pipe.get());
}

std::string osal_getSerialNumber() {
  std::string serial = executeCommand(kSerialNumberCommand);
  std::erase_if(serial, [](char c) { return c == '\n' || c == '"'; });
  if (serial.empty()) QDLOG(OSAL, ERR, "Unable to retrieve serial number.");
  return serial;
}

std::string osal_getMACAddress() {
  return withoutLastCharacter(executeCommand(kMacAddressCommand));
}

std::string osal_getIPv4Address() { return withoutLastCharacter(executeCommand(kIPv4Command)); }

std::string osal_getIPv6Address() { return withoutLastCharacter(executeCommand(kIPv6Command)); }

std::string osal_getFinderUser() {
  std::string user;
  if (host_consoleUser(user) != 0 || user == "loginwindow" || user == "root") return {};
  return user;
}

int osal_getLastLogonName(std::string& user) {
  const std::string name = resultOfCommand(kLastUserCommand);
  if (name.empty()) return -1;
  if (isPlainName(name)) {
    const std::string locale =
        resultOfCommand("sudo -u \"" + name + "\" defaults read -g AppleLocale");
    QDLOG(OSAL, DBG, "Locale of \"" << name << "\" is \"" << locale << '"');
  }
  user = name;
  return 0;
}

int osal_macOSReleaseGet(int* major) {
  std::string release;
  if (const int error = host_kernelRelease(release); error != 0) {
    QDLOG(OSAL, ERR, "Cannot get kernel release (" << error << ")");
    return -1;
  }
  *major = std::atoi(release.substr(0, release.find('.')).c_str());
  return 0;
}
