#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <sys/resource.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cerrno>

#include "base/osal/MacOS/cftext.h"
#include "osal/osal_host.h"

// Gestalt, UpTime and CSCopyMachineName have carried this mark for many releases and still answer.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

namespace {

int sysctlText(const char* name, std::string& text) {
  char buffer[256] = {};
  std::size_t length = sizeof buffer;
  if (::sysctlbyname(name, buffer, &length, nullptr, 0) != 0) return errno;
  text.assign(buffer, length > 0 ? length - 1 : 0);  // the length counts the terminator
  return 0;
}

}  // namespace

int host_productVersion(std::string& version) {
  return sysctlText("kern.osproductversion", version);
}

int host_productVersionNumbers(std::array<int, 3>& numbers) {
  constexpr OSType kSelectors[] = {gestaltSystemVersionMajor, gestaltSystemVersionMinor,
                                   gestaltSystemVersionBugFix};
  int result = 0;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    SInt32 value = 0;
    if (Gestalt(kSelectors[i], &value) == noErr) {
      numbers[i] = value;
    } else {
      result = ENOENT;
    }
  }
  return result;
}

int host_productName(std::string& /*name*/) { return ENOENT; }

int host_kernelRelease(std::string& release) { return sysctlText("kern.osrelease", release); }

int host_uuid(std::array<unsigned char, 16>& uuid) {
  const struct timespec noWait {};
  std::array<unsigned char, 16> read{};
  if (::gethostuuid(read.data(), &noWait) != 0) return errno;
  uuid = read;
  return 0;
}

int host_machineName(std::string& name) {
  const CfPtr<CFStringRef> text(CSCopyMachineName());
  if (!text) return ENOENT;
  const CFIndex length = CFStringGetLength(text.get());
  std::string utf8(
      static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8)),
      '\0');
  CFIndex used = 0;
  const CFIndex converted = CFStringGetBytes(
      text.get(), CFRangeMake(0, length), kCFStringEncodingUTF8, '?', false,
      reinterpret_cast<UInt8*>(utf8.data()), static_cast<CFIndex>(utf8.size()), &used);
  if (converted <= 0) return EILSEQ;
  utf8.resize(static_cast<std::size_t>(used));
  name = utf8;
  return 0;
}

int host_upTimeMs(std::uint64_t& ms) {
  const Nanoseconds upTime = AbsoluteToNanoseconds(UpTime());
  ms = ((static_cast<std::uint64_t>(upTime.hi) << 32) | upTime.lo) / 1000000;
  return 0;
}

int host_consoleUser(std::string& user) {
  const CfPtr<CFStringRef> text(SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr));
  if (!text) return ENOENT;
  return cftext_toUtf8(text.get(), 256, user) ? 0 : EILSEQ;
}

int host_setNice(int nice) { return ::setpriority(PRIO_PROCESS, 0, nice) == 0 ? 0 : errno; }
