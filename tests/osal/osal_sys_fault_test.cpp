// What a failure of the system is reported as. The linker sends the calls here (see --wrap in
// CMakeLists.txt).

#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string_view>

#include "Said.h"
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

TEST(OsalSysFault, IsLoggedWhereItHappensAndWritesNothing) {
  unsigned long long ms = 7;
  int seconds = 7;
  OSAL_uname u;
  unsigned char text[64] = "before";
  const struct {
    const char* function;
    std::function<int()> operation;
    const char* said;
  } kCases[] = {
      {"gettimeofday", [&] { return osal_getMs(&ms); }, "-1 ERR Cannot get time of day (1)"},
      {"nanosleep", [] { return osal_doSleep(0); },
       "-1 DBG Sleeping 0 ms | EL2 Cannot sleep ! (1)"},
      {"time", [&] { return osal_getTZOffset(&seconds); }, "-1 ERR Cannot get time: 1"},
      {"time", [&] { return osal_formated_time(text, false, 0, true); },
       "-1 ERR Cannot get time: 1"},
      {"uname", [&] { return osal_GetUname(u); }, "-1 ERR osal_GetUname -> error 1"},
      {"uname", [] { return isEmulation() ? 1 : 0; }, "0"},
      {"gethostname", [] { return static_cast<int>(osal_getHostname().size()); },
       "0 ERR osal_getHostname -> error 1"},
      {"gethostname", [] { return isHostLocal("machine") ? 1 : 0; },
       "0 ERR isHostLocal: error on gethostname (1)"},
  };
  Said said("OSAL:6;");
  for (const auto& [function, operation, expected] : kCases) {
    failing = function;
    const int result = operation();
    failing = {};
    EXPECT_EQ(said(result), expected);
  }
  EXPECT_EQ(ms, 7U);
  EXPECT_EQ(seconds, 7);
  EXPECT_EQ(*text, '\0');
}

TEST(OsalSysFault, LeavesTheMachineWithoutADescription) {
  char osText[1025] = "before";
  char archName[1025] = "before";
  unsigned int flags = 0;
  failing = "uname";
  const int result = getsysinfo(osText, archName, &flags);
  failing = {};
  EXPECT_EQ(result, -1);
  EXPECT_STREQ(archName, "");
  EXPECT_STRNE(osText, "before");
  EXPECT_EQ(flags, 0x300U);
}

}  // namespace
