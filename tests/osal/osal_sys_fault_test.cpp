// What a failure of the system is reported as. The linker sends the calls here (see --wrap in
// CMakeLists.txt).

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "LogCapture.h"
#include "base/osal/osalnet.h"
#include "osal/osal_sys.h"

namespace {

std::string_view failing;

bool fails(std::string_view function) {
  if (failing != function) return false;
  errno = EPERM;
  return true;
}

}  // namespace

#define FAILS(type, name, parameters, arguments) \
  type __real_##name parameters;                 \
  type __wrap_##name parameters { return fails(#name) ? -1 : __real_##name arguments; }

extern "C" {
FAILS(int, gettimeofday, (struct timeval * value, void* zone), (value, zone))
FAILS(int, nanosleep, (const struct timespec* pause, struct timespec* left), (pause, left))
FAILS(time_t, time, (time_t * value), (value))
FAILS(int, uname, (struct utsname * system), (system))
FAILS(int, gethostname, (char* name, size_t size), (name, size))
}

namespace {

using ::testing::ElementsAreArray;

TEST(OsalSysFault, IsLoggedWhereItHappens) {
  const struct {
    const char* function;
    int (*operation)();
    std::vector<std::string> lines;
  } kCases[] = {
      {"gettimeofday",
       [] {
         unsigned long long ms = 7;
         const int result = osal_getMs(&ms);
         return ms == 7 ? result : -2;
       },
       {"OSAL:ERR Cannot get time of day (1)"}},
      {"nanosleep",
       [] { return osal_doSleep(0); },
       {"OSAL:DBG Sleeping 0 ms", "OSAL:EL2 Cannot sleep ! (1)"}},
      {"time",
       [] {
         int seconds = 7;
         const int result = osal_getTZOffset(&seconds);
         return seconds == 7 ? result : -2;
       },
       {"OSAL:ERR Cannot get time: 1"}},
      {"time",
       [] {
         unsigned char text[64] = "before";
         const int result = osal_formated_time(text, false, 0, true);
         return *text == '\0' ? result : -2;
       },
       {"OSAL:ERR Cannot get time: 1"}},
      {"uname",
       [] {
         OSAL_uname u;
         return osal_GetUname(u);
       },
       {"OSAL:ERR osal_GetUname -> error 1"}},
      {"gethostname",
       [] { return osal_getHostname().empty() ? -1 : 0; },
       {"OSAL:ERR osal_getHostname -> error 1"}},
      {"gethostname",
       [] { return isHostLocal("machine") ? 0 : -1; },
       {"OSAL:ERR isHostLocal: error on gethostname (1)"}},
  };
  for (const auto& [function, operation, lines] : kCases) {
    SCOPED_TRACE(lines.back());
    LogCapture log(QDLOG_OSAL, 6);
    failing = function;
    const int result = operation();
    failing = {};
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.lines(), ElementsAreArray(lines));
  }
}

TEST(OsalSysFault, LeavesTheMachineWithoutADescription) {
  char osText[1025] = "before";
  char archName[1025] = "before";
  unsigned int flags = 0;
  failing = "uname";
  const int result = getsysinfo(osText, archName, &flags);
  const bool emulation = isEmulation();
  failing = {};
  EXPECT_EQ(result, -1);
  EXPECT_STREQ(archName, "");
  EXPECT_STRNE(osText, "before");
  EXPECT_EQ(flags, 0x300U);
  EXPECT_FALSE(emulation);
}

}  // namespace
