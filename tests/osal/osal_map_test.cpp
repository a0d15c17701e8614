#include "osal/osal_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
  const std::string quoted = '"' + path + '"';
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
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OSAL_MapTest, NeitherStartNorLengthNeedBeAsked) {
  writeFile(path, "abc");
  EXPECT_EQ(map.map(bytes(path), false, 0, nullptr, nullptr), 0);
  EXPECT_EQ(std::string(map.ptr, map.size), "abc");
}

TEST_F(OSAL_MapTest, FailuresLeaveNothingOpen) {
  const std::string empty = folder / "empty";
  writeFile(empty, "");
  writeFile(path, "abcdef");
  const struct {
    std::string file;
    bool writable;
    unsigned int wanted;
    std::string message;
  } kCases[] = {
      {folder / "missing", true, 0,
       text("Cannot open (", ENOENT, ") file \"", folder / "missing", "\"")},
      {path, false, 7, text("Cannot expand to size 7B (", EINVAL, ") file ", quoted)},
      {empty, true, 0, text("Cannot map 0B of file \"", empty, "\"")},
      {empty, false, 0, text("Cannot map 0B of file \"", empty, "\"")},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.message);
    log.clear();
    char* start = nullptr;
    unsigned int length = 99;
    EXPECT_EQ(map.map(bytes(c.file), c.writable, c.wanted, &start, &length), -1);
    EXPECT_EQ(start, nullptr);
    EXPECT_EQ(length, 99U);
    EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR " + c.message));
    expectUnmapped();
  }
  log.clear();
  EXPECT_EQ(map.map(nullptr, false, 0, nullptr, nullptr), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Arguments error"));
}

TEST_F(OSAL_MapTest, FourGibibytesAreTooMany) {
  writeFile(path, "");
  fs::resize_file(path, 4'294'967'296);
  EXPECT_EQ(map.map(bytes(path), false, 1, nullptr, nullptr), -1);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("OSAL:ERR Size too big or incoherent (st_size = 4294967296) for file " + quoted));
  expectUnmapped();
  fs::resize_file(path, 4'294'967'295);
  EXPECT_EQ(map.map(bytes(path), false, 0, nullptr, nullptr), 0);
  EXPECT_EQ(map.size, 4'294'967'295U);
}

TEST_F(OSAL_MapTest, ASecondMapLeavesTheFirst) {
  writeFile(path, "abc");
  ASSERT_EQ(map.map(bytes(path), false, 0, nullptr, nullptr), 0);
  EXPECT_EQ(map.map(bytes(path), false, 0, nullptr, nullptr), -1);
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:ERR Cannot map (handle already in use) file : " + quoted));
  EXPECT_EQ(std::string(map.ptr, map.size), "abc");
}

TEST_F(OSAL_MapTest, UnmappingTwice) {
  EXPECT_EQ(map.unmap(false), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(map.unmap(true), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR OSAL_Map::unmap - Map pointer is NULL",
                                       "OSAL:ERR OSAL_Map::unmap - File handle invalid"));
}

TEST_F(OSAL_MapTest, AFailedUnmapEndsTheMappingAllTheSame) {
  writeFile(path, "abc");
  char* start = nullptr;
  ASSERT_EQ(map.map(bytes(path), false, 0, &start, nullptr), 0);
  ::close(map.fd);
  ++map.ptr;  // no page begins here
  EXPECT_EQ(map.unmap(true), -1);
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:ERR OSAL_Map::unmap - Cannot unmap zone @",
                               static_cast<void*>(start + 1), " of size 3B (", EINVAL, ")"),
                          text("OSAL:ERR OSAL_Map::unmap - Cannot close (", EBADF, ") file")));
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
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
