#include "osal/osal_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "FolderTest.h"
#include "Limits.h"
#include "SystemHooks.h"
#include "osal/osal_map.h"

namespace {

class OSAL_FileTest : public SaidTest {
 protected:
  int open(QDOpenMode mode, int options = 0, bool silent = true) {
    return file.open(bytes(path), mode, static_cast<unsigned short>(options), silent);
  }
  int write(const std::string& data) {
    return file.writeFix(data.data(), static_cast<unsigned int>(data.size()));
  }
  OSAL_File file;
};

TEST_F(OSAL_FileTest, OpensByMode) {
  constexpr struct {
    QDOpenMode mode;
    int options;
    int missing, existing;  // errno where there is no file, and where there is one
    int access;
  } kCases[] = {{QD_OPENMODE_RWNOTEXISTING, 0, 0, EEXIST, O_RDWR},
                {QD_OPENMODE_RWEXISTING, 0, ENOENT, 0, O_RDWR},
                {QD_OPENMODE_RWCANCREATE, 0, 0, 0, O_RDWR},
                {QD_OPENMODE_RDONLY, OSAL_OPEN_NOCACHE, ENOENT, 0, O_RDONLY}};
  const mode_t formerMask = ::umask(027);
  for (const bool exists : {true, false}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(text("mode ", c.mode, " exists ", exists));
      const int error = exists ? c.existing : c.missing;
      fs::remove(path);
      if (exists) writeFile(path, "old");
      EXPECT_EQ(said(open(c.mode, c.options, false)),
                error == 0 ? "0 INF File opened (fd) : \"~/file\""
                           : text("-1 ERR Cannot open (", error, ") file \"~/file\""));
      EXPECT_EQ(content(path), exists ? "old" : "");
      if (error != 0) continue;
      EXPECT_EQ(::fcntl(file.fd, F_GETFL) & O_ACCMODE, c.access);
      EXPECT_EQ(::fcntl(file.fd, F_GETFD), FD_CLOEXEC);
      EXPECT_EQ(permissionsOf(path), exists ? 0640 : 0750);
      EXPECT_EQ(said(file.close(false, true)), "0 INF File closed (fd)");
    }
  }
  ::umask(formerMask);
}

TEST_F(OSAL_FileTest, ALockThatCannotBeTakenFailsAtOnce) {
  OSAL_File holder;
  EXPECT_EQ(holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, true), 0);
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true)), "-1");
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, false)),
            "-1 ERR Non-blocking, but would block for file \"~/file\"");
#if defined(__linux__)
  fs::remove(path);
  SystemHooks hooks;
  hooks.before = [](const std::string&, const std::string&) { return ENOLCK; };
  EXPECT_EQ(said(open(QD_OPENMODE_RWNOTEXISTING, OSAL_OPEN_LOCK, false)),
            text("-1 ERR Cannot get exclusive lock (", ENOLCK, ") for file \"~/file\""));
  EXPECT_FALSE(fs::exists(path));
  hooks.before = nullptr;
#endif
  EXPECT_EQ(holder.close(true, true), 0);
  EXPECT_EQ(open(QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK), 0);
}

TEST_F(OSAL_FileTest, KeepsWhatIsInAnExistingFileThatIsBuffered) {
  writeFile(path, "old");
  EXPECT_EQ(open(QD_OPENMODE_RWEXISTING, OSAL_OPEN_BUFFERED), 0);
  EXPECT_EQ(file.close(true, true), 0);
  EXPECT_EQ(file.close(true, true), -1);
  EXPECT_EQ(content(path), "old");
}

TEST_F(OSAL_FileTest, AMappingMakesItsFileAsLongAsItIs) {
  OSAL_Map map;
  char* start = nullptr;
  writeFile(path, "abc");
  ASSERT_EQ(map.map(bytes(path), true, 5, &start, nullptr), 0);
  start[4] = 'e';
  EXPECT_EQ(map.unmap(true), 0);
  EXPECT_EQ(content(path), std::string("abc\0e", 5));
}

TEST_F(OSAL_FileTest, ReadsToTheEndAndKnowsItsSize) {
  EXPECT_EQ(open(QD_OPENMODE_RWNOTEXISTING), 0);
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, 0, false)),
            "-1 ERR Cannot open (handle already in use) file \"~/file\"");
  EXPECT_EQ(write("0123"), 0);
  EXPECT_EQ(said(file.seekSet(1)),
            "0 INF Data written (4B) to file (fd) | DGB Data (4 B) = "
            "0000   30 31 32 33                                        0123 | "
            "INF lseek/SEEK_SET at pos 1 on file (fd)");
  char buf[100];
  for (const unsigned int expected : {3U, 0U}) {
    unsigned int length = sizeof buf;
    EXPECT_EQ(file.read(buf, &length, true), 0);
    EXPECT_EQ(length, expected);
  }
  unsigned long long size = 0;
  unsigned long long allocated = 1;
  EXPECT_EQ(file.truncate(5'000'000'000), 0);
  EXPECT_EQ(file.getSize(&size, &allocated, true), 0);
  EXPECT_EQ(size, 5'000'000'000U);
  EXPECT_EQ(allocated % 512, 0U);
  ::close(file.fd);
  said();
  EXPECT_EQ(said(write("x")), "-1 ERR Cannot write (9) to file (fd)");
  EXPECT_EQ(said(file.close(false, true)), "-1 EL2 Cannot close (9) file (fd)");
}

TEST_F(OSAL_FileTest, AShortWriteStaysInTheFileAndFails) {
  EXPECT_EQ(open(QD_OPENMODE_RWNOTEXISTING), 0);
  int result = 0;
  {
    const Limit limit(RLIMIT_FSIZE, 4);
    result = write("abcdef");
  }
  EXPECT_EQ(said(result), "-1 ERR Only 4B instead of 6B written to file (fd)");
  EXPECT_EQ(content(path), "abcd");
}

TEST_F(OSAL_FileTest, OpenOwnFollowsNoFolderThatIsALink) {
  fs::create_directory(folder / "real");
  fs::create_directory_symlink(folder / "real", folder / "link");
  for (const std::string name : {"link/value", "link//value", "missing/value", "real/.."}) {
    EXPECT_EQ(file.openOwn(bytes(folder / name), true), -1) << name;
  }
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

}  // namespace
