// A roll-out to many machines, by the code that runs on them: the share over time, the load on the
// server, and how often the same machine is among the first. Ends with 1 where that is not as
// chance has it.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "Updater/rollout/slot.h"
#include "ground/osal_hex.h"

namespace {

constexpr int kMinutes = 24 * 60;       // of the ramp
constexpr int kCheckSeconds = 60 * 60;  // of the timer
constexpr int kDelaySeconds = 15 * 60;  // its random delay, at most
constexpr double kPackageBytes = 30e6;
constexpr double kSmallRequestBytes = 1500;  // of an answer with headers; a signed timestamp
constexpr int kVersions = 100;

std::string idOf(std::uint64_t machine) {
  std::mt19937_64 random(machine);
  std::array<std::uint8_t, 16> bytes{};
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  std::string digits(2 * bytes.size(), '0');
  osal_writeHex(bytes.data(), bytes.size(), true, digits.data());
  return digits;
}

Version versionOf(int number) { return Version("7.2.1." + std::to_string(number)); }

/// What the server sees in one minute.
struct Minute {
  double requests = 0;
  double bytes = 0;
};

/// Machines check each hour, each at a minute of its own and somewhat late, and take the release
/// when the ramp lets them through.
std::vector<Minute> loadOf(const std::vector<double>& slots, const Ramp& ramp) {
  std::vector<Minute> load(kMinutes + 2 * kCheckSeconds / 60);
  std::mt19937 random(1);
  std::uniform_int_distribution<int> phase(0, kCheckSeconds - 1);
  std::uniform_int_distribution<int> delay(0, kDelaySeconds - 1);
  for (const double slot : slots) {
    bool updated = false;
    bool first = true;
    for (int due = phase(random);; due += kCheckSeconds) {
      const std::size_t minute = static_cast<std::size_t>(due + delay(random)) / 60;
      if (minute >= load.size()) break;
      const UnixTime now = ramp.start + std::chrono::minutes(minute);
      const bool installs = !updated && isThrough(ramp, slot, now);
      // The next root and the timestamp; what changed, once; the package.
      const double small = 2 + (first ? 2 : 0);
      load[minute].requests += small + (installs ? 1 : 0);
      load[minute].bytes += small * kSmallRequestBytes + (installs ? kPackageBytes : 0);
      first = false;
      updated = updated || installs;
    }
  }
  return load;
}

/// The most percentage points by which the machines that are through differ from the ramp's line.
double farthestFromLine(std::vector<double> slots, const Ramp& ramp) {
  std::ranges::sort(slots);
  double farthest = 0;
  for (int minute = 0; minute <= kMinutes; ++minute) {
    const UnixTime now = ramp.start + std::chrono::minutes(minute);
    const auto through = std::ranges::partition_point(
        slots, [&](double slot) { return isThrough(ramp, slot, now); });
    const double share =
        static_cast<double>(through - slots.begin()) / static_cast<double>(slots.size());
    farthest = std::max(farthest, std::abs(share * 100 - 100.0 * minute / kMinutes));
  }
  return farthest;
}

/// How many machines were among the first hundredth in so many of the versions, and how many chance
/// would have. Whether no machine was there so often that chance does not explain it.
bool printFairness(const std::vector<std::string>& ids) {
  std::vector<int> counts(kVersions + 1);
  for (const std::string& id : ids) {
    int early = 0;
    for (int number = 0; number < kVersions; ++number)
      early += slotOf(id, versionOf(number)) < 0.01;
    ++counts[static_cast<std::size_t>(early)];
  }
  std::cout << "\nAmong the first 1 % in so many of " << kVersions
            << " versions: machines (expected by chance)\n";
  constexpr double kTooRare = 1e-6;  // machines expected
  bool isFair = true;
  double chance = static_cast<double>(ids.size()) * std::pow(0.99, kVersions);
  for (int k = 0; k <= kVersions; ++k) {
    const int machines = counts[static_cast<std::size_t>(k)];
    if (machines > 0 || chance >= 0.5) {
      std::cout << std::setw(4) << k << std::setw(10) << machines << "  (" << std::fixed
                << std::setprecision(1) << chance << ")\n";
    }
    isFair = isFair && (machines == 0 || chance > kTooRare);
    chance *= (kVersions - k) / (k + 1.0) * (0.01 / 0.99);
  }
  return isFair;
}

void writeSvg(const std::string& path, const std::vector<Minute>& load) {
  constexpr double kWidth = 620;
  constexpr double kHeight = 200;
  const double top =
      std::ranges::max_element(load, {}, &Minute::bytes)->bytes / 60 * 8 / 1e9;  // Gbit/s
  std::ofstream svg(path);
  svg << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 720 280" font-family="sans-serif" font-size="12">
<rect width="720" height="280" fill="#fff"/>
<text x="60" y="24" font-size="14">A ramp of 24 hours: load on the server, Gbit/s, by hour</text>
)";
  for (int part = 0; part <= 4; ++part) {
    const double y = 240 - kHeight * part / 4;
    svg << "<path d=\"M60 " << y << "h" << kWidth << "\" stroke=\"#ccc\"/><text x=\"54\" y=\""
        << y + 4 << "\" text-anchor=\"end\">" << std::fixed << std::setprecision(1)
        << top * part / 4 << "</text>\n";
  }
  for (int hour = 0; hour <= 26; hour += 2) {
    svg << "<text x=\"" << 60 + kWidth * hour * 60 / static_cast<double>(load.size())
        << "\" y=\"258\" text-anchor=\"middle\">" << hour << "</text>\n";
  }
  svg << "<path fill=\"none\" stroke=\"#06c\" d=\"";
  for (std::size_t minute = 0; minute < load.size(); ++minute) {
    const double gigabits = load[minute].bytes / 60 * 8 / 1e9;
    svg << (minute == 0 ? 'M' : 'L') << std::setprecision(1)
        << 60 + kWidth * static_cast<double>(minute) / static_cast<double>(load.size()) << ' '
        << 240 - kHeight * gigabits / top;
  }
  svg << "\"/>\n</svg>\n";
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint64_t machines = argc > 1 ? std::stoull(argv[1]) : 1000000;
  std::vector<std::string> ids;
  std::vector<double> slots;
  for (std::uint64_t machine = 0; machine < machines; ++machine) {
    ids.push_back(idOf(machine));
    slots.push_back(slotOf(ids.back(), versionOf(0)));
  }
  const Ramp ramp{.percent = 100,
                  .from = 0,
                  .start = UnixTime(std::chrono::hours(24 * 20000)),
                  .hours = kMinutes / 60.0};
  // Percentage points: 0.2 for a million, four standard deviations of so many drawn at random.
  const double allowed = 200 / std::sqrt(static_cast<double>(machines));
  const double farthest = farthestFromLine(slots, ramp);
  std::cout << machines << " machines, a ramp of " << kMinutes / 60
            << " h, hourly timers that are up to " << kDelaySeconds / 60 << " min late\n\n"
            << "Farthest from the line at any minute: " << std::fixed << std::setprecision(3)
            << farthest << " percentage points\n";
  const std::vector<Minute> load = loadOf(slots, ramp);
  const double requests = std::ranges::max_element(load, {}, &Minute::requests)->requests / 60;
  const double bytes = std::ranges::max_element(load, {}, &Minute::bytes)->bytes / 60;
  double all = 0;
  for (const Minute& minute : load) all += minute.bytes;
  std::cout << "Busiest minute: " << std::setprecision(0) << requests << " requests and "
            << bytes / 1e6 << " MB a second, with packages of " << kPackageBytes / 1e6 << " MB\n"
            << "In all: " << all / 1e12 << " TB\n";
  if (argc > 2) writeSvg(argv[2], load);
  const bool isFair = printFairness(ids);
  if (farthest <= allowed && isFair) return 0;
  std::cerr << "The roll-out is not fair.\n";
  return 1;
}
