#include <bit>
#include <boost/endian/conversion.hpp>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

using Byte = unsigned char;

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

bool within(Byte byte, Byte first, Byte last) { return byte >= first && byte <= last; }

bool isContinuation(Byte byte) { return (byte & 0xC0) == 0x80; }

/// The functions below read behind the lead byte only as far as the bytes before are good, so a
/// terminator stops them.

bool isGoodThree(const Byte* p) {
  const Byte first = p[0] == 0xE0 ? 0xA0 : 0x80;
  const Byte last = p[0] == 0xED ? 0x9F : 0xBF;  // above are the surrogates
  if (!within(p[1], first, last) || !isContinuation(p[2])) return false;
  if (p[0] != 0xEF) return true;
  const bool isNonCharacter =
      (p[1] == 0xBF && p[2] >= 0xBE) || (p[1] == 0xB7 && within(p[2], 0x90, 0xAF));
  return !isNonCharacter;
}

bool isGoodFour(const Byte* p) {
  const Byte first = p[0] == 0xF0 ? 0x90 : 0x80;
  const Byte last = p[0] == 0xF4 ? 0x8F : 0xBF;
  if (!within(p[1], first, last) || !isContinuation(p[2]) || !isContinuation(p[3])) return false;
  const bool isNonCharacter = (p[1] & 0xF) == 0xF && p[2] == 0xBF && p[3] >= 0xBE;
  return !isNonCharacter;
}

/// Length of the sequence of several bytes at `p` that may stay, 0 when it may not.
std::size_t goodLength(const Byte* p) {
  const Byte lead = *p;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return isContinuation(p[1]) ? 2 : 0;
  if (lead < 0xF0) return isGoodThree(p) ? 3 : 0;
  if (lead < 0xF5) return isGoodFour(p) ? 4 : 0;
  return 0;
}

/// Length of what one replacement stands for.
std::size_t badLength(const Byte* p) {
  const Byte lead = *p;
  std::size_t announced = 0;
  if (within(lead, 0xC0, 0xDF)) announced = 1;
  if (within(lead, 0xE0, 0xEF)) announced = 2;
  if (within(lead, 0xF0, 0xF7)) announced = 3;
  if (within(lead, 0xF8, 0xFB)) announced = 4;
  if (within(lead, 0xFC, 0xFD)) announced = 5;
  std::size_t length = 1;
  while (length <= announced && isContinuation(p[length])) ++length;
  return length;
}

/// End of the run of ASCII characters at `p`, found eight at a time.
const Byte* skipAscii(const Byte* p, const Byte* end) {
  constexpr std::uint64_t kTopBits = 0x8080808080808080;
  for (; end - p >= 8; p += 8) {
    const std::uint64_t others = boost::endian::load_little_u64(p) & kTopBits;
    if (others != 0) return p + std::countr_zero(others) / 8;
  }
  while (p < end && *p < 0x80) ++p;
  return p;
}

/// End of what can stay as it is from `p` on.
const Byte* skipGood(const Byte* p, const Byte* end) {
  while (p < end) {
    if (*p < 0x80) {
      p = skipAscii(p, end);
    } else {
      const std::size_t length = goodLength(p);
      if (length == 0) break;
      p += length;
    }
  }
  return p;
}

}  // namespace

const char* QDSys::fixedUTF8(const unsigned char* in, std::string& out) {
  if (in == nullptr) QD_THROW_ERROR("fixedUTF8: Arg is NULL");
  const auto* const outStart = reinterpret_cast<const Byte*>(out.data());
  if (std::less_equal<>{}(outStart, in) && std::less_equal<>{}(in, outStart + out.size())) {
    const std::string copy(reinterpret_cast<const char*>(in));
    return fixedUTF8(reinterpret_cast<const Byte*>(copy.c_str()), out);
  }
  const std::size_t length = std::strlen(reinterpret_cast<const char*>(in));
  const Byte* const end = in + length;
  out.clear();
  out.reserve(length);
  while (in < end) {
    const Byte* const bad = skipGood(in, end);
    out.append(reinterpret_cast<const char*>(in), static_cast<std::size_t>(bad - in));
    if (bad == end) break;
    out.append(kReplacement);
    in = bad + badLength(bad);
  }
  return out.c_str();
}
