#include "osal/osal_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

namespace {

TEST(OsalMemory, SumsWhatIsSharedWithNobody) {
  using enum HostShareMode;
  EXPECT_EQ(osal_privateBytes({}, 4096), 0U);
  EXPECT_EQ(osal_privateBytes({{1000, Private, 9, 1}}, 4096), 1000U);
  EXPECT_EQ(osal_privateBytes({{1000, CopyOnWrite, 1, 5}}, 4096), 1000U);
  EXPECT_EQ(osal_privateBytes({{1000, CopyOnWrite, 2, 5}}, 4096), 20480U);
  EXPECT_EQ(osal_privateBytes({{1000, CopyOnWrite, 0, 5}}, 4096), 20480U);
  EXPECT_EQ(osal_privateBytes({{1000, Other, 1, 5}}, 4096), 0U);
  EXPECT_EQ(osal_privateBytes({{1ULL << 40, Private, 1, 0}, {7, Private, 1, 0}}, 4096),
            (1ULL << 40) + 7);
}

TEST(OsalMemory, SeesMemoryThatIsUsed) {
  constexpr unsigned long kSize = 64UL << 20;
  void* const block = osal_procAlloc(kSize);
  ASSERT_NE(block, nullptr);
  std::memset(block, 1, kSize);
  unsigned int privateMiB = 0;
  unsigned int residentMiB = 0;
  unsigned long long physicalMiB = 0;
  EXPECT_EQ(osal_getRAMInfos(privateMiB, residentMiB, physicalMiB), 0);
  osal_procFree(block);
  EXPECT_GE(privateMiB, 64U);
  EXPECT_GE(residentMiB, 64U);
  EXPECT_GE(physicalMiB, residentMiB);
#if defined(__linux__)
  std::string key;
  unsigned long long kib = 0;
  std::ifstream("/proc/meminfo") >> key >> kib;
  ASSERT_EQ(key, "MemTotal:");
  EXPECT_EQ(physicalMiB, kib / 1024);
#endif
}

}  // namespace
