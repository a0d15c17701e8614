#include "base/osal/Linux/smaps.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr const char* kText =
    "55d0c0a00000-55d0c0a21000 r-xp 00001000 fe:01 1234                       /usr/bin/x y\n"
    "Size:                132 kB\n"
    "Rss:                  64 kB\n"
    "Private_Clean:         0 kB\n"
    "Private_Dirty:         0 kB\n"
    "VmFlags: rd ex mr mw me sd \n"
    "55d0c0c21000-55d0c0c25000 rw-p 00021000 fe:01 1234                       /usr/bin/x y\n"
    "Private_Clean:         4 kB\n"
    "Private_Dirty:         8 kB\n"
    "55d0c1000000-55d0c1100000 rw-p 00000000 00:00 0                          [heap]\n"
    "Private_Clean:         0 kB\n"
    "Private_Dirty:         4 kB\n"
    "7f0000000000-7f0004000000 ---p 00000000 00:00 0 \n"
    "Private_Dirty:         0 kB\n"
    "7f0010000000-7f0010010000 rw-s 00000000 00:05 99                         /dev/shm/z\n"
    "Private_Dirty:        64 kB\n"
    "7f0020000000-7f0020200000 rw-p 00000000 00:00 0 \n"
    "Private_Hugetlb:    2048 kB";

TEST(Smaps, ReadsRegions) {
  using enum HostShareMode;
  const struct {
    std::uint64_t size;
    HostShareMode shareMode;
    unsigned int pages;
  } kExpected[] = {{0x21000, Other, 0},   {0x4000, CopyOnWrite, 3}, {0x100000, Private, 1},
                   {0x4000000, Other, 0}, {0x10000, Other, 16},     {0x200000, Private, 512}};
  const std::vector<HostMemoryRegion> regions = smaps_parse(kText, 4096);
  ASSERT_EQ(regions.size(), std::size(kExpected));
  for (std::size_t i = 0; i < regions.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(regions[i].size, kExpected[i].size);
    EXPECT_EQ(regions[i].shareMode, kExpected[i].shareMode);
    EXPECT_EQ(regions[i].privateResidentPages, kExpected[i].pages);
    EXPECT_NE(regions[i].referenceCount, 1U);
  }
}

TEST(Smaps, SkipsWhatIsNoRegion) {
  EXPECT_TRUE(smaps_parse("", 4096).empty());
  EXPECT_TRUE(smaps_parse("Private_Dirty: 4 kB\nnonsense\n\n", 4096).empty());
}

}  // namespace
