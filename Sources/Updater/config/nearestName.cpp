#include "Updater/config/nearestName.h"

#include <algorithm>
#include <cstddef>

namespace {

/// Names are short; of a longer text only the beginning counts.
constexpr std::size_t kComparedBytes = 64;

/// Letters to add, drop, change or swap with their neighbour.
std::size_t distance(std::string_view a, std::string_view b) {
  a = a.substr(0, kComparedBytes);
  b = b.substr(0, kComparedBytes);
  std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        cost[i][j] = i + j;
        continue;
      }
      const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
      cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + change});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
      }
    }
  }
  return cost[a.size()][b.size()];
}

std::string_view lastComponent(std::string_view name) {
  return name.substr(name.find_last_of('.') + 1);  // all of it where it has no dot
}

std::size_t farness(std::string_view written, std::string_view name) {
  const std::size_t moved = distance(lastComponent(written), lastComponent(name)) + 1;
  return std::min(distance(written, name), moved);
}

}  // namespace

std::string_view nearestName(std::string_view written, const std::vector<std::string_view>& names) {
  return *std::ranges::min_element(
      names, {}, [written](std::string_view name) { return farness(written, name); });
}
