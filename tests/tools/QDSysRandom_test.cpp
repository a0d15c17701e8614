#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <array>
#include <string>

#include "Refusal.h"
#include "tools/QDSys.h"

// OpenSSL 3 has no newer way than its method tables to make the generator fail.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

int answer = 1;

int answerBytes(unsigned char*, int) {
  if (answer == 0) ERR_put_error(ERR_LIB_RAND, 0, 7, "", 0);
  return answer;
}

/// A generator that fails for as long as the object lives.
class FailingGenerator {
 public:
  explicit FailingGenerator(int result) : former_(RAND_get_rand_method()) {
    answer = result;
    RAND_set_rand_method(&kMethod);
  }
  FailingGenerator(const FailingGenerator&) = delete;
  FailingGenerator& operator=(const FailingGenerator&) = delete;
  ~FailingGenerator() {
    RAND_set_rand_method(former_);
    ERR_clear_error();
  }

 private:
  static constexpr RAND_METHOD kMethod = {nullptr, answerBytes, nullptr, nullptr, nullptr, nullptr};
  const RAND_METHOD* former_;
};

TEST(QDSysRandom, FillsAll) {
  EXPECT_NE(QDSys::QDRand(), QDSys::QDRand());
  std::array<unsigned char, 66> buffer{};
  QDSys::QDRand(buffer.data(), 65);
  EXPECT_NE(std::string(buffer.begin() + 49, buffer.begin() + 65), std::string(16, '\0'));
  EXPECT_EQ(buffer[65], 0);
  QDSys::QDRand(nullptr, 0);
}

TEST(QDSysRandom, ReportsHowTheGeneratorFailed) {
  const std::string code = std::to_string(ERR_PACK(ERR_LIB_RAND, 0, 7));
  unsigned char buffer[8] = {};
  const auto number = [] { QDSys::QDRand(); };
  const auto block = [&] { QDSys::QDRand(buffer, sizeof buffer); };
  QDSys::QDRand();  // the generator is seeded once, before it fails
  {
    const FailingGenerator failing(-1);
    const std::string text = "RAND_bytes error (not supported by the current RAND method)";
    EXPECT_EQ(refusal(number), refused("random (init): " + text));
    EXPECT_EQ(refusal(block), refused("random: " + text));
  }
  {
    const FailingGenerator failing(0);
    EXPECT_EQ(refusal(number), refused("random (init): RAND_bytes error : " + code));
    EXPECT_EQ(refusal(block), refused("random: RAND_bytes error : " + code));
  }
}

}  // namespace
