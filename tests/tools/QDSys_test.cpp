// Digests, buffers, chance and time.

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "PosixFaults.h"
#include "SystemHooks.h"
#include "ToolsTest.h"
#include "tools/QDBuffer.h"
#include "tools/QDHash.h"
#include "tools/QDSys.h"
#include "tools/TimeoutTerminator.h"

namespace {

unsigned long long fakeNow = 0;
int randomResult = 1;
bool contextsFail = false;

}  // namespace

// The linker sends the calls of NAME to __wrap_NAME (see --wrap in CMakeLists.txt).
extern "C" {

unsigned long long __real__ZN5QDSys6timeMsEv();
unsigned long long __wrap__ZN5QDSys6timeMsEv() {
  return fakeNow != 0 ? fakeNow : __real__ZN5QDSys6timeMsEv();
}

int __real_RAND_bytes(unsigned char* out, int size);
int __wrap_RAND_bytes(unsigned char* out, int size) {
  ERR_clear_error();
  if (randomResult == 0) ERR_raise(ERR_LIB_RAND, 7);
  return randomResult == 1 ? __real_RAND_bytes(out, size) : randomResult;
}

EVP_MD_CTX* __real_EVP_MD_CTX_new();
EVP_MD_CTX* __wrap_EVP_MD_CTX_new() { return contextsFail ? nullptr : __real_EVP_MD_CTX_new(); }

}  // extern "C"

namespace {

std::string hexOf(QDHashMD5& hash) {
  unsigned char out[33] = {};
  hash.getHex(out);
  return reinterpret_cast<char*>(out);
}

std::string hashOf(const std::string& data) {
  QDHashMD5 hash;
  hash.update(data.data(), static_cast<unsigned int>(data.size()));
  return hexOf(hash);
}

const std::string kOfNothing = "D41D8CD98F00B204E9800998ECF8427E";
const std::string kOfAbc = "900150983CD24FB0D6963F7D28E17F72";
const std::string kZeros(32, '0');

TEST(QDHashMD5, ComputesDigestsThatTheirFirstReadingFinishes) {
  QDHashMD5 hash;
  hash.update("a", 1);
  hash.update("bc", 2);
  EXPECT_EQ(hexOf(hash), kOfAbc);
  EXPECT_EQ(hexOf(hash), kOfAbc);
  EXPECT_EQ(refusal([&] { hash.updateWithNum(1); }), refused("Cannot update, bad state"));
  hash.reset();
  EXPECT_EQ(hexOf(hash), kOfNothing);
  unsigned char out[33] = {};
  EXPECT_EQ(QDHashMD5::hexHashForStr(bytes("abc"), out), 32);
  EXPECT_EQ(reinterpret_cast<char*>(out), kOfAbc);
  unsigned long long first = 0;
  unsigned long long second = 0;
  QDHashMD5::computeHash("abc", 3, out, &first, &second);
  EXPECT_EQ(std::pair(first, second), std::pair(0x900150983CD24FB0ULL, 0xD6963F7D28E17F72ULL));
  for (const auto& [number, fed] :
       std::initializer_list<std::pair<unsigned long long, std::string>>{
           {0, "0"}, {120, "021"}, {~0ULL, "51615590737044764481"}}) {
    QDHashMD5 ofNumber;
    QDHashMD5 ofText;
    ofNumber.updateWithNum(number);
    ofText.updateWithStr(bytes(fed));
    EXPECT_EQ(hexOf(ofNumber), hashOf(fed + '\0'));
    EXPECT_EQ(hexOf(ofText), hashOf(fed + '\0'));
  }
  for (const auto& [hex, valid] : std::initializer_list<std::pair<std::string, bool>>{
           {kOfAbc + "  file", true}, {kOfAbc.substr(0, 31), false}, {"", false}}) {
    const std::vector<unsigned char> exact(hex.c_str(), hex.c_str() + hex.size() + 1);
    EXPECT_EQ(QDHashMD5::convertHexToBin(exact.data(), out), valid) << hex;
  }
}

TEST(QDHashMD5, HashesFilesOfAnySizeAndTakesWhatCannotBeReadAsEmpty) {
  const TempFolder folder;
  const std::ptrdiff_t before = openDescriptors();
  const LogCapture log("OSAL:9;EXCP:9;");
  const auto ofFile = [](const std::string& path) {
    unsigned char out[33] = {};
    QDHashMD5::computeFileHexHash(bytes(path), out);
    return std::string(reinterpret_cast<char*>(out));
  };
  for (const std::size_t size : {1U, 131071U, 131072U, 131073U, 1000000U}) {
    writeFile(folder / "file", pattern(size));
    EXPECT_EQ(ofFile(folder / "file"), hashOf(pattern(size))) << size;
  }
  EXPECT_EQ(ofFile(folder / "missing") + ofFile(folder.path()), kOfNothing + kOfNothing);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(openDescriptors(), before);
}

TEST(QDHashMD5, GivesZerosWhereOpenSSLRefuses) {
  QDHashMD5 hash;
  EXPECT_EQ(hexOf(hash), kOfNothing);
  EVP_default_properties_enable_fips(nullptr, 1);
  hash.reset();
  const std::string digest = hexOf(hash);
  EVP_default_properties_enable_fips(nullptr, 0);
  EXPECT_EQ(digest, kZeros);
  contextsFail = true;
  const std::string withoutContext = hashOf("abc");
  contextsFail = false;
  EXPECT_EQ(withoutContext, kZeros);
}

TEST(QDBuffer, HasOneSizeIsAllocatedOnceAndGrowsOnAPageIfAsked) {
  QDBuffer none;
  EXPECT_EQ(refusal([&] { none.getPtr(); }), refused("Buffer size not defined"));
  EXPECT_EQ(refusal([&] { none.realloc(5); }), refused("Buffer size not defined"));
  for (const bool onPage : {false, true}) {
    QDBuffer buffer(50, onPage, true);
    EXPECT_EQ(refusal([&] { buffer.alloc(200); }), refused("Size already defined"));
    buffer.realloc(100);  // nothing to keep yet
    buffer.alloc(100);
    EXPECT_EQ(refusal([&] { buffer.alloc(100); }), refused("Buffer duplicate alloc"));
    EXPECT_EQ(refusal([&] { buffer.realloc(99); }), refused("Cannot reduce size"));
    std::memset(buffer.getPtr(), 'x', 100);
    buffer.realloc(100);
    buffer.realloc(10000);
    const unsigned char* const data = buffer.getPtr();
    EXPECT_EQ(std::string(data, data + 10000), std::string(100, 'x') + std::string(9900, '\0'));
    if (onPage) {
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 4096, 0U);
    }
    buffer.release();
    std::memset(buffer.getPtr(), 'x', 10000);
  }
}

TEST(QDSysRandom, FillsAllAndReportsHowTheGeneratorFailed) {
  unsigned char buffer[66] = {};
  EXPECT_NE(QDSys::QDRand(), QDSys::QDRand());
  QDSys::QDRand(buffer, 65);
  EXPECT_NE(std::string(buffer + 49, buffer + 65), std::string(16, '\0'));
  EXPECT_EQ(buffer[65], 0);
  const std::string code = std::to_string(ERR_PACK(ERR_LIB_RAND, 0, 7));
  for (const auto& [result, text] : std::initializer_list<std::pair<int, std::string>>{
           {-1, "RAND_bytes error (not supported by the current RAND method)"},
           {0, "RAND_bytes error : " + code}}) {
    randomResult = result;
    EXPECT_EQ(refusal([] { QDSys::QDRand(); }), refused("random (init): " + text));
    EXPECT_EQ(refusal([&] { QDSys::QDRand(buffer, 8); }), refused("random: " + text));
  }
  randomResult = 1;
}

/// Lets so many slices pass.
class StopAfter : public QDTermIntf {
 public:
  explicit StopAfter(int slices) : left_(slices) {}
  bool chkTerminate() override { return left_-- <= 0; }

 private:
  int left_;
};

TEST(QDSysTime, PausesAreSlicedAndEndWhenAskedToOrWhenTheSystemCannotPause) {
  const std::string stopped = "IDLE:DBG Sleep interrupted due to requested termination : \"why\"";
  const std::string second = "IDLE:INF sleep 1000 ms : \"why\"";
  const std::string whole = "IDLE:INF sleep 2500 ms : \"why\"";
  using Lines = std::vector<std::string>;
  const struct {
    std::function<void(QDTermIntf*)> sleep;
    int stopAfter;
    int failAt;
    std::vector<long> pauses;
    Lines lines;
  } kCases[] = {
      {[](QDTermIntf* t) { QDSys::sleepMs(2500, t, "why"); }, 9, 0, {1000, 1000, 500}, {whole}},
      {[](QDTermIntf*) { QDSys::sleepMs(1000, nullptr, "why"); }, 9, 0, {1000}, {second}},
      {[](QDTermIntf* t) { QDSys::sleepMs(2500, t, "why"); }, 2, 0, {1000, 1000}, {whole, stopped}},
      {[](QDTermIntf* t) { QDSys::sleepMs(2500, t, "why"); },
       9,
       2,
       {1000},
       {whole, "OSAL:EL2 Cannot sleep ! (22)", "IDLE:EL2 Cannot sleep 2500 ms"}},
      {[](QDTermIntf* t) { QDSys::sleep(3, t, "why"); },
       1,
       0,
       {1000},
       {"IDLE:INF sleep 3 s : \"why\"", second, stopped}},
  };
  for (const auto& [sleep, stopAfter, failing, pauses, lines] : kCases) {
    const LogCapture log("IDLE:9;");
    SystemHooks hooks;
    hooks.pausing = failAt(failing, EINVAL);
    StopAfter stop(stopAfter);
    sleep(&stop);
    EXPECT_EQ(hooks.pauses, pauses);
    EXPECT_EQ(log.lines(), lines);
  }
}

TEST(QDSysTime, StartsFromTheClockAndNeverRunsBackwards) {
  const unsigned long long first = QDSys::timeMs();
  const auto clock = std::chrono::system_clock::now().time_since_epoch();
  const std::chrono::duration<double, std::milli> clockMs = clock;
  EXPECT_NEAR(static_cast<double>(first), clockMs.count(), 3'600'000);
  const FakeClock longAgo(5, 0);
  EXPECT_GE(QDSys::timeMs(), first);
  const unsigned long long id = QDSys::getWeakSeqID();
  EXPECT_EQ(QDSys::getWeakSeqID(), id + 1);
}

TEST(QDSysTime, IsRefusedWithoutAClockAndAskedForAgain) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // nobody has asked for the time in there
  const auto message = [] {
    const FakeClock none(-1, 0);
    return refusal([] { QDSys::timeMs(); });
  };
  EXPECT_EXIT(message() == refused("timeMs: Cannot get time in ms") && QDSys::timeMs() > 0
                  ? QDSys::exitRLDB()
                  : QDSys::exitErr(5),
              testing::ExitedWithCode(97), "");
}

TEST(TimeoutTerminator, IsTrueFromTheEndOfTheTimeOn) {
  constexpr unsigned long long kStart = 1'700'000'000'000;
  TimeoutTerminator reset(0);
  for (const auto& [timeout, passed, over] :
       std::initializer_list<std::tuple<unsigned long long, unsigned long long, bool>>{
           {0, 0, true}, {1000, 999, false}, {1000, 1000, true}, {~0ULL, ~0ULL - kStart, false}}) {
    fakeNow = kStart;
    TimeoutTerminator fresh(timeout);
    reset.reset(timeout);
    fakeNow = kStart + passed;
    EXPECT_EQ(fresh.chkTerminate(), over) << passed;
    EXPECT_EQ(reset.chkTerminate(), over) << passed;
  }
  fakeNow = 0;
}

}  // namespace
