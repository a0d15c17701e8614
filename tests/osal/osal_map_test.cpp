#include "osal/osal_map.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "ExpectCall.h"
#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"

#if defined(__linux__)
#include "PosixFaults.h"
#endif

namespace {

namespace fs = std::filesystem;

class OSAL_MapTest : public testing::Test {
 protected:
  void expectUnmapped() {
    EXPECT_EQ(map.fd, -1);
    EXPECT_EQ(map.ptr, nullptr);
    EXPECT_EQ(map.size, 0U);
    EXPECT_EQ(openDescriptors(), before);
  }

  const TempFolder folder;
  const std::string path = folder / "file";
  const std::ptrdiff_t before = openDescriptors();
  LogCapture log{"OSAL:9;"};
  OSAL_Map map;
};

TEST_F(OSAL_MapTest, MapsAndGrows) {
  const struct {
    bool writable;
    unsigned int wanted;
    std::string mapped;
  } kCases[] = {
      {false, 0, "abcdef"},
      {true, 0, "abcdef"},
      {false, 4, "abcd"},
      {true, 4, "abcd"},
      {false, 6, "abcdef"},
      {true, 6, "abcdef"},
      {true, 7, std::string("abcdef\0", 7)},
      {true, 10000, "abcdef" + std::string(9994, '\0')},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(text(c.wanted, c.writable ? " writable" : " read only"));
    writeFile(path, "abcdef");
    char* start = nullptr;
    unsigned int length = 0;
    ASSERT_EQ(map.map(bytes(path), c.writable, c.wanted, &start, &length), 0);
    EXPECT_EQ(start, map.ptr);
    EXPECT_EQ(length, map.size);
    EXPECT_EQ(std::string(start, length), c.mapped);
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_EQ(fs::file_size(path), std::max<std::size_t>(6, c.wanted));
    if (c.writable) start[1] = 'B';
    EXPECT_EQ(map.unmap(true), 0);
    EXPECT_EQ(content(path)[1], c.writable ? 'B' : 'b');
    expectUnmapped();
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(OSAL_MapTest, FailuresLeaveNothingOpen) {
  const std::string empty = folder / "empty";
  const std::string missing = folder / "missing";
  writeFile(empty, "");
  writeFile(path, "abcdef");
  const struct {
    std::string file;
    bool writable;
    unsigned int wanted;
    std::string message;
  } kCases[] = {
      {missing, true, 0, "Cannot open " + code(ENOENT) + " file " + quoted(missing)},
      {path, false, 7, "Cannot expand to size 7B " + code(EINVAL) + " file " + quoted(path)},
      {empty, true, 0, "Cannot map 0B of file " + quoted(empty)},
      {empty, false, 0, "Cannot map 0B of file " + quoted(empty)},
  };
  char* start = nullptr;
  unsigned int length = 99;
  for (const auto& c : kCases) {
    expectCall(log, map.map(bytes(c.file), c.writable, c.wanted, &start, &length), -1,
               {"OSAL:ERR " + c.message});
    expectUnmapped();
  }
  EXPECT_EQ(start, nullptr);
  EXPECT_EQ(length, 99U);
  expectCall(log, map.map(nullptr, false, 0, nullptr, nullptr), -1, {"OSAL:ERR Arguments error"});
}

TEST_F(OSAL_MapTest, FourGibibytesAreTooMany) {
  writeFile(path, "");
  fs::resize_file(path, 4'294'967'296);
  expectCall(
      log, map.map(bytes(path), false, 1, nullptr, nullptr), -1,
      {"OSAL:ERR Size too big or incoherent (st_size = 4294967296) for file " + quoted(path)});
  expectUnmapped();
  fs::resize_file(path, 4'294'967'295);
  expectCall(log, map.map(bytes(path), false, 0, nullptr, nullptr), 0);
  EXPECT_EQ(map.size, 4'294'967'295U);
}

TEST_F(OSAL_MapTest, ASecondMapLeavesTheFirst) {
  writeFile(path, "abc");
  ASSERT_EQ(map.map(bytes(path), false, 0, nullptr, nullptr), 0);
  expectCall(log, map.map(bytes(path), false, 0, nullptr, nullptr), -1,
             {"OSAL:ERR Cannot map (handle already in use) file : " + quoted(path)});
  EXPECT_EQ(std::string(map.ptr, map.size), "abc");
}

TEST_F(OSAL_MapTest, UnmappingWhatIsNotMapped) {
  expectCall(log, map.unmap(false), 0);
  expectCall(log, map.unmap(true), -1,
             {"OSAL:ERR OSAL_Map::unmap - Map pointer is NULL",
              "OSAL:ERR OSAL_Map::unmap - File handle invalid"});
}

TEST_F(OSAL_MapTest, AFailedUnmapEndsTheMappingAllTheSame) {
  writeFile(path, "abc");
  char* start = nullptr;
  ASSERT_EQ(map.map(bytes(path), false, 0, &start, nullptr), 0);
  ::close(map.fd);
  ++map.ptr;  // no page begins here
  expectCall(log, map.unmap(true), -1,
             {text("OSAL:ERR OSAL_Map::unmap - Cannot unmap zone @", static_cast<void*>(start + 1),
                   " of size 3B ", code(EINVAL)),
              "OSAL:ERR OSAL_Map::unmap - Cannot close " + code(EBADF) + " file"});
  expectUnmapped();
  EXPECT_EQ(::munmap(start, 3), 0);
}

TEST_F(OSAL_MapTest, TheDestructorUnmaps) {
  writeFile(path, "abc");
  {
    OSAL_Map other;
    ASSERT_EQ(other.map(bytes(path), false, 0, nullptr, nullptr), 0);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(log.lines().empty());
}

#if defined(__linux__)
TEST_F(OSAL_MapTest, AFailureAfterAFailure) {
  writeFile(path, "abc");
  {
    const PosixFault fault("fstat", EIO);
    expectCall(log, map.map(bytes(path), false, 0, nullptr, nullptr), -1,
               {"OSAL:ERR Cannot get stat " + code(EIO) + " of file " + quoted(path)});
  }
  const FakeFileSize negative(-1, 0);
  const PosixFault fault("close", EIO);
  expectCall(log, map.map(bytes(path), false, 0, nullptr, nullptr), -1,
             {"OSAL:ERR Size too big or incoherent (st_size = -1) for file " + quoted(path),
              "OSAL:ERR Cannot close file " + quoted(path)});
  expectUnmapped();
}
#endif

}  // namespace
