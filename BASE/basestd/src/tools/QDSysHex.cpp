#include <array>
#include <climits>
#include <cstdint>
#include <cstring>

#include "ground/osal_bytes.h"
#include "ground/osal_hex.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

/// Converts `pairs` pairs; the number is a constant so that the compiler converts many at once.
/// Returns whether all are digits.
template <std::size_t pairs>
bool convertBlock(const unsigned char* hex, unsigned char* to) {
  std::array<std::uint8_t, 2 * pairs> values;
  std::uint8_t all = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = osal_hexValue(hex[i]);
    all |= values[i];
  }
  if (all > 0xF) return false;
  for (std::size_t i = 0; i < pairs; ++i) {
    to[i] = static_cast<unsigned char>(values[2 * i] << 4 | values[2 * i + 1]);
  }
  return true;
}

}  // namespace

int QDSys::convertBinToHex(const void* bin, unsigned int n, char* out, unsigned int outSize,
                           bool lowerCase) {
  const std::uint64_t length = std::uint64_t{n} * 2;
  if (length > outSize || length > INT_MAX) QD_THROW_ERROR("convertBinToHex: Buffer too short");
  if (n == 0) return 0;
  _checkArgs("convertBinToHex", bin, out);

  osal_writeHex(static_cast<const std::uint8_t*>(bin), n, lowerCase, out);
  return static_cast<int>(length);
}

int QDSys::convertBinToHex(const void* bin, unsigned int n, unsigned char* out,
                           unsigned int outSize, bool lowerCase) {
  return convertBinToHex(bin, n, osal_chars(out), outSize, lowerCase);
}

int QDSys::convertBinToHexStrNull(const void* bin, unsigned int n, unsigned char* out,
                                  unsigned int outSize) {
  if (n == 0) return convertBinToHex("", 1, out, outSize, false);
  return convertBinToHex(bin, n, out, outSize, false);
}

int QDSys::convertHexToBin(const unsigned char* hex, unsigned int hexLen, void* bin,
                           unsigned int binSize) {
  if (hexLen / 2 > binSize) QD_THROW_ERROR("convertHexToBin: Buffer too short");
  if (hexLen / 2 == 0) return 0;
  _checkArgs("convertHexToBin", hex, bin);

  // Nothing behind a terminator may be read.
  const std::size_t pairs = ::strnlen(osal_chars(hex), hexLen) / 2;
  constexpr std::size_t kBlock = 32;
  auto* const to = static_cast<unsigned char*>(bin);
  std::size_t i = 0;
  while (i + kBlock <= pairs && convertBlock<kBlock>(hex + 2 * i, to + i)) i += kBlock;
  while (i < pairs && convertBlock<1>(hex + 2 * i, to + i)) ++i;
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
