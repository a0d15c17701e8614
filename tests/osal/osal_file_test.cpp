#include "osal/osal_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>

#include "FolderTest.h"
#include "Limits.h"
#include "SystemHooks.h"
#include "osal/osal_map.h"

namespace {

constexpr unsigned short kBuffered = OSAL_OPEN_BUFFERED;

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

TEST_F(OSAL_FileTest, OpensByModeAndBuffering) {
  constexpr struct {
    QDOpenMode mode;
    unsigned short options;
    int missing;   // errno where there is no file
    int existing;  // errno where there is one
    const char* kept;
    int access;
  } kCases[] = {{QD_OPENMODE_RWNOTEXISTING, 0, 0, EEXIST, "old", O_RDWR},
                {QD_OPENMODE_RWEXISTING, 0, ENOENT, 0, "old", O_RDWR},
                {QD_OPENMODE_RWCANCREATE, 0, 0, 0, "old", O_RDWR},
                {QD_OPENMODE_RDONLY, OSAL_OPEN_NOCACHE, ENOENT, 0, "old", O_RDONLY},
                {QD_OPENMODE_RWNOTEXISTING, kBuffered, 0, 0, "", O_WRONLY},
                {QD_OPENMODE_RWEXISTING, kBuffered, ENOENT, 0, "old", O_RDWR},
                {QD_OPENMODE_RWCANCREATE, kBuffered, 0, 0, "", O_WRONLY},
                {QD_OPENMODE_RDONLY, kBuffered, ENOENT, 0, "old", O_RDONLY}};
  const mode_t formerMask = ::umask(027);
  for (const bool exists : {true, false}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(text("mode ", c.mode, " options ", c.options, " exists ", exists));
      const bool buffered = c.options == kBuffered;
      const int error = exists ? c.existing : c.missing;
      fs::remove(path);
      if (exists) writeFile(path, "old");
      EXPECT_EQ(said(open(c.mode, c.options, false)),
                error == 0 ? "0 INF File opened (fd) : \"~/file\""
                           : text("-1 ERR Cannot open (", error, ") file \"~/file\"",
                                  buffered ? " (buffered)" : ""));
      EXPECT_EQ(content(path), exists ? c.kept : "");
      if (error != 0) continue;
      EXPECT_EQ(::fcntl(file.fd, F_GETFL) & O_ACCMODE, c.access);
      EXPECT_EQ(::fcntl(file.fd, F_GETFD), FD_CLOEXEC);
      EXPECT_EQ(permissionsOf(path), exists || buffered ? 0640 : 0750);
      EXPECT_EQ(said(file.close(false, true)), "0 INF File closed (fd)");
    }
  }
  ::umask(formerMask);
}

TEST_F(OSAL_FileTest, ALockThatIsHeldFailsAtOnce) {
  OSAL_File holder;
  EXPECT_EQ(holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, true), 0);
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true)), "-1");
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, false)),
            "-1 ERR Non-blocking, but would block for file \"~/file\"");
  // Neither waiting alone nor a buffered file asks for the lock.
  for (const int options : {0 | OSAL_OPEN_WAIT, OSAL_OPEN_LOCK | OSAL_OPEN_BUFFERED}) {
    EXPECT_EQ(open(QD_OPENMODE_RDONLY, options), 0);
    EXPECT_EQ(file.close(true, true), 0);
  }
  EXPECT_EQ(holder.close(true, true), 0);
#if defined(__linux__)
  SystemHooks hooks;
  hooks.locking = failAt(1, ENOLCK);
  said.clear();
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, false)),
            text("-1 ERR Cannot get exclusive lock (", ENOLCK, ") for file \"~/file\""));
#endif
  EXPECT_EQ(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK), 0);
}

TEST_F(OSAL_FileTest, TransfersBytesAndSaysWhatItCannot) {
  EXPECT_EQ(open(QD_OPENMODE_RWNOTEXISTING), 0);
  EXPECT_EQ(said(write("0123456789abcdef!")),
            "0 INF Data written (17B) to file (fd) | DGB Data (17 B) = "
            "0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66    0123456789abcdef");
  EXPECT_EQ(said(file.seekSet(1)), "0 INF lseek/SEEK_SET at pos 1 on file (fd)");
  char buf[100];
  unsigned int length = sizeof buf;
  EXPECT_EQ(file.read(buf, &length, true), 0);
  EXPECT_EQ(std::string(buf, length), "123456789abcdef!");
  EXPECT_EQ(said(file.read(buf, &length, true)), "0");
  EXPECT_EQ(length, 0U);
  unsigned long long size = 0;
  unsigned long long allocated = 1;
  EXPECT_EQ(file.truncate(5'000'000'000), 0);
  EXPECT_EQ(file.getSize(&size, &allocated, true), 0);
  EXPECT_EQ(size, 5'000'000'000U);
  EXPECT_EQ(allocated % 512, 0U);
  ::close(file.fd);
  EXPECT_EQ(said(file.read(buf, &length, true)), "-1 INF File (fd) truncated to size 5000000000");
  EXPECT_EQ(said(file.read(buf, &length, false)), "-1 ERR Cannot read (9) from file (fd)");
  EXPECT_EQ(said(file.close(false, true)), "-1 EL2 Cannot close (9) file (fd)");
  EXPECT_EQ(open(QD_OPENMODE_RDONLY), 0);
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, 0, false)),
            "-1 ERR Cannot open (handle already in use) file \"~/file\"");
  EXPECT_EQ(said(write("x")), "-1 ERR Cannot write (9) to file (fd)");
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

TEST_F(OSAL_FileTest, TheOtherOperationsSeeWhatStdioHoldsBack) {
  const std::function<int()> kOperations[] = {
      [this] { return file.sync(); }, [this] { return file.truncate(3); },
      [this] { return file.seekSet(3); }, [this] { return file.getSize(nullptr, nullptr, true); }};
  for (const auto& operation : kOperations) {
    writeFile(path, "oil");
    EXPECT_EQ(open(QD_OPENMODE_RWEXISTING, kBuffered), 0);
    EXPECT_EQ(write("ta"), 0);
    EXPECT_EQ(write(""), 0);
    EXPECT_EQ(content(path), "oil");
    EXPECT_EQ(operation(), 0);
    EXPECT_EQ(content(path), "tal");
    EXPECT_EQ(file.close(true, true), 0);
  }
#if defined(__linux__)
  EXPECT_EQ(file.open(bytes("/dev/full"), QD_OPENMODE_RWCANCREATE, kBuffered, true), 0);
  EXPECT_EQ(write("x"), 0);
  said.clear();
  EXPECT_EQ(said(file.sync()), "-1 ERR Cannot synchronize (28) file (fd)");
  EXPECT_EQ(write("y"), 0);
  EXPECT_EQ(said(file.close(false, true)), "-1 EL2 Cannot close (28) file (fd)");
#endif
}

TEST_F(OSAL_FileTest, OpenOwnFollowsNoFolderThatIsALink) {
  fs::create_directory(folder / "real");
  fs::create_directory_symlink(folder / "real", folder / "link");
  for (const std::string name : {"link/value", "link//value", "missing/value", "real/.."}) {
    EXPECT_EQ(file.openOwn(bytes(folder / name), true), -1) << name;
  }
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

class OSAL_MapTest : public SaidTest {};

TEST_F(OSAL_MapTest, MapsGrowsAndRefuses) {
  constexpr struct {
    unsigned long long size;
    bool writable;
    unsigned int wanted;
    unsigned int mapped;
    const char* refused;
  } kCases[] = {
      {6, false, 0, 6, ""},
      {6, false, 4, 4, ""},
      {6, true, 7, 7, ""},
      {6, false, 7, 0, "Cannot expand to size 7B (22)"},
      {0, true, 0, 0, "Cannot map 0B of"},
      {4'294'967'295, false, 0, 4'294'967'295, ""},
      {4'294'967'296, false, 1, 0, "Size too big or incoherent (st_size = 4294967296) for"}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.refused);
    OSAL_Map map;
    char* start = nullptr;
    unsigned int length = 0;
    writeFile(path, "abcdef");
    fs::resize_file(path, c.size);
    EXPECT_EQ(said(map.map(bytes(path), c.writable, c.wanted, &start, &length)),
              c.mapped > 0 ? "0" : text("-1 ERR ", c.refused, " file \"~/file\""));
    EXPECT_EQ(length, c.mapped);
    if (c.mapped == 0) continue;
    EXPECT_EQ(start[3], 'd');
    if (c.writable) start[1] = 'B';
    EXPECT_EQ(map.map(bytes(path), false, 0, nullptr, nullptr), -1) << "it is in use";
    EXPECT_EQ(map.unmap(true), 0);
    EXPECT_EQ(map.unmap(true), -1);
    said.clear();
    EXPECT_EQ(fs::file_size(path), std::max<unsigned long long>(c.size, c.mapped));
    if (c.writable) {
      EXPECT_EQ(content(path)[1], 'B');
    }
  }
}

}  // namespace
