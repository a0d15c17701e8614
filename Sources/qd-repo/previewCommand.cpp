#include <cmath>
#include <iomanip>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "Updater/rollout/slot.h"
#include "ground/osal_replacefile.h"
#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/workplace.h"
#include "tufrepo/Repository.h"

namespace {

constexpr int kSteps = 24;

struct Point {
  UnixTime time;
  double share;  ///< 0 to 1
};

/// From the start of a ramp to its end, in equal steps.
std::vector<Point> curveOf(const Ramp& ramp) {
  std::vector<Point> points;
  const int steps = ramp.hours > 0 ? kSteps : 0;
  for (int i = 0; i <= steps; ++i) {
    const double done = steps > 0 ? static_cast<double>(i) / steps : 0;
    const UnixTime time = ramp.start + std::chrono::seconds(std::llround(ramp.hours * 3600 * done));
    points.push_back({time, shareAt(ramp, time)});
  }
  return points;
}

void print(const std::vector<Point>& curve) {
  constexpr double kColumns = 50;
  for (const auto& [time, share] : curve) {
    std::cout << utcText(time) << ' ' << std::setw(5) << std::fixed << std::setprecision(1)
              << share * 100 << " % "
              << std::string(static_cast<std::size_t>(std::lround(share * kColumns)), '#') << '\n';
  }
}

std::string svgOf(const std::string& title, const std::vector<Point>& curve) {
  constexpr double kLeft = 50;
  constexpr double kTop = 40;
  constexpr double kWidth = 530;
  constexpr double kHeight = 200;
  std::ostringstream svg;
  svg << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 600 280" font-family="sans-serif" font-size="12">
<rect width="600" height="280" fill="#fff"/>
<text x="50" y="24" font-size="14">)"
      << title << "</text>\n";
  for (int percent = 0; percent <= 100; percent += 25) {
    const double y = kTop + kHeight * (100 - percent) / 100;
    svg << "<path d=\"M" << kLeft << ' ' << y << 'h' << kWidth
        << "\" stroke=\"#ccc\"/><text x=\"44\" y=\"" << y + 4 << "\" text-anchor=\"end\">"
        << percent << " %</text>\n";
  }
  svg << R"(<polyline fill="none" stroke="#06c" stroke-width="2" points=")";
  for (std::size_t i = 0; i < curve.size(); ++i) {
    const double done =
        curve.size() > 1 ? static_cast<double>(i) / static_cast<double>(curve.size() - 1) : 0;
    svg << kLeft + kWidth * done << ',' << kTop + kHeight * (1 - curve[i].share) << ' ';
    if (curve.size() == 1) svg << kLeft + kWidth << ',' << kTop + kHeight * (1 - curve[i].share);
  }
  svg << "\"/>\n<text x=\"50\" y=\"262\">" << utcText(curve.front().time)
      << "</text><text x=\"580\" y=\"262\" text-anchor=\"end\">" << utcText(curve.back().time)
      << "</text>\n</svg>\n";
  return svg.str();
}

void writePicture(const std::string& file, const std::string& svg) {
  if (osal_replaceFile(file.c_str(), svg, 0644, false) == 0) return;
  throw std::runtime_error("Cannot write " + file + ": name another place by --svg");
}

/// The ramp of a channel; a halt holds on whatever the ramp says.
struct Shown {
  Ramp ramp;
  bool halted = false;
};

nlohmann::json asJson(const std::string& channel, bool halted, const std::vector<Point>& curve) {
  nlohmann::json points = nlohmann::json::array();
  for (const auto& [time, share] : curve) {
    points.push_back({{"time", utcText(time)}, {"share", share}});
  }
  return {{"channel", channel}, {"halted", halted}, {"points", points}};
}

/// The ramps of a version that are to be shown; on all platforms they are alike as a rule, and the
/// first is taken.
std::map<std::string, Shown> rampsOf(const RepoOptions& options) {
  const tufrepo::Repository repository(options.repository, sayWaiting);
  std::map<std::string, Shown> ramps;
  for (const ListedRelease& listed : releasesIn(repository)) {
    if (!(listed.release.version == *options.version)) continue;
    for (const auto& [channel, ramp] : listed.release.channels) {
      if (!options.channel.empty() && channel != options.channel) continue;
      ramps.emplace(channel, Shown{ramp, listed.release.halted});
    }
  }
  if (!ramps.empty()) return ramps;
  throw std::runtime_error("The repository has no release " + versionText(*options.version) +
                           (options.channel.empty() ? "" : " in " + options.channel) +
                           ": status shows those that it has");
}

}  // namespace

int previewRelease(const RepoOptions& options) {
  const std::map<std::string, Shown> ramps = rampsOf(options);
  if (!options.file.empty() && ramps.size() > 1) {
    throw std::runtime_error("The release is in " + std::to_string(ramps.size()) +
                             " channels: name the picture's one by --channel");
  }
  nlohmann::json shown = nlohmann::json::array();
  for (const auto& [channel, what] : ramps) {
    const std::vector<Point> curve = curveOf(what.ramp);
    const std::string title =
        versionText(*options.version) + " in " + channel + (what.halted ? ", halted" : "");
    if (!options.file.empty()) writePicture(options.file, svgOf(title, curve));
    if (options.json) {
      shown.push_back(asJson(channel, what.halted, curve));
      continue;
    }
    std::cout << title << ":\n";
    print(curve);
  }
  if (options.json) std::cout << shown.dump(2) << '\n';
  return 0;
}
