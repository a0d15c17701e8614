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
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned short kBuffered = OSAL_OPEN_BUFFERED;
constexpr unsigned short kEitherKind[] = {0, kBuffered};
constexpr auto kNoSuchMode = static_cast<QDOpenMode>(77);

std::string quoted(const std::string& path) { return '"' + path + '"'; }

class OSAL_FileTest : public testing::Test {
 protected:
  /// Opens `name` as `file` without a record.
  void openQuietly(const std::string& name, QDOpenMode mode, unsigned short options = 0) {
    ASSERT_EQ(file.open(bytes(name), mode, options, true), 0) << name;
  }

  const TempFolder folder;
  const std::string path = folder / "file";
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
      for (const bool silent : {false, true}) {
        SCOPED_TRACE(text("mode ", c.mode, " options ", c.options, exists ? " existing" : "",
                          silent ? " silent" : ""));
        fs::remove(path);
        if (exists) writeFile(path, "old");
        const int error = exists ? c.existing : c.missing;
        const bool buffered = (c.options & kBuffered) != 0;
        log.clear();
        const std::ptrdiff_t before = openDescriptors();
        EXPECT_EQ(file.open(bytes(path), c.mode, c.options, silent), error == 0 ? 0 : -1);
        if (silent) {
          EXPECT_THAT(log.lines(), IsEmpty());
        } else if (error == 0) {
          EXPECT_THAT(log.lines(),
                      ElementsAre(text("OSAL:INF File opened (", file.fd, ") : ", quoted(path))));
        } else {
          EXPECT_THAT(log.lines(), ElementsAre(text("OSAL:ERR Cannot open (", error, ") file ",
                                                    quoted(path), buffered ? " (buffered)" : "")));
        }
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

TEST_F(OSAL_FileTest, RefusesANullPath) {
  EXPECT_EQ(file.open(nullptr, QD_OPENMODE_RDONLY, 0, true), -1);
  EXPECT_EQ(file.openOwn(nullptr, true), -1);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(file.open(nullptr, QD_OPENMODE_RDONLY, 0, false), -1);
  EXPECT_EQ(file.openOwn(nullptr, false), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Arguments error", "OSAL:ERR Arguments error"));
}

TEST_F(OSAL_FileTest, ASecondOpenLeavesTheFirstFileUsable) {
  for (const unsigned short options : kEitherKind) {
    writeFile(path, "0123456789");
    openQuietly(path, QD_OPENMODE_RDONLY, options);
    log.clear();
    for (const unsigned short other : kEitherKind) {
      EXPECT_EQ(file.open(bytes("/etc/passwd"), QD_OPENMODE_RDONLY, other, true), -1);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(file.open(bytes("/etc/passwd"), QD_OPENMODE_RDONLY, 0, false), -1);
    EXPECT_EQ(file.openOwn(bytes(path), false), -1);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("OSAL:ERR Cannot open (handle already in use) file \"/etc/passwd\"",
                    text("OSAL:ERR Cannot open (handle already in use) file ", quoted(path))));
    char buf[100];
    unsigned int length = sizeof buf;
    EXPECT_EQ(file.read(buf, &length, true), 0);
    EXPECT_EQ(std::string(buf, length), "0123456789");
    EXPECT_EQ(file.close(true, true), 0);
  }
}

TEST_F(OSAL_FileTest, AnEmptyPathIsTheRootInMessages) {
  EXPECT_EQ(file.open(bytes(""), QD_OPENMODE_RDONLY, 0, false), -1);
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:ERR Cannot open (", ENOENT, ") file \"(root)\"")));
}

TEST_F(OSAL_FileTest, ALockThatIsHeldFailsAtOnce) {
  OSAL_File holder;
  ASSERT_EQ(holder.open(bytes(path), QD_OPENMODE_RWCANCREATE, OSAL_OPEN_LOCK, false), 0);
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:INF File locked (0x", std::hex, holder.fd, ")"),
                          text("OSAL:INF File opened (", holder.fd, ") : ", quoted(path))));
  log.clear();
  const std::ptrdiff_t before = openDescriptors();
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), -1);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, false), -1);
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:ERR Non-blocking, but would block for file ", quoted(path))));
  EXPECT_EQ(file.fd, -1);
  EXPECT_EQ(openDescriptors(), before);

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
  const std::ptrdiff_t before = openDescriptors();
  const itimerval often{{0, 10'000}, {0, 10'000}};  // again and again: the first may come early
  ::setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK | OSAL_OPEN_WAIT, false), -1);
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &former, nullptr);
  EXPECT_THAT(log.lines(), ElementsAre(text("OSAL:ERR Cannot get exclusive lock (", EINTR,
                                            ") for file ", quoted(path))));
  EXPECT_EQ(openDescriptors(), before);
}

#if !defined(__APPLE__)
TEST_F(OSAL_FileTest, AFileThatCannotBeKeptOutOfTheCacheIsOpenAllTheSame) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RWEXISTING, OSAL_OPEN_NOCACHE, false), 0);
  EXPECT_THAT(
      log.lines(),
      ElementsAre(text("OSAL:WRN Cannot desactivate cache (", ESPIPE, ") for file ", quoted(path)),
                  text("OSAL:INF File opened (", file.fd, ") : ", quoted(path))));
  EXPECT_EQ(file.close(true, true), 0);
  log.clear();
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RWEXISTING, OSAL_OPEN_NOCACHE, true), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}
#endif

TEST_F(OSAL_FileTest, ReadsWhatThereIs) {
  writeFile(path, "0123456789abcdefXYZ");
  openQuietly(path, QD_OPENMODE_RDONLY);
  const struct {
    unsigned int asked;
    std::string expected;
    std::string dump;
  } kCases[] = {
      {2, "01", "0000   30 31" + std::string(14 * 3, ' ') + "    01"},
      {17, "23456789abcdefXYZ",
       "0000   32 33 34 35 36 37 38 39 61 62 63 64 65 66 58 59    23456789abcdefXY"},
      {100, "", "UNDEF"},
  };
  for (const auto& c : kCases) {
    log.clear();
    char buf[100];
    unsigned int length = c.asked;
    EXPECT_EQ(file.read(buf, &length, false), 0);
    EXPECT_EQ(std::string(buf, length), c.expected);
    EXPECT_THAT(log.lines(),
                ElementsAre(text("OSAL:INF Data read (", length, "B) from file (", file.fd, ")"),
                            text("OSAL:DGB Data (", length, " B) = ", c.dump)));
  }
  EXPECT_EQ(file.seekSet(9), 0);
  log.clear();
  char buf[100];
  unsigned int length = sizeof buf;
  EXPECT_EQ(file.read(buf, &length, true), 0);
  EXPECT_EQ(length, 10U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OSAL_FileTest, AFailedReadLeavesTheLengthAlone) {
  openQuietly(path, QD_OPENMODE_RWCANCREATE, OSAL_OPEN_BUFFERED);  // which can only write
  for (const bool silent : {false, true}) {
    log.clear();
    char buf[10];
    unsigned int length = 10;
    EXPECT_EQ(file.read(buf, &length, silent), -1);
    EXPECT_EQ(file.read(nullptr, &length, silent), -1);
    EXPECT_EQ(file.read(buf, nullptr, silent), -1);
    EXPECT_EQ(length, 10U);
    if (silent) {
      EXPECT_THAT(log.lines(), IsEmpty());
    } else {
      EXPECT_THAT(log.lines(),
                  ElementsAre(text("OSAL:ERR Cannot read (", EBADF, ") from file (", file.fd, ")"),
                              "OSAL:ERR Arguments error", "OSAL:ERR Arguments error"));
    }
  }
}

TEST_F(OSAL_FileTest, WritesAllOrFails) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  EXPECT_EQ(file.writeFix("0123456789abcdef!", 17), 0);
  EXPECT_EQ(file.writeFix("", 0), 0);
  EXPECT_EQ(file.writeFix(nullptr, 1), -1);
  EXPECT_THAT(
      log.lines(),
      ElementsAre(text("OSAL:INF Data written (17B) to file (", file.fd, ")"),
                  "OSAL:DGB Data (17 B) = 0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 "
                  "   0123456789abcdef",
                  text("OSAL:INF Data written (0B) to file (", file.fd, ")"),
                  "OSAL:DGB Data (0 B) = UNDEF", "OSAL:ERR Arguments error"));
  EXPECT_EQ(content(path), "0123456789abcdef!");
}

TEST_F(OSAL_FileTest, AShortWriteStaysInTheFileAndFails) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  {
    const FileSizeLimit limit(4);
    EXPECT_EQ(file.writeFix("abcdef", 6), -1);
    EXPECT_EQ(file.writeFix("abcdef", 6), -1);
  }
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:ERR Only 4B instead of 6B written to file (", file.fd, ")"),
                          text("OSAL:ERR Cannot write (", EFBIG, ") to file (", file.fd, ")")));
  EXPECT_EQ(content(path), "abcd");
}

TEST_F(OSAL_FileTest, WritesThroughStdioWithoutAMessage) {
  openQuietly(path, QD_OPENMODE_RWCANCREATE, OSAL_OPEN_BUFFERED);
  EXPECT_EQ(file.writeFix("abc", 3), 0);
  EXPECT_EQ(file.writeFix("", 0), 0);
  EXPECT_EQ(file.writeFix(nullptr, 0), -1);
  EXPECT_EQ(content(path), "");
  EXPECT_EQ(file.close(true, true), 0);
  EXPECT_EQ(content(path), "abc");

  openQuietly(path, QD_OPENMODE_RDONLY, OSAL_OPEN_BUFFERED);
  EXPECT_EQ(file.writeFix("x", 1), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Arguments error",
                                       text("OSAL:ERR Cannot write (", EBADF, ") to file (@",
                                            static_cast<void*>(file.stream), ")")));
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
  char buf[1];
  unsigned int length = 1;
  for (const bool silent : {false, true}) {
    const struct {
      const char* name;
      bool canBeSilent;
      std::function<int()> call;
    } kCases[] = {
        {"read", true, [&] { return file.read(buf, &length, silent); }},
        {"getSize", true, [&] { return file.getSize(nullptr, nullptr, silent); }},
        {"close", true, [&] { return file.close(silent, true); }},
        {"writeFix", false, [&] { return file.writeFix("", 0); }},
        {"truncate", false, [&] { return file.truncate(0); }},
        {"seekSet", false, [&] { return file.seekSet(0); }},
        {"sync", false, [&] { return file.sync(); }},
    };
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.name);
      log.clear();
      EXPECT_EQ(c.call(), -1);
      if (silent && c.canBeSilent) {
        EXPECT_THAT(log.lines(), IsEmpty());
      } else {
        EXPECT_THAT(log.lines(), ElementsAre(text("OSAL:ERR Invalid handle (", c.name, ")")));
      }
    }
  }
  log.clear();
  EXPECT_EQ(file.close(false, false), 0);
  EXPECT_THAT(log.lines(), IsEmpty());

  // An attempt to open a buffered file does not leave the object half open.
  EXPECT_EQ(file.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_BUFFERED, true), -1);
  EXPECT_EQ(file.writeFix("x", 1), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Invalid handle (writeFix)"));
}

TEST_F(OSAL_FileTest, TruncatesSeeksAndSynchronizes) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  EXPECT_EQ(file.truncate(5'000'000'000), 0);
  EXPECT_EQ(file.seekSet(4'999'999'999), 0);
  EXPECT_EQ(file.sync(), 0);
  const int fd = file.fd;
  EXPECT_EQ(file.close(false, true), 0);
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:INF File (", fd, ") truncated to size 5000000000"),
                          text("OSAL:INF lseek/SEEK_SET at pos 4999999999 on file (", fd, ")"),
                          text("OSAL:INF File synchronized (", fd, ")"),
                          text("OSAL:INF File closed (", fd, ")")));
  EXPECT_EQ(fs::file_size(path), 5'000'000'000U);
}

TEST_F(OSAL_FileTest, ReportsWhatTheSystemRefuses) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  openQuietly(path, QD_OPENMODE_RWEXISTING);
  EXPECT_EQ(file.truncate(1), -1);
  EXPECT_EQ(file.seekSet(1), -1);
  EXPECT_EQ(file.sync(), -1);
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          text("OSAL:ERR Cannot truncate (", EINVAL, ") file (", file.fd, ") to size 1"),
          text("OSAL:ERR Cannot make lseek/SEEK_SET (", ESPIPE, ") on file (", file.fd, ")"),
          text("OSAL:ERR Cannot synchronize (", EINVAL, ") file (", file.fd, ")")));
}

TEST_F(OSAL_FileTest, SizesAndPositionsBeyondTheSystemsTypeFail) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  for (const unsigned long long beyond : {1ULL << 63, ULLONG_MAX}) {
    log.clear();
    EXPECT_EQ(file.truncate(beyond), -1);
    EXPECT_EQ(file.seekSet(beyond), -1);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            text("OSAL:ERR Cannot truncate (", EINVAL, ") file (", file.fd, ") to size ", beyond),
            text("OSAL:ERR Cannot make lseek/SEEK_SET (", EINVAL, ") on file (", file.fd, ")")));
  }
}

TEST_F(OSAL_FileTest, TellsLengthAndSpace) {
  openQuietly(path, QD_OPENMODE_RWNOTEXISTING);
  unsigned long long size = 1;
  unsigned long long allocated = 1;
  EXPECT_EQ(file.getSize(&size, &allocated, false), 0);
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(allocated, 0U);
  EXPECT_THAT(log.lines(), ElementsAre(text("OSAL:DBG get size = 0 of file (", file.fd, ")"),
                                       text("OSAL:DBG get real size = 0 of file (", file.fd, ")")));

  EXPECT_EQ(file.writeFix("x", 1), 0);
  EXPECT_EQ(file.truncate(5'000'000'000), 0);
  EXPECT_EQ(file.sync(), 0);  // some systems give a file its space only then
  log.clear();
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(file.getSize(&size, nullptr, true), 0);
  EXPECT_EQ(file.getSize(nullptr, &allocated, true), 0);
  EXPECT_EQ(file.getSize(nullptr, nullptr, true), 0);
  EXPECT_EQ(size, 5'000'000'000U);
  EXPECT_EQ(allocated, static_cast<unsigned long long>(info.st_blocks) * 512);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OSAL_FileTest, AFailedCloseClosesAllTheSame) {
  for (const bool silent : {false, true}) {
    openQuietly(path, QD_OPENMODE_RWCANCREATE);
    log.clear();
    const int fd = file.fd;
    ::close(fd);
    unsigned long long size = 1;
    EXPECT_EQ(file.getSize(&size, &size, silent), -1);
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(file.close(silent, true), -1);
    EXPECT_EQ(file.fd, -1);
    if (silent) {
      EXPECT_THAT(log.lines(), IsEmpty());
    } else {
      EXPECT_THAT(log.lines(),
                  ElementsAre(text("OSAL:ERR Cannot get stat (", EBADF, ") on file (", fd, ")"),
                              text("OSAL:EL2 Cannot close (", EBADF, ") file (", fd, ")")));
    }
  }
}

#if !defined(__APPLE__)
TEST_F(OSAL_FileTest, WhatStdioCouldNotWriteIsReportedOnce) {
  openQuietly("/dev/full", QD_OPENMODE_RWCANCREATE, OSAL_OPEN_BUFFERED);
  const int fd = file.fd;
  EXPECT_EQ(file.writeFix("x", 1), 0);
  EXPECT_EQ(file.sync(), -1);
  EXPECT_EQ(file.writeFix("y", 1), 0);
  EXPECT_EQ(file.close(false, true), -1);
  EXPECT_EQ(file.fd, -1);
  EXPECT_EQ(file.stream, nullptr);
  EXPECT_THAT(log.lines(),
              ElementsAre(text("OSAL:ERR Cannot synchronize (", ENOSPC, ") file (", fd, ")"),
                          text("OSAL:EL2 Cannot close (", ENOSPC, ") file (", fd, ")")));
}
#endif

TEST_F(OSAL_FileTest, TheDestructorClosesSilently) {
  const std::ptrdiff_t before = openDescriptors();
  for (const unsigned short options : kEitherKind) {
    OSAL_File other;
    ASSERT_EQ(other.open(bytes(path), QD_OPENMODE_RWCANCREATE, options, true), 0);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OSAL_FileTest, OpenOwnReplacesWhatIsInTheWay) {
  const std::string victim = folder / "victim";
  const struct {
    const char* what;
    std::function<void()> prepare;
  } kCases[] = {
      {"nothing", [] {}},
      {"file of its own", [this] { writeFile(path, "a longer old value"); }},
      {"link", [&] { fs::create_symlink(victim, path); }},
      {"dangling link", [this] { fs::create_symlink(folder / "nowhere", path); }},
      {"second hard link", [&] { fs::create_hard_link(victim, path); }},
      {"fifo", [this] { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0); }},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    writeFile(victim, "precious");
    fs::remove(path);
    c.prepare();
    log.clear();
    ASSERT_EQ(file.openOwn(bytes(path), false), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(text("OSAL:INF File opened (", file.fd, ") : ", quoted(path))));
    EXPECT_EQ(::fcntl(file.fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(file.writeFix("new", 3), 0);
    EXPECT_EQ(file.close(true, true), 0);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
    EXPECT_EQ(content(path), "new");
    EXPECT_EQ(content(victim), "precious");
    EXPECT_FALSE(fs::exists(folder / "nowhere"));
  }
}

TEST_F(OSAL_FileTest, OpenOwnFollowsNoLinkToTheFolder) {
  fs::create_directory(folder / "real");
  fs::create_directory_symlink(folder / "real", folder / "link");
  const std::ptrdiff_t before = openDescriptors();
  for (const char* const name :
       {"link/value", "link//value", "missing/value", "real/..", "real/"}) {
    SCOPED_TRACE(name);
    log.clear();
    EXPECT_EQ(file.openOwn(bytes(folder / name), true), -1);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(file.openOwn(bytes(folder / name), false), -1);
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::MatchesRegex("OSAL:ERR Cannot open \\([0-9]+\\) file \"" +
                                                  folder / name + "\"")));
    EXPECT_EQ(file.fd, -1);
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(fs::is_empty(folder / "real"));
}

}  // namespace
