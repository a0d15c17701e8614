#include "osal/osal_file.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <climits>
#include <functional>

#include "FilesTest.h"
#include "Limits.h"
#include "PosixFaults.h"
#include "osal/osal_map.h"

namespace {

constexpr unsigned short kBuffered = OSAL_OPEN_BUFFERED;
constexpr auto kNoSuchMode = static_cast<QDOpenMode>(77);

class OSAL_FileTest : public FilesTest {
 protected:
  int open(QDOpenMode mode, unsigned short options = 0, bool silent = true) {
    return file.open(bytes(path), mode, options, silent);
  }
  int openFifo(unsigned short options, bool silent) {
    ::mkfifo(path.c_str(), 0600);
    return open(QD_OPENMODE_RWEXISTING, options, silent);
  }
  int write(const std::string& text) {
    return file.writeFix(text.data(), static_cast<unsigned int>(text.size()));
  }
  /// What reading `length` bytes brings.
  std::string read(unsigned int length) {
    std::string text(length, '\0');
    EXPECT_EQ(file.read(text.data(), &length, true), 0);
    return text.substr(0, length);
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
                {QD_OPENMODE_RDONLY, 0, ENOENT, 0, "old", O_RDONLY},
                {kNoSuchMode, 0, ENOENT, 0, "old", O_RDONLY},
                {QD_OPENMODE_RWNOTEXISTING, kBuffered, 0, 0, "", O_WRONLY},
                {QD_OPENMODE_RWEXISTING, kBuffered, ENOENT, 0, "old", O_RDWR},
                {QD_OPENMODE_RWCANCREATE, kBuffered, 0, 0, "", O_WRONLY},
                {QD_OPENMODE_RDONLY, kBuffered, ENOENT, 0, "old", O_RDONLY},
                {kNoSuchMode, kBuffered, ENOENT, 0, "old", O_RDONLY},
                {QD_OPENMODE_RWEXISTING, 0x100 | OSAL_OPEN_NOCACHE, ENOENT, 0, "old", O_RDWR}};
  const mode_t formerMask = ::umask(027);
  for (const int round : {0, 1, 2, 3}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(text("mode ", c.mode, " options ", c.options, " round ", round));
      const bool exists = round < 2;
      const bool silent = round % 2 == 0;
      const bool buffered = (c.options & kBuffered) != 0;
      const int error = exists ? c.existing : c.missing;
      fs::remove(path);
      if (exists) writeFile(path, "old");
      std::string expected = error == 0 ? "0" : "-1";
      if (!silent && error == 0) expected += " INF File opened (fd) : \"~/file\"";
      if (!silent && error != 0) expected += " ERR Cannot open " + code(error) + " file \"~/file\"";
      if (!silent && error != 0 && buffered) expected += " (buffered)";
      EXPECT_EQ(said(open(c.mode, c.options, silent)), expected);
      if (error == 0) {
        EXPECT_EQ(::fcntl(file.fd, F_GETFL) & O_ACCMODE, c.access);
        EXPECT_EQ(::fcntl(file.fd, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(permissionsOf(path), exists || buffered ? 0640 : 0750);
        EXPECT_EQ(file.close(true, true), 0);
      }
      EXPECT_EQ(file.fd, -1);
      EXPECT_EQ(content(path), exists ? c.kept : "");
    }
  }
  ::umask(formerMask);
}

TEST_F(OSAL_FileTest, ALockThatIsHeldFailsAtOnce) {
  OSAL_File holder;
  const int locked = holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, false);
  EXPECT_EQ(said(locked), text("0 INF File locked (0x", std::hex, holder.fd,
                               ") | INF File opened (fd) : \"~/file\""));
  const std::string refused = "ERR Non-blocking, but would block for file \"~/file\"";
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true)), "-1");
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, false)), "-1 " + refused);
  EXPECT_EQ(file.fd, -1);
#if defined(__linux__)
  for (const bool silent : {true, false}) {
    const PosixFault fault("close", EIO);
    EXPECT_EQ(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, silent), -1);
  }
  EXPECT_EQ(said(), text(refused, " | EL2 Cannot close (5) file (", holder.fd + 1, ")"));
#endif
  // Neither waiting alone nor a buffered file asks for the lock.
  for (const int options : {0 | OSAL_OPEN_WAIT, OSAL_OPEN_LOCK | OSAL_OPEN_BUFFERED}) {
    EXPECT_EQ(open(QD_OPENMODE_RDONLY, static_cast<unsigned short>(options)), 0);
    EXPECT_EQ(file.close(true, true), 0);
  }
  EXPECT_EQ(holder.close(true, true), 0);
  EXPECT_EQ(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK), 0);
}

TEST_F(OSAL_FileTest, AnInterruptedWaitForTheLockIsAFailure) {
  struct sigaction interrupt {};
  struct sigaction former {};
  interrupt.sa_handler = [](int) {};  // without SA_RESTART
  ::sigaction(SIGALRM, &interrupt, &former);
  OSAL_File holder;
  ASSERT_EQ(holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, true), 0);
  const itimerval often{{0, 10'000}, {0, 10'000}};  // again and again: the first may come early
  ::setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(said(open(QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK | OSAL_OPEN_WAIT, false)),
            "-1 ERR Cannot get exclusive lock (4) for file \"~/file\"");
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &former, nullptr);
}

TEST_F(OSAL_FileTest, TellsWhatItDoes) {
  EXPECT_EQ(open(QD_OPENMODE_RWNOTEXISTING), 0);
  const std::string dump =
      "0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66    0123456789abcdef";
  EXPECT_EQ(said(write("0123456789abcdef!")),
            "0 INF Data written (17B) to file (fd) | DGB Data (17 B) = " + dump);
  EXPECT_EQ(said(write("")), "0 INF Data written (0B) to file (fd) | DGB Data (0 B) = UNDEF");
  EXPECT_EQ(said(file.seekSet(0)), "0 INF lseek/SEEK_SET at pos 0 on file (fd)");
  char buf[100];
  unsigned int length = sizeof buf;
  EXPECT_EQ(said(file.read(buf, &length, false)),
            "0 INF Data read (17B) from file (fd) | DGB Data (17 B) = " + dump);
  EXPECT_EQ(std::string(buf, length), "0123456789abcdef!");
  EXPECT_EQ(said(file.read(buf, &length, false)),
            "0 INF Data read (0B) from file (fd) | DGB Data (0 B) = UNDEF");
  EXPECT_EQ(said(file.read(buf, &length, true)), "0");
  EXPECT_EQ(said(file.truncate(5'000'000'000)), "0 INF File (fd) truncated to size 5000000000");
  EXPECT_EQ(said(file.seekSet(4'999'999'999)),
            "0 INF lseek/SEEK_SET at pos 4999999999 on file (fd)");
  EXPECT_EQ(said(file.sync()), "0 INF File synchronized (fd)");
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  const auto onDisk = static_cast<unsigned long long>(info.st_blocks) * 512;
  unsigned long long size = 0;
  unsigned long long allocated = 0;
  EXPECT_EQ(said(file.getSize(&size, &allocated, false)),
            text("0 DBG get size = 5000000000 of file (fd) | DBG get real size = ", onDisk,
                 " of file (fd)"));
  EXPECT_EQ(said(file.getSize(nullptr, nullptr, true)), "0");
  EXPECT_EQ(size, 5'000'000'000U);
  EXPECT_EQ(allocated, onDisk);
  EXPECT_EQ(said(file.close(false, true)), "0 INF File closed (fd)");
}

TEST_F(OSAL_FileTest, TellsWhatFails) {
  char buf[1];
  unsigned int length = 9;
  unsigned long long size = 9;
  for (const bool silent : {false, true}) {
    const auto failure = [silent](const std::string& text) { return silent ? "-1" : "-1 " + text; };
    const std::string wrong = failure("ERR Arguments error");
    const std::string inUse = failure("ERR Cannot open (handle already in use) file \"other\"");
    EXPECT_EQ(said(file.open(nullptr, QD_OPENMODE_RDONLY, 0, silent)), wrong);
    EXPECT_EQ(said(file.openOwn(nullptr, silent)), wrong);
    EXPECT_EQ(said(file.read(nullptr, &length, silent)), wrong);
    EXPECT_EQ(said(file.read(buf, nullptr, silent)), wrong);
    EXPECT_EQ(said(file.read(buf, &length, silent)), failure("ERR Invalid handle (read)"));
    EXPECT_EQ(said(file.getSize(&size, &size, silent)), failure("ERR Invalid handle (getSize)"));
    EXPECT_EQ(said(file.close(silent, true)), failure("ERR Invalid handle (close)"));
    EXPECT_EQ(said(file.open(bytes(""), QD_OPENMODE_RDONLY, 0, silent)),
              failure("ERR Cannot open (2) file \"(root)\""));
    for (const unsigned short options : {std::uint16_t{0}, kBuffered}) {
      EXPECT_EQ(open(QD_OPENMODE_RWCANCREATE, options), 0);
      EXPECT_EQ(said(file.open(bytes("other"), QD_OPENMODE_RDONLY, 0, silent)), inUse);
      EXPECT_EQ(said(file.openOwn(bytes("other"), silent)), inUse);
      EXPECT_EQ(write("x"), 0);
      EXPECT_EQ(file.close(true, true), 0);
      said.clear();
    }
    EXPECT_EQ(open(QD_OPENMODE_RWEXISTING), 0);
    ::close(file.fd);
    EXPECT_EQ(said(file.read(buf, &length, silent)), failure("ERR Cannot read (9) from file (fd)"));
    EXPECT_EQ(said(file.getSize(&size, &size, silent)),
              failure("ERR Cannot get stat (9) on file (fd)"));
    EXPECT_EQ(said(file.close(silent, true)), failure("EL2 Cannot close (9) file (fd)"));
    EXPECT_EQ(file.fd, -1);
  }
  EXPECT_EQ(length, 9U);
  EXPECT_EQ(size, 9U);
  EXPECT_EQ(said(file.close(false, false)), "0");
  EXPECT_EQ(said(file.writeFix(nullptr, 1)), "-1 ERR Arguments error");
  EXPECT_EQ(file.open(bytes(missing), QD_OPENMODE_RDONLY, kBuffered, true), -1);
  EXPECT_EQ(said(write("")), "-1 ERR Invalid handle (writeFix)");
  EXPECT_EQ(said(file.truncate(0)), "-1 ERR Invalid handle (truncate)");
  EXPECT_EQ(said(file.seekSet(0)), "-1 ERR Invalid handle (seekSet)");
  EXPECT_EQ(said(file.sync()), "-1 ERR Invalid handle (sync)");

  EXPECT_EQ(open(QD_OPENMODE_RDONLY), 0);
  EXPECT_EQ(said(write("x")), "-1 ERR Cannot write (9) to file (fd)");
  EXPECT_EQ(said(file.seekSet(1ULL << 63)), "-1 ERR Cannot make lseek/SEEK_SET (22) on file (fd)");
  EXPECT_EQ(file.close(true, true), 0);
  fs::remove(path);
  EXPECT_EQ(openFifo(0, true), 0);
  EXPECT_EQ(said(file.seekSet(1)), "-1 ERR Cannot make lseek/SEEK_SET (29) on file (fd)");
  EXPECT_EQ(said(file.sync()), "-1 ERR Cannot synchronize (22) file (fd)");
  EXPECT_EQ(said(file.truncate(ULLONG_MAX)),
            "-1 ERR Cannot truncate (22) file (fd) to size 18446744073709551615");
}

TEST_F(OSAL_FileTest, AShortWriteStaysInTheFileAndFails) {
  EXPECT_EQ(open(QD_OPENMODE_RWNOTEXISTING), 0);
  int first = 0;
  int second = 0;
  {
    const Limit limit(RLIMIT_FSIZE, 4);
    first = write("abcdef");
    second = write("abcdef");
  }
  EXPECT_EQ(first, -1);
  EXPECT_EQ(said(second),
            "-1 ERR Only 4B instead of 6B written to file (fd) | "
            "ERR Cannot write (27) to file (fd)");
  EXPECT_EQ(content(path), "abcd");
}

TEST_F(OSAL_FileTest, WritesThroughStdioWithoutAMessage) {
  EXPECT_EQ(open(QD_OPENMODE_RWCANCREATE, kBuffered), 0);
  EXPECT_EQ(said(write("abc")), "0");
  EXPECT_EQ(said(write("")), "0");
  EXPECT_EQ(content(path), "");
  EXPECT_EQ(file.close(true, true), 0);
  EXPECT_EQ(content(path), "abc");
  EXPECT_EQ(open(QD_OPENMODE_RDONLY, kBuffered), 0);
  EXPECT_EQ(said(write("x")), "-1 ERR Cannot write (9) to file (@)");
}

TEST_F(OSAL_FileTest, TheOtherOperationsSeeWhatStdioHoldsBack) {
  const std::function<int()> kOperations[] = {
      [this] { return file.sync(); }, [this] { return file.truncate(3); },
      [this] { return file.seekSet(3); }, [this] { return file.getSize(nullptr, nullptr, true); },
      [this] { return read(2) == "l" ? 0 : 1; }};
  for (const auto& operation : kOperations) {
    writeFile(path, "oil");
    EXPECT_EQ(open(QD_OPENMODE_RWEXISTING, kBuffered), 0);
    EXPECT_EQ(write("ta"), 0);
    EXPECT_EQ(content(path), "oil");
    EXPECT_EQ(operation(), 0);
    EXPECT_EQ(content(path), "tal");
    EXPECT_EQ(file.seekSet(1), 0);
    EXPECT_EQ(write("i"), 0);
    EXPECT_EQ(file.close(true, true), 0);
    EXPECT_EQ(content(path), "til");
  }
}

#if defined(__linux__)
TEST_F(OSAL_FileTest, AFileThatCannotBeKeptOutOfTheCacheIsOpenAllTheSame) {
  EXPECT_EQ(said(openFifo(OSAL_OPEN_NOCACHE, false)),
            "0 WRN Cannot desactivate cache (29) for file \"~/file\" | "
            "INF File opened (fd) : \"~/file\"");
  EXPECT_EQ(file.close(true, true), 0);
  EXPECT_EQ(said(openFifo(OSAL_OPEN_NOCACHE, true)), "0");
}

TEST_F(OSAL_FileTest, WhatStdioCouldNotWriteIsReportedOnce) {
  EXPECT_EQ(file.open(bytes("/dev/full"), QD_OPENMODE_RWCANCREATE, kBuffered, true), 0);
  EXPECT_EQ(write("x"), 0);
  EXPECT_EQ(said(file.sync()), "-1 ERR Cannot synchronize (28) file (fd)");
  EXPECT_EQ(write("y"), 0);
  EXPECT_EQ(said(file.close(false, true)), "-1 EL2 Cannot close (28) file (fd)");
  EXPECT_EQ(file.fd, -1);
  EXPECT_EQ(file.stream, nullptr);
}

TEST_F(OSAL_FileTest, ImpossibleSizesAreAFailure) {
  EXPECT_EQ(open(QD_OPENMODE_RWCANCREATE), 0);
  unsigned long long size = 1;
  for (const auto& [length, blocks] : {std::pair{-1, 0}, std::pair{0, -1}}) {
    const FakeFileSize fake(length, blocks);
    EXPECT_EQ(said(file.getSize(&size, &size, true)), "-1");
    EXPECT_EQ(said(file.getSize(&size, &size, false)),
              text("-1 ERR Incoherent values (st_size = ", length, ", st_blocks = ", blocks,
                   ") for file (fd)"));
  }
  EXPECT_EQ(size, 1U);
}
#endif

TEST_F(OSAL_FileTest, OpenOwnFollowsNoLink) {
  const std::string victim = folder / "victim";
  writeFile(victim, "precious");
  fs::create_symlink(victim, path);
  for (const std::string value : {"a longer value", "new"}) {
    const int result = file.openOwn(bytes(path), false);
    EXPECT_EQ(said(result), text("0 INF File opened (", file.fd, ") : \"~/file\""));
    EXPECT_EQ(write(value), 0);
    EXPECT_EQ(file.close(true, true), 0);
    said.clear();
    EXPECT_EQ(content(path), value);
  }
  EXPECT_EQ(content(victim), "precious");

  fs::create_directory(folder / "real");
  fs::create_directory_symlink(folder / "real", folder / "link");
  for (const std::string name :
       {"link/value", "link//value", "missing/value", "real/..", "real/"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(said(file.openOwn(bytes(folder / name), true)), "-1");
    const std::string failure = said(file.openOwn(bytes(folder / name), false));
    EXPECT_TRUE(failure.starts_with("-1 ERR Cannot open ("));
    EXPECT_TRUE(failure.ends_with(") file \"~/" + name + "\""));
  }
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

class OSAL_MapTest : public FilesTest {
 protected:
  std::string saidOfMap(const std::string& file, bool writable, unsigned int wanted) {
    return said(map.map(bytes(file), writable, wanted, &start, &length));
  }
  void expectUnmapped() {
    EXPECT_EQ(map.fd, -1);
    EXPECT_EQ(map.ptr, nullptr);
    EXPECT_EQ(map.size, 0U);
  }

  char* start = nullptr;
  unsigned int length = 99;
  OSAL_Map map;
};

TEST_F(OSAL_MapTest, MapsAndGrows) {
  const struct {
    bool writable;
    unsigned int wanted;
    std::string mapped;
  } kCases[] = {{false, 0, "abcdef"},
                {true, 0, "abcdef"},
                {false, 4, "abcd"},
                {false, 6, "abcdef"},
                {true, 6, "abcdef"},
                {true, 7, std::string("abcdef\0", 7)},
                {true, 10000, "abcdef" + std::string(9994, '\0')}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(text(c.wanted, c.writable ? " writable" : " read only"));
    writeFile(path, "abcdef");
    ASSERT_EQ(saidOfMap(path, c.writable, c.wanted), "0");
    EXPECT_EQ(std::string(start, length), c.mapped);
    EXPECT_EQ(::fcntl(map.fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fs::file_size(path), std::max<std::size_t>(6, c.wanted));
    if (c.writable) start[1] = 'B';
    EXPECT_EQ(map.unmap(true), 0);
    EXPECT_EQ(content(path)[1], c.writable ? 'B' : 'b');
    expectUnmapped();
  }
}

TEST_F(OSAL_MapTest, FailuresLeaveNothingOpen) {
  const std::string empty = folder / "empty";
  const std::string huge = folder / "huge";
  writeFile(empty, "");
  writeFile(path, "abcdef");
  writeFile(huge, "");
  fs::resize_file(huge, 4'294'967'296);
  const struct {
    std::string file;
    bool writable;
    unsigned int wanted;
    std::string said;
  } kCases[] = {
      {missing, true, 0, "Cannot open (2) file \"~/missing\""},
      {path, false, 7, "Cannot expand to size 7B (22) file \"~/file\""},
      {empty, true, 0, "Cannot map 0B of file \"~/empty\""},
      {huge, false, 1, "Size too big or incoherent (st_size = 4294967296) for file \"~/huge\""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(saidOfMap(c.file, c.writable, c.wanted), "-1 ERR " + c.said);
    expectUnmapped();
  }
  EXPECT_EQ(said(map.map(nullptr, false, 0, nullptr, nullptr)), "-1 ERR Arguments error");
  EXPECT_EQ(start, nullptr);
  EXPECT_EQ(length, 99U);
  fs::resize_file(huge, 4'294'967'295);
  EXPECT_EQ(saidOfMap(huge, false, 0), "0");
  EXPECT_EQ(map.size, 4'294'967'295U);
  EXPECT_EQ(saidOfMap(path, false, 0),
            "-1 ERR Cannot map (handle already in use) file : \"~/file\"");
  EXPECT_EQ(map.size, 4'294'967'295U);
}

TEST_F(OSAL_MapTest, AFailedUnmapEndsTheMappingAllTheSame) {
  EXPECT_EQ(said(map.unmap(false)), "0");
  EXPECT_EQ(said(map.unmap(true)),
            "-1 ERR OSAL_Map::unmap - Map pointer is NULL | "
            "ERR OSAL_Map::unmap - File handle invalid");
  writeFile(path, "abc");
  ASSERT_EQ(saidOfMap(path, false, 0), "0");
  ::close(map.fd);
  ++map.ptr;  // no page begins here
  EXPECT_EQ(said(map.unmap(true)),
            "-1 ERR OSAL_Map::unmap - Cannot unmap zone @ of size 3B (22) | "
            "ERR OSAL_Map::unmap - Cannot close (9) file");
  expectUnmapped();
  EXPECT_EQ(::munmap(start, 3), 0);
}

#if defined(__linux__)
TEST_F(OSAL_MapTest, AFailureAfterAFailure) {
  writeFile(path, "abc");
  {
    const PosixFault fault("fstat", EIO);
    EXPECT_EQ(saidOfMap(path, false, 0), "-1 ERR Cannot get stat (5) of file \"~/file\"");
  }
  const FakeFileSize negative(-1, 0);
  const PosixFault fault("close", EIO);
  EXPECT_EQ(saidOfMap(path, false, 0),
            "-1 ERR Size too big or incoherent (st_size = -1) for file \"~/file\" | "
            "ERR Cannot close file \"~/file\"");
  expectUnmapped();
}
#endif

}  // namespace
