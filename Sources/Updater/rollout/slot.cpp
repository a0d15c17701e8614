#include "Updater/rollout/slot.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "ground/osal_bytes.h"

double slotOf(const std::string& machineId, const Version& version) {
  const std::string text = machineId + '\n' + versionText(version);
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(osal_bytes(text), text.size(), digest.data());
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < sizeof bits; ++i) bits = bits << 8 | digest[i];
  constexpr int kFractionBits = 53;  // what a double holds exactly
  return std::ldexp(static_cast<double>(bits >> (64 - kFractionBits)), -kFractionBits);
}

double shareAt(const Ramp& ramp, UnixTime now) {
  if (now < ramp.start) return 0;
  const double seconds = static_cast<double>((now - ramp.start).count());
  const double done = ramp.hours > 0 ? std::min(1.0, seconds / (ramp.hours * 3600)) : 1.0;
  return (ramp.from + (ramp.percent - ramp.from) * done) / 100;
}

bool isThrough(const Ramp& ramp, double slot, UnixTime now) { return slot < shareAt(ramp, now); }

std::optional<UnixTime> throughAt(const Ramp& ramp, double slot) {
  const UnixTime end = ramp.start + std::chrono::seconds(std::llround(ramp.hours * 3600));
  if (isThrough(ramp, slot, ramp.start)) return ramp.start;
  if (!isThrough(ramp, slot, end)) return std::nullopt;
  UnixTime before = ramp.start;  // not yet through
  UnixTime through = end;
  while (through - before > std::chrono::seconds(1)) {
    const UnixTime middle = before + (through - before) / 2;
    (isThrough(ramp, slot, middle) ? through : before) = middle;
  }
  return through;
}
