#include <algorithm>
#include <array>
#include <bit>
#include <boost/endian/conversion.hpp>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "ground/osal_bytes.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

using boost::endian::load_little_u32;
using boost::endian::load_little_u64;

namespace {

using Byte = unsigned char;

constexpr char kReplacement[8] = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::size_t kReplacementLength = 3;
constexpr std::uint64_t kTopBits = 0x8080808080808080;
constexpr std::size_t kReadsBeyond = 16;

bool within(Byte byte, Byte first, Byte last) { return byte >= first && byte <= last; }

bool isContinuation(Byte byte) { return (byte & 0xC0) == 0x80; }

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

/// What follows from a lead byte for the bytes after it.
struct Lead {
  std::uint32_t mask = 0;  // with these bits set as in `good`, the sequence is good,
  std::uint32_t good = 1;  // both in little-endian order
  std::uint8_t goodLength = 0;
  bool isParticular = false;   // further bits decide
  std::uint8_t announced = 0;  // continuation bytes, also of what is no UTF-8 any more
};

constexpr Lead leadOf(Byte byte) {
  Lead lead;
  if (byte >= 0xC2 && byte <= 0xDF) lead = {0xC000, 0x8000, 2};
  if (byte >= 0xE0 && byte <= 0xEF) lead = {0xC0C000, 0x808000, 3};
  if (byte == 0xE0 || byte == 0xED || byte == 0xEF || (byte >= 0xF0 && byte <= 0xF4)) {
    lead = {0, 1, 0, true};
  }
  if (byte >= 0xC0) lead.announced = static_cast<std::uint8_t>(std::countl_one(byte) - 1);
  if (byte >= 0xFE) lead.announced = 0;
  return lead;
}

constexpr std::array<Lead, 256> kLeads = [] {
  std::array<Lead, 256> leads{};
  for (std::size_t i = 0; i < leads.size(); ++i) leads[i] = leadOf(static_cast<Byte>(i));
  return leads;
}();

/// Length of the sequence of several bytes at `p` that may stay, 0 when it may not.
std::size_t goodLength(const Byte* p) {
  const Lead& lead = kLeads[*p];
  if (lead.isParticular) {
    if (*p < 0xF0) return isGoodThree(p) ? 3 : 0;
    return isGoodFour(p) ? 4 : 0;
  }
  return (load_little_u32(p) & lead.mask) == lead.good ? lead.goodLength : 0;
}

/// Bytes with the top bits of `bits` clear, from the lowest on.
std::size_t leadingClear(std::uint64_t bits) {
  return static_cast<std::size_t>(std::countr_zero(bits)) / 8;
}

/// Length of what one replacement stands for.
std::size_t badLength(const Byte* p) {
  const std::uint64_t others = (load_little_u64(p + 1) ^ kTopBits) & (kTopBits | kTopBits >> 1);
  return 1 + std::min<std::size_t>(kLeads[*p].announced, leadingClear(others));
}

/// The repaired text on its way to a string, by way of a block of its own.
class Output {
 public:
  explicit Output(std::string& text) : text_(text) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Adds `length` bytes, at most `kMost`; so many are read.
  void add(const void* bytes, std::size_t length) {
    if (used_ + kMost > block_.size()) flush();
    std::memcpy(block_.data() + used_, bytes, kMost);
    used_ += length;
  }

  /// Takes the last `length` bytes back, which must be there since the last `add`.
  void takeBack(std::size_t length) { used_ -= length; }

  void flush() {
    text_.append(block_.data(), used_);
    used_ = 0;
  }

  static constexpr std::size_t kMost = 8;

 private:
  std::string& text_;
  std::array<char, 4096> block_;
  std::size_t used_ = 0;
};

/// Repairs what starts at `in`, up to `stop` or a few bytes further, and returns how many these
/// are. Up to `kReadsBeyond` bytes behind `stop` are read.
std::size_t repair(const Byte* in, const Byte* stop, Output& out) {
  while (in < stop) {
    const std::size_t ascii = leadingClear(load_little_u64(in) & kTopBits);
    out.add(in, ascii);
    in += ascii;
    if (ascii == 8) continue;
    if (const std::size_t length = goodLength(in); length > 0) {
      out.add(in, length);
      in += length;
    } else {
      out.add(kReplacement, kReplacementLength);
      in += badLength(in);
    }
  }
  return static_cast<std::size_t>(in - stop);
}

}  // namespace

const char* QDSys::fixedUTF8(const unsigned char* in, std::string& out) {
  if (in == nullptr) QD_THROW_ERROR("fixedUTF8: Arg is NULL");
  const auto* const outStart = osal_bytes(out.data());
  if (std::less_equal<>{}(outStart, in) && std::less_equal<>{}(in, outStart + out.size())) {
    const std::string copy(osal_chars(in));
    return fixedUTF8(osal_bytes(copy), out);
  }
  const std::size_t length = std::strlen(osal_chars(in));
  out.clear();
  out.reserve(length);
  Output output(out);
  std::size_t done = 0;
  if (length > kReadsBeyond) {
    done = length - kReadsBeyond;
    done += repair(in, in + done, output);
  }
  // The last bytes are repaired in a copy, behind which more can be read: NULs, which pass as
  // characters. Those that were passed over are taken back.
  std::array<Byte, 2 * kReadsBeyond> rest{};
  std::copy(in + done, in + length, rest.begin());
  output.takeBack(repair(rest.data(), rest.data() + (length - done), output));
  output.flush();
  return out.c_str();
}
