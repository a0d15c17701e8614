#include <algorithm>
#include <array>
#include <bit>
#include <boost/endian/conversion.hpp>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ground/osal_bytes.h"
#include "ground/osal_hex.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

using Byte = unsigned char;

constexpr std::string_view kUnescaped =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-./_~";

/// What one byte becomes: the first `length` characters of `text`. Copied whole, four bytes at
/// once, so that encoding has no branch for data to mislead.
struct Encoded {
  char text[3];
  std::uint8_t length;
};
static_assert(sizeof(Encoded) == 4);

constexpr std::array<Encoded, 256> encodedBytes() {
  std::array<Encoded, 256> table{};
  for (std::size_t byte = 0; byte < table.size(); ++byte) {
    table[byte] = {{'%', osal_hexDigit(static_cast<Byte>(byte >> 4)), osal_hexDigit(byte & 0xF)},
                   3};
  }
  for (const char c : kUnescaped) table[static_cast<Byte>(c)] = {{c, 0, 0}, 1};
  return table;
}

constexpr std::array<Encoded, 256> kEncoded = encodedBytes();

/// Lower-case letters are no digits of an escape.
constexpr std::array<std::uint8_t, 256> digitValues() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoHexDigit);
  for (std::uint8_t i = 0; i < 16; ++i) values[static_cast<Byte>(osal_hexDigit(i))] = i;
  return values;
}

constexpr std::array<std::uint8_t, 256> kDigitValues = digitValues();

/// Sets bit i of the result where `text[i]` is "%", for 64 characters, eight at a time: a byte that
/// is zero after the XOR keeps its top bit, and the product gathers the top bits in one byte.
std::uint64_t findPercents(const Byte* text) {
  constexpr std::uint64_t kLow7 = 0x7F7F7F7F7F7F7F7F;
  std::uint64_t found = 0;
  for (std::size_t word = 0; word < 8; ++word) {
    const std::uint64_t x =
        boost::endian::load_little_u64(text + 8 * word) ^ 0x2525252525252525;  // eight "%"
    const std::uint64_t zeros = ~(((x & kLow7) + kLow7) | x | kLow7);
    found |= ((zeros >> 7) * 0x0102040810204080 >> 56) << (8 * word);
  }
  return found;
}

/// Decodes the one character or escape at `in` and moves both positions behind it. A digit is read
/// only after the one before it, so the terminator is never passed.
void decodeOne(const Byte*& in, Byte*& out) {
  Byte c = *in++;
  if (c == '%') {
    const std::uint8_t high = kDigitValues[in[0]];
    const std::uint8_t low = high == kNoHexDigit ? kNoHexDigit : kDigitValues[in[1]];
    if (low != kNoHexDigit) {
      c = static_cast<Byte>(high << 4 | low);
      in += 2;
    }
  }
  *out++ = c;
}

constexpr std::ptrdiff_t kStep = 16;  // what is copied at once, whatever the length

/// Copies the characters from `in` to `end`. Up to `kStep` bytes behind them are touched as well.
Byte* copyRun(const Byte* in, const Byte* end, Byte* out) {
  const std::ptrdiff_t length = end - in;
  std::memcpy(out, in, kStep);
  if (length > kStep) {
    std::memcpy(out + kStep, in + kStep, static_cast<std::size_t>(length - kStep));
  }
  return out + length;
}

constexpr std::ptrdiff_t kChunk = 8192;

/// Decodes from `in`, which moves, to `end` or, with an escape across it, two characters further.
/// `out` has room for `kChunk` + `kStep` bytes. Returns the end of the output.
Byte* decodeChunk(const Byte*& in, const Byte* end, Byte* out) {
  const Byte* block = in;
  for (; end - block >= 64 + kStep; block += 64) {
    for (std::uint64_t found = findPercents(block); found != 0; found &= found - 1) {
      const Byte* const percent = block + std::countr_zero(found);
      out = copyRun(in, percent, out);
      in = percent;
      decodeOne(in, out);
    }
  }
  if (in < block) {
    out = copyRun(in, block, out);
    in = block;
  }
  while (in < end) decodeOne(in, out);
  return out;
}

}  // namespace

int QDSys::encodeURLfromUTF8(const unsigned char* in, unsigned char* out, unsigned int size) {
  _checkArgs("encodeURLfromUTF8", in, out);
  const std::ptrdiff_t room = std::min(size, static_cast<unsigned int>(INT_MAX));
  const Byte* const end = out + room;
  Byte* to = out;
  for (; *in != 0; ++in) {
    if (end - to < 4) QD_THROW_ERROR("encodeURLfromUTF8: Buffer too short");
    std::memcpy(to, &kEncoded[*in], sizeof(Encoded));
    to += kEncoded[*in].length;
  }
  if (to == end) QD_THROW_ERROR("encodeURLfromUTF8: Buffer too short");
  *to = 0;
  return static_cast<int>(to - out);
}

int QDSys::decodeURLtoUTF8(const unsigned char* in, unsigned char* out, unsigned int size) {
  _checkArgs("decodeURLtoUTF8", in, out);
  const std::ptrdiff_t room = std::min(size, static_cast<unsigned int>(INT_MAX));
  const Byte* const inEnd = in + std::strlen(osal_chars(in));
  Byte* to = out;
  // Through a chunk, since `out` may be `in`: a chunk is written when all of it has been read.
  std::array<Byte, kChunk + kStep> chunk;
  do {
    const Byte* const end = in + std::min(kChunk, inEnd - in);
    const std::ptrdiff_t length = decodeChunk(in, end, chunk.data()) - chunk.data();
    if (length >= room - (to - out)) QD_THROW_ERROR("decodeURLtoUTF8: Buffer too short");
    std::memcpy(to, chunk.data(), static_cast<std::size_t>(length));
    to += length;
  } while (in < inEnd);
  *to = 0;
  return static_cast<int>(to - out);
}
