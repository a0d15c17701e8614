#include "sysdef/qdTunableKeys.h"

#include <bit>

namespace {

/// Mixes the length and six of the characters: keys of the tables differ there, nearly all of them.
std::uint64_t hashOf(std::string_view key) {
  const std::size_t length = key.size();
  std::uint64_t sample = length;
  if (length > 0) {
    for (const std::size_t at :
         {length - 1, length * 7 / 8, length * 3 / 4, length / 2, length / 3, length / 4}) {
      sample = sample << 8U | static_cast<unsigned char>(key[at]);
    }
  }
  constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;  // multiplicative hashing
  return sample * kGoldenRatio >> 32U;
}

}  // namespace

QDTunableKeys::QDTunableKeys(std::size_t count) : slots_(std::bit_ceil(4 * count + 1), kFree) {
  keys_.reserve(count);
  values_.resize(count);
}

void QDTunableKeys::add(std::string_view key) {
  const std::size_t slot = slotOf(key);
  if (slots_[slot] != kFree) return;
  slots_[slot] = static_cast<std::uint32_t>(keys_.size());
  keys_.push_back(key);
}

std::size_t QDTunableKeys::slotOf(std::string_view key) const {
  const std::size_t last = slots_.size() - 1;
  std::size_t slot = hashOf(key) & last;
  while (slots_[slot] != kFree && keys_[slots_[slot]] != key) slot = (slot + 1) & last;
  return slot;
}
