#include <array>
#include <climits>
#include <cstdint>

#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

/// The digit of a value below 16; `letterGap` is how much further than "9" its letters begin.
/// Arithmetic on bytes instead of a table, so that the compiler converts many of them at once.
constexpr char digit(std::uint8_t value, std::uint8_t letterGap) {
  const std::uint8_t gap = value > 9 ? letterGap : std::uint8_t{0};
  return static_cast<char>(static_cast<std::uint8_t>(value + '0' + gap));
}

constexpr std::uint8_t kNoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> digitValues() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (std::uint8_t i = 0; i < 10; ++i) values['0' + i] = i;
  for (std::uint8_t i = 0; i < 6; ++i) {
    values['a' + i] = values['A' + i] = static_cast<std::uint8_t>(10 + i);
  }
  return values;
}

constexpr std::array<std::uint8_t, 256> kDigitValues = digitValues();

}  // namespace

int QDSys::convertBinToHex(const void* bin, unsigned int n, char* out, unsigned int outSize,
                           bool lowerCase) {
  const std::uint64_t length = std::uint64_t{n} * 2;
  if (length > outSize || length > INT_MAX) QD_THROW_ERROR("convertBinToHex: Buffer too short");
  if (n == 0) return 0;
  _checkArgs("convertBinToHex", bin, out);

  const std::uint8_t letterGap = (lowerCase ? 'a' : 'A') - '9' - 1;
  const auto* const from = static_cast<const std::uint8_t*>(bin);
  for (std::size_t i = 0; i < n; ++i) {
    out[2 * i] = digit(from[i] >> 4, letterGap);
    out[2 * i + 1] = digit(from[i] & 0xF, letterGap);
  }
  return static_cast<int>(length);
}

int QDSys::convertBinToHex(const void* bin, unsigned int n, unsigned char* out,
                           unsigned int outSize, bool lowerCase) {
  return convertBinToHex(bin, n, reinterpret_cast<char*>(out), outSize, lowerCase);
}

int QDSys::convertBinToHexStrNull(const void* bin, unsigned int n, unsigned char* out,
                                  unsigned int outSize) {
  if (n == 0) return convertBinToHex("", 1, out, outSize, false);
  return convertBinToHex(bin, n, out, outSize, false);
}

int QDSys::convertHexToBin(const unsigned char* hex, unsigned int hexLen, void* bin,
                           unsigned int binSize) {
  const unsigned int pairs = hexLen / 2;
  if (pairs > binSize) QD_THROW_ERROR("convertHexToBin: Buffer too short");
  if (pairs == 0) return 0;
  _checkArgs("convertHexToBin", hex, bin);

  auto* const to = static_cast<unsigned char*>(bin);
  std::size_t i = 0;
  for (; i < pairs; ++i) {
    const std::uint8_t high = kDigitValues[hex[2 * i]];
    if (high == kNoDigit) break;  // maybe the terminator, behind which nothing may be read
    const std::uint8_t low = kDigitValues[hex[2 * i + 1]];
    if (low == kNoDigit) break;
    to[i] = static_cast<unsigned char>(high << 4 | low);
  }
  return static_cast<int>(i);
}

int QDSys::convertHexStrNullToBin(const unsigned char* hex, unsigned int hexLen, void* bin,
                                  unsigned int binSize) {
  _checkArgs("convertHexStrNullToBin", hex, bin);
  const int count = convertHexToBin(hex, hexLen, bin, binSize);
  if (static_cast<unsigned int>(count) >= binSize) {
    QD_THROW_ERROR("convertHexStrNullToBin: Buffer too small");
  }
  static_cast<unsigned char*>(bin)[count] = 0;
  return count;
}
