// Digests and time.

#include <gtest/gtest.h>

#include <semaphore>
#include <string>
#include <vector>

#include "FolderTest.h"
#include "SystemHooks.h"
#include "osal/osal_time.h"
#include "tools/QDHash.h"
#include "tools/QDSys.h"
#include "tools/QDThread.h"
#include "tools/TimeoutTerminator.h"

namespace {

std::string hexOf(QDHashMD5& hash) {
  unsigned char out[33] = "before";
  hash.getHex(out);
  return reinterpret_cast<const char*>(out);
}

std::string hashOf(const std::string& data) {
  QDHashMD5 hash;
  hash.update(data.data(), static_cast<unsigned int>(data.size()));
  return hexOf(hash);
}

std::string hashOfFile(const std::string& path) {
  unsigned char out[33] = "before";
  QDHashMD5::computeFileHexHash(bytes(path), out);
  return reinterpret_cast<const char*>(out);
}

const std::string kOfNothing = "D41D8CD98F00B204E9800998ECF8427E";
const std::string kOfAbc = "900150983CD24FB0D6963F7D28E17F72";

TEST(QDHashMD5, ComputesDigestsThatTheirFirstReadingFinishes) {
  QDHashMD5 hash;
  hash.update("a", 1);
  hash.update("bc", 2);
  EXPECT_EQ(hexOf(hash), kOfAbc);
  EXPECT_EQ(refusal([&] { hash.updateWithNum(1); }), refused("Cannot update, bad state"));
  unsigned char out[33] = {};
  hash.reset();
  hash.updateWithNum(120);
  EXPECT_EQ(hexOf(hash), hashOf(std::string("021\0", 4))) << "digits from behind, and a NUL";
  EXPECT_TRUE(QDHashMD5::convertHexToBin(bytes(kOfAbc + "  file"), out));
  EXPECT_FALSE(QDHashMD5::convertHexToBin(bytes(kOfAbc.substr(0, 31)), out));
}

TEST(QDHashMD5, HashesFilesOfAnySizeAndTakesWhatCannotBeReadAsEmpty) {
  const TempFolder folder;
  const LogCapture log("OSAL:9;EXCP:9;");
  for (const std::size_t size : {1U, 131072U, 131073U}) {
    writeFile(folder / "file", pattern(size));
    EXPECT_EQ(hashOfFile(folder / "file"), hashOf(pattern(size))) << size;
  }
  EXPECT_EQ(hashOfFile(folder / "missing"), kOfNothing);
  EXPECT_EQ(hashOfFile(folder.path()), kOfNothing);
  EXPECT_TRUE(log.lines().empty());
}

TEST(QDSysTime, PausesAreSlicedAndEndWhenAskedTo) {
  const SystemHooks hooks;
  TimeoutTerminator atOnce(0);
  QDSys::sleepMs(2500, nullptr, "why");
  QDSys::sleepMs(2500, &atOnce, "why");
  EXPECT_EQ(hooks.pauses, (std::vector<long>{1000, 1000, 500}));
}

struct Seen {
  std::binary_semaphore start{0};
  std::binary_semaphore done{0};
  int value = 0;
};

TEST(QDThread, GetsACopyOfTheBlockOrTheBlockItselfAndMayThrow) {
  const LogCapture log("THRD:2;");
  for (const bool copied : {false, true}) {
    Seen seen;
    int block = 1;
    const auto look = [](void* data, void* ctx) -> void* {
      Seen& s = *static_cast<Seen*>(ctx);
      s.start.acquire();
      s.value = *static_cast<int*>(data);
      s.done.release();
      throw 7;
    };
    QDThread::launchThread(look, 0, &block, copied ? sizeof block : 0, "look",
                           QDThread::QD_QOS_DEFAULT, &seen);
    block = 2;
    seen.start.release();
    seen.done.acquire();
    EXPECT_EQ(seen.value, copied ? 1 : 2);
  }
  for (int i = 0; i < 10000 && log.lines().size() < 2; ++i) osal_doSleep(1);
  EXPECT_EQ(log.lines().back(), "THRD:ERR Exception occured during thread execution");
}

TEST(QDSysTime, DoesNotGoBackWithTheWallClock) {
  const unsigned long long first = QDSys::timeMs();
  SystemHooks hooks;
  hooks.now = timeval{1, 0};
  const unsigned long long second = QDSys::timeMs();
  EXPECT_GE(second, first);
  EXPECT_GT(QDSys::getWeakSeqID(), first);
  EXPECT_LE(second - first, 60'000U) << "and it is the time";
}

}  // namespace
