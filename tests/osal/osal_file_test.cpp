#include "osal/osal_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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
using ::testing::MatchesRegex;

constexpr unsigned short kBuffered = OSAL_OPEN_BUFFERED;
constexpr unsigned short kEitherKind[] = {0, kBuffered};
constexpr auto kNoSuchMode = static_cast<QDOpenMode>(77);

class OSAL_FileTest : public testing::Test {
 protected:
  /// Opens `name` as `file` without a record.
  void openQuietly(const std::string& name, QDOpenMode mode, unsigned short options = 0) {
    ASSERT_EQ(file.open(bytes(name), mode, options, true), 0) << name;
  }

  /// How messages name the open file.
  std::string handle(const OSAL_File& of) const { return text("(", of.fd, ")"); }
  std::string handle() const { return handle(file); }

  const TempFolder folder;
  const std::string path = folder / "file";
  const std::ptrdiff_t before = openDescriptors();
  LogCapture log{"OSAL:9;"};
  OSAL_File file;
};

/// Lets this process write files of `bytes` bytes at most.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : formerHandler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit limit{bytes, former_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &former_);
    ::signal(SIGXFSZ, formerHandler_);
  }

 private:
  rlimit former_{};
  void (*formerHandler_)(int);
};

TEST_F(OSAL_FileTest, OpensByModeAndBuffering) {
  constexpr struct {
    QDOpenMode mode;
    unsigned short options;
    int missing;   // errno where there is no file
    int existing;  // errno where there is one
    const char* kept;
    int access;
  } kCases[] = {
      {QD_OPENMODE_RWNOTEXISTING, 0, 0, EEXIST, "old", O_RDWR},
      {QD_OPENMODE_RWEXISTING, 0, ENOENT, 0, "old", O_RDWR},
      {QD_OPENMODE_RWCANCREATE, 0, 0, 0, "old", O_RDWR},
      {QD_OPENMODE_RDONLY, 0, ENOENT, 0, "old", O_RDONLY},
      {kNoSuchMode, 0, ENOENT, 0, "old", O_RDONLY},
      {QD_OPENMODE_RWNOTEXISTING, kBuffered, 0, 0, "", O_WRONLY},
      {QD_OPENMODE_RWEXISTING, kBuffered, ENOENT, 0, "old", O_RDWR},
      {QD_OPENMODE_RWCANCREATE, kBuffered, 0, 0, "", O_WRONLY},
      {QD_OPENMODE_RDONLY, kBuffered, ENOENT, 0, "old", O_RDONLY},
      {kNoSuchMode, kBuffered, ENOENT, 0, "old", O_RDONLY},
      {QD_OPENMODE_RWEXISTING, 0x100 | 0x01, ENOENT, 0, "old", O_RDWR},
  };
  for (const auto& c : kCases) {
    for (const bool exists : {false, true}) {
      SCOPED_TRACE(text("mode ", c.mode, " options ", c.options, exists ? " existing" : ""));
      const int error = exists ? c.existing : c.missing;
      const bool buffered = (c.options & kBuffered) != 0;
      for (const bool silent : {false, true}) {
        fs::remove(path);
        if (exists) writeFile(path, "old");
        const int result = file.open(bytes(path), c.mode, c.options, silent);
        std::vector<std::string> lines;
        if (!silent && error == 0) {
          lines = {"OSAL:INF File opened " + handle() + " : " + quoted(path)};
        } else if (!silent) {
          lines = {"OSAL:ERR Cannot open " + code(error) + " file " + quoted(path) +
                   (buffered ? " (buffered)" : "")};
        }
        expectCall(log, result, error == 0 ? 0 : -1, lines);
        if (error == 0) {
          EXPECT_EQ(::fcntl(file.fd, F_GETFL) & O_ACCMODE, c.access);
          EXPECT_EQ(::fcntl(file.fd, F_GETFD), FD_CLOEXEC);
          EXPECT_EQ(file.stream != nullptr, buffered);
          EXPECT_EQ(file.close(true, true), 0);
        }
        EXPECT_EQ(file.fd, -1);
        EXPECT_EQ(file.stream, nullptr);
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(content(path), exists ? c.kept : "");
      }
    }
  }
}

TEST_F(OSAL_FileTest, NewFilesGetAllRightsBeforeTheUmask) {
  const mode_t former = ::umask(027);
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  ::umask(former);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0750));
}

TEST_F(OSAL_FileTest, UnusualPathsInMessages) {
  const std::vector<std::string> noPath = {"OSAL:ERR Arguments error"};
  expectCall(log, file.open(nullptr, QD_OPENMODE_RDONLY, 0, true), -1);
  expectCall(log, file.open(nullptr, QD_OPENMODE_RDONLY, 0, false), -1, noPath);
  expectCall(log, file.openOwn(nullptr, true), -1);
  expectCall(log, file.openOwn(nullptr, false), -1, noPath);
  expectCall(log, file.open(bytes(""), QD_OPENMODE_RDONLY, 0, false), -1,
             {"OSAL:ERR Cannot open " + code(ENOENT) + " file \"(root)\""});
}

TEST_F(OSAL_FileTest, ASecondOpenLeavesTheFirstFileUsable) {
  const std::vector<std::string> inUse = {
      "OSAL:ERR Cannot open (handle already in use) file \"/etc/passwd\""};
  for (const unsigned short options : kEitherKind) {
    writeFile(path, "0123456789");
    openQuietly(path, QD_OPENMODE_RDONLY, options);
    for (const unsigned short other : kEitherKind) {
      expectCall(log, file.open(bytes("/etc/passwd"), QD_OPENMODE_RDONLY, other, true), -1);
      expectCall(log, file.open(bytes("/etc/passwd"), QD_OPENMODE_RDONLY, other, false), -1, inUse);
    }
    expectCall(log, file.openOwn(bytes("/etc/passwd"), false), -1, inUse);
    char buf[100];
    unsigned int length = sizeof buf;
    EXPECT_EQ(file.read(buf, &length, true), 0);
    EXPECT_EQ(std::string(buf, length), "0123456789");
    EXPECT_EQ(file.close(true, true), 0);
  }
}

TEST_F(OSAL_FileTest, ALockThatIsHeldFailsAtOnce) {
  OSAL_File holder;
  const int result = holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, false);
  expectCall(log, result, 0,
             {text("OSAL:INF File locked (0x", std::hex, holder.fd, ")"),
              "OSAL:INF File opened " + handle(holder) + " : " + quoted(path)});
  expectCall(log, file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), -1);
  expectCall(log, file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, false), -1,
             {"OSAL:ERR Non-blocking, but would block for file " + quoted(path)});
  EXPECT_EQ(file.fd, -1);
  EXPECT_EQ(openDescriptors(), before + 1);

  // Neither waiting alone nor a buffered file asks for the lock.
  constexpr unsigned short kUnlocked[] = {OSAL_OPEN_WAIT, OSAL_OPEN_LOCK | OSAL_OPEN_BUFFERED};
  for (const unsigned short options : kUnlocked) {
    EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, options, true), 0);
    EXPECT_EQ(file.close(true, true), 0);
  }
  EXPECT_EQ(holder.close(true, true), 0);
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), 0);
}

TEST_F(OSAL_FileTest, AWaitingLockComesWhenTheHolderCloses) {
  openQuietly(path, QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK);
  std::atomic<bool> closing = false;
  std::atomic<bool> cameAfterClosing = false;
  std::thread waiter([&] {
    OSAL_File waiting;
    const int result =
        waiting.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK | OSAL_OPEN_WAIT, true);
    cameAfterClosing = result == 0 && closing;
  });
  closing = true;
  EXPECT_EQ(file.close(true, true), 0);
  waiter.join();
  EXPECT_TRUE(cameAfterClosing);
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
  expectCall(log,
             file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK | OSAL_OPEN_WAIT, false), -1,
             {"OSAL:ERR Cannot get exclusive lock " + code(EINTR) + " for file " + quoted(path)});
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &former, nullptr);
  EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(OSAL_FileTest, ReadsWhatThereIs) {
  writeFile(path, "0123456789abcdefXYZ");
  openQuietly(path, QD_OPENMODE_RDONLY);
  const struct {
    unsigned int asked;
    std::string expected;
    std::string dump;
  } kCases[] = {
      {2, "01", "0000   30 31" + std::string(42, ' ') + "    01"},
      {17, "23456789abcdefXYZ",
       "0000   32 33 34 35 36 37 38 39 61 62 63 64 65 66 58 59    23456789abcdefXY"},
      {100, "", "UNDEF"},
  };
  char buf[100];
  for (const auto& c : kCases) {
    unsigned int length = c.asked;
    expectCall(log, file.read(buf, &length, false), 0,
               {text("OSAL:INF Data read (", c.expected.size(), "B) from file ", handle()),
                text("OSAL:DGB Data (", c.expected.size(), " B) = ", c.dump)});
    EXPECT_EQ(std::string(buf, length), c.expected);
  }
  EXPECT_EQ(file.seekSet(9), 0);
  log.clear();
  unsigned int length = sizeof buf;
  expectCall(log, file.read(buf, &length, true), 0);
  EXPECT_EQ(length, 10U);
}

TEST_F(OSAL_FileTest, AFailedReadLeavesTheLengthAlone) {
  openQuietly(path, QD_OPENMODE_RWCANCREATE, OSAL_OPEN_BUFFERED);  // which can only write
  char buf[10];
  unsigned int length = 10;
  expectCall(log, file.read(buf, &length, false), -1,
             {"OSAL:ERR Cannot read " + code(EBADF) + " from file " + handle()});
  expectCall(log, file.read(nullptr, &length, false), -1, {"OSAL:ERR Arguments error"});
  expectCall(log, file.read(buf, nullptr, false), -1, {"OSAL:ERR Arguments error"});
  expectCall(log, file.read(buf, &length, true), -1);
  expectCall(log, file.read(nullptr, &length, true), -1);
  expectCall(log, file.read(buf, nullptr, true), -1);
  EXPECT_EQ(length, 10U);
}

TEST_F(OSAL_FileTest, WritesAllOrFails) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  expectCall(log, file.writeFix("0123456789abcdef!", 17), 0,
             {"OSAL:INF Data written (17B) to file " + handle(),
              "OSAL:DGB Data (17 B) = 0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 "
              "   0123456789abcdef"});
  expectCall(log, file.writeFix("", 0), 0,
             {"OSAL:INF Data written (0B) to file " + handle(), "OSAL:DGB Data (0 B) = UNDEF"});
  expectCall(log, file.writeFix(nullptr, 1), -1, {"OSAL:ERR Arguments error"});
  EXPECT_EQ(content(path), "0123456789abcdef!");
}

TEST_F(OSAL_FileTest, AShortWriteStaysInTheFileAndFails) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  int first = 0;
  int second = 0;
  {
    const FileSizeLimit limit(4);
    first = file.writeFix("abcdef", 6);
    second = file.writeFix("abcdef", 6);
  }
  EXPECT_EQ(first, -1);
  expectCall(log, second, -1,
             {"OSAL:ERR Only 4B instead of 6B written to file " + handle(),
              "OSAL:ERR Cannot write " + code(EFBIG) + " to file " + handle()});
  EXPECT_EQ(content(path), "abcd");
}

TEST_F(OSAL_FileTest, WritesThroughStdioWithoutAMessage) {
  openQuietly(path, QD_OPENMODE_RWCANCREATE, OSAL_OPEN_BUFFERED);
  expectCall(log, file.writeFix("abc", 3), 0);
  expectCall(log, file.writeFix("", 0), 0);
  expectCall(log, file.writeFix(nullptr, 0), -1, {"OSAL:ERR Arguments error"});
  EXPECT_EQ(content(path), "");
  EXPECT_EQ(file.close(true, true), 0);
  EXPECT_EQ(content(path), "abc");

  openQuietly(path, QD_OPENMODE_RDONLY, OSAL_OPEN_BUFFERED);
  expectCall(log, file.writeFix("x", 1), -1,
             {text("OSAL:ERR Cannot write ", code(EBADF), " to file (@",
                   static_cast<void*>(file.stream), ")")});
}

TEST_F(OSAL_FileTest, TheOtherOperationsSeeWhatStdioHoldsBack) {
  const std::function<void()> kOperations[] = {
      [this] { EXPECT_EQ(file.sync(), 0); },
      [this] { EXPECT_EQ(file.truncate(3), 0); },
      [this] { EXPECT_EQ(file.seekSet(3), 0); },
      [this] {
        unsigned long long size = 0;
        EXPECT_EQ(file.getSize(&size, nullptr, true), 0);
        EXPECT_EQ(size, 3U);
      },
      [this] {
        char buf[2];
        unsigned int length = 2;
        EXPECT_EQ(file.read(buf, &length, true), 0);
        EXPECT_EQ(std::string(buf, length), "l");
      },
  };
  for (const auto& operation : kOperations) {
    writeFile(path, "oil");
    openQuietly(path, QD_OPENMODE_RWEXISTING, OSAL_OPEN_BUFFERED);
    EXPECT_EQ(file.writeFix("ta", 2), 0);
    EXPECT_EQ(content(path), "oil");
    operation();
    EXPECT_EQ(content(path), "tal");
    EXPECT_EQ(file.seekSet(1), 0);
    EXPECT_EQ(file.writeFix("i", 1), 0);
    EXPECT_EQ(file.close(true, true), 0);
    EXPECT_EQ(content(path), "til");
  }
}

TEST_F(OSAL_FileTest, AClosedObjectRefusesEveryOperation) {
  const auto invalid = [](const std::string& operation) {
    return std::vector{"OSAL:ERR Invalid handle (" + operation + ")"};
  };
  char buf[1];
  unsigned int length = 1;
  expectCall(log, file.read(buf, &length, true), -1);
  expectCall(log, file.read(buf, &length, false), -1, invalid("read"));
  expectCall(log, file.getSize(nullptr, nullptr, true), -1);
  expectCall(log, file.getSize(nullptr, nullptr, false), -1, invalid("getSize"));
  expectCall(log, file.close(true, true), -1);
  expectCall(log, file.close(false, true), -1, invalid("close"));
  expectCall(log, file.close(false, false), 0);
  expectCall(log, file.writeFix("", 0), -1, invalid("writeFix"));
  expectCall(log, file.truncate(0), -1, invalid("truncate"));
  expectCall(log, file.seekSet(0), -1, invalid("seekSet"));
  expectCall(log, file.sync(), -1, invalid("sync"));

  // An attempt to open a buffered file does not leave the object half open.
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_BUFFERED, true), -1);
  expectCall(log, file.writeFix("x", 1), -1, invalid("writeFix"));
}

TEST_F(OSAL_FileTest, TruncatesSeeksSynchronizesAndCloses) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  const std::string closed = "OSAL:INF File closed " + handle();
  expectCall(log, file.truncate(5'000'000'000), 0,
             {"OSAL:INF File " + handle() + " truncated to size 5000000000"});
  expectCall(log, file.seekSet(4'999'999'999), 0,
             {"OSAL:INF lseek/SEEK_SET at pos 4999999999 on file " + handle()});
  expectCall(log, file.sync(), 0, {"OSAL:INF File synchronized " + handle()});
  expectCall(log, file.close(false, true), 0, {closed});
  EXPECT_EQ(fs::file_size(path), 5'000'000'000U);
}

TEST_F(OSAL_FileTest, ReportsWhatTheSystemRefuses) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  openQuietly(path, QD_OPENMODE_RWEXISTING);
  expectCall(log, file.seekSet(1), -1,
             {"OSAL:ERR Cannot make lseek/SEEK_SET " + code(ESPIPE) + " on file " + handle()});
  expectCall(log, file.sync(), -1,
             {"OSAL:ERR Cannot synchronize " + code(EINVAL) + " file " + handle()});
  for (const unsigned long long size : {1ULL, 1ULL << 63, ULLONG_MAX}) {
    expectCall(
        log, file.truncate(size), -1,
        {text("OSAL:ERR Cannot truncate ", code(EINVAL), " file ", handle(), " to size ", size)});
  }
}

TEST_F(OSAL_FileTest, PositionsBeyondTheSystemsTypeFail) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  for (const unsigned long long beyond : {1ULL << 63, ULLONG_MAX}) {
    expectCall(log, file.seekSet(beyond), -1,
               {"OSAL:ERR Cannot make lseek/SEEK_SET " + code(EINVAL) + " on file " + handle()});
  }
}

TEST_F(OSAL_FileTest, TellsLengthAndSpace) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  unsigned long long size = 1;
  unsigned long long allocated = 1;
  expectCall(log, file.getSize(&size, &allocated, false), 0,
             {"OSAL:DBG get size = 0 of file " + handle(),
              "OSAL:DBG get real size = 0 of file " + handle()});
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(allocated, 0U);

  EXPECT_EQ(file.writeFix("x", 1), 0);
  EXPECT_EQ(file.truncate(5'000'000'000), 0);
  EXPECT_EQ(file.sync(), 0);  // some systems give a file its space only then
  log.clear();
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  expectCall(log, file.getSize(&size, nullptr, true), 0);
  expectCall(log, file.getSize(nullptr, &allocated, true), 0);
  EXPECT_EQ(size, 5'000'000'000U);
  EXPECT_EQ(allocated, static_cast<unsigned long long>(info.st_blocks) * 512);
}

TEST_F(OSAL_FileTest, AFailedCloseClosesAllTheSame) {
  for (const bool silent : {false, true}) {
    openQuietly(path, QD_OPENMODE_RWCANCREATE);
    const std::string was = handle();
    ::close(file.fd);
    unsigned long long size = 1;
    const auto unless = [silent](const std::string& line) {
      return silent ? std::vector<std::string>{} : std::vector{line};
    };
    expectCall(log, file.getSize(&size, &size, silent), -1,
               unless("OSAL:ERR Cannot get stat " + code(EBADF) + " on file " + was));
    EXPECT_EQ(size, 1U);
    expectCall(log, file.close(silent, true), -1,
               unless("OSAL:EL2 Cannot close " + code(EBADF) + " file " + was));
    EXPECT_EQ(file.fd, -1);
  }
}

TEST_F(OSAL_FileTest, TheDestructorClosesSilently) {
  for (const unsigned short options : kEitherKind) {
    OSAL_File other;
    ASSERT_EQ(other.open(bytes(path), QD_OPENMODE_RWCANCREATE, options, true), 0);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(log.lines().empty());
}

#if defined(__linux__)
TEST_F(OSAL_FileTest, AFileThatCannotBeKeptOutOfTheCacheIsOpenAllTheSame) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int result = file.open(bytes(path), QD_OPENMODE_RWEXISTING, OSAL_OPEN_NOCACHE, false);
  expectCall(log, result, 0,
             {"OSAL:WRN Cannot desactivate cache " + code(ESPIPE) + " for file " + quoted(path),
              "OSAL:INF File opened " + handle() + " : " + quoted(path)});
  EXPECT_EQ(file.close(true, true), 0);
  expectCall(log, file.open(bytes(path), QD_OPENMODE_RWEXISTING, OSAL_OPEN_NOCACHE, true), 0);
}

TEST_F(OSAL_FileTest, WhatStdioCouldNotWriteIsReportedOnce) {
  openQuietly("/dev/full", QD_OPENMODE_RWCANCREATE, OSAL_OPEN_BUFFERED);
  const std::string was = handle();
  EXPECT_EQ(file.writeFix("x", 1), 0);
  expectCall(log, file.sync(), -1,
             {"OSAL:ERR Cannot synchronize " + code(ENOSPC) + " file " + was});
  EXPECT_EQ(file.writeFix("y", 1), 0);
  expectCall(log, file.close(false, true), -1,
             {"OSAL:EL2 Cannot close " + code(ENOSPC) + " file " + was});
  EXPECT_EQ(file.fd, -1);
  EXPECT_EQ(file.stream, nullptr);
}

TEST_F(OSAL_FileTest, AFailedCloseAfterARefusedLockIsReported) {
  OSAL_File holder;
  ASSERT_EQ(holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, true), 0);
  for (const bool silent : {true, false}) {
    const PosixFault fault("close", EIO);
    EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, silent), -1);
    EXPECT_TRUE(PosixFault::hit());
    EXPECT_EQ(file.fd, -1);
  }
  EXPECT_THAT(
      log.lines(),
      testing::ElementsAre("OSAL:ERR Non-blocking, but would block for file " + quoted(path),
                           MatchesRegex(text("OSAL:EL2 Cannot close .", EIO, ". file .[0-9]+."))));
}

TEST_F(OSAL_FileTest, ImpossibleSizesAreAFailure) {
  openQuietly(path, QD_OPENMODE_RWCANCREATE);
  unsigned long long size = 1;
  for (const auto& [length, blocks] : {std::pair{-1, 0}, std::pair{0, -1}}) {
    const FakeFileSize fake(length, blocks);
    expectCall(log, file.getSize(&size, &size, true), -1);
    expectCall(log, file.getSize(&size, &size, false), -1,
               {text("OSAL:ERR Incoherent values (st_size = ", length, ", st_blocks = ", blocks,
                     ") for file ", handle())});
  }
  EXPECT_EQ(size, 1U);
}
#endif

TEST_F(OSAL_FileTest, OpenOwnWritesAFileOfItsOwnAnew) {
  const std::string victim = folder / "victim";
  writeFile(victim, "precious");
  fs::create_symlink(victim, path);
  for (const char* const value : {"a longer value", "new"}) {
    const int result = file.openOwn(bytes(path), false);
    expectCall(log, result, 0, {"OSAL:INF File opened " + handle() + " : " + quoted(path)});
    EXPECT_EQ(::fcntl(file.fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(file.writeFix(value, static_cast<unsigned int>(std::strlen(value))), 0);
    EXPECT_EQ(file.close(true, true), 0);
    log.clear();
    EXPECT_EQ(content(path), value);
  }
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
  EXPECT_EQ(content(victim), "precious");
}

TEST_F(OSAL_FileTest, OpenOwnFollowsNoLinkToTheFolder) {
  fs::create_directory(folder / "real");
  fs::create_directory_symlink(folder / "real", folder / "link");
  for (const char* const name :
       {"link/value", "link//value", "missing/value", "real/..", "real/"}) {
    const std::string wrong = folder / name;
    expectCall(log, file.openOwn(bytes(wrong), true), -1);
    EXPECT_EQ(file.openOwn(bytes(wrong), false), -1);
    EXPECT_THAT(
        log.lines(),
        testing::ElementsAre(MatchesRegex("OSAL:ERR Cannot open .[0-9]+. file " + quoted(wrong))));
    log.clear();
    EXPECT_EQ(file.fd, -1);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

}  // namespace
