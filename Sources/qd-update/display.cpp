#include "qd-update/display.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>

#include "ground/osal_localtime.h"

namespace {

constexpr std::size_t kGap = 2;

/// Columns that a text takes: bytes, but those that go on a character of UTF-8.
std::size_t columnsOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](unsigned char c) { return (c & 0xC0U) != 0x80U; }));
}

std::string padded(const std::string& text, std::size_t width) {
  const std::size_t columns = columnsOf(text);
  return columns < width ? text + std::string(width - columns, ' ') : text;
}

std::string bar(std::size_t columns, double share) {
  const std::size_t inner = columns - 2;
  const auto filled = static_cast<std::size_t>(share * static_cast<double>(inner));
  std::string line(filled, '=');
  if (filled < inner) line += '>';
  line.resize(inner, ' ');
  return "[" + line + "]";
}

/// One column of a table.
struct Column {
  std::string title;
  std::vector<std::string> cells;
  int worth;  ///< the least worth is the first to go

  [[nodiscard]] std::size_t width() const {
    std::size_t most = columnsOf(title);
    for (const std::string& cell : cells) most = std::max(most, columnsOf(cell));
    return most;
  }
};

std::size_t widthOf(const std::vector<Column>& columns) {
  return std::accumulate(columns.begin(), columns.end(), (columns.size() - 1) * kGap,
                         [](std::size_t sum, const Column& c) { return sum + c.width(); });
}

/// Cuts the last column, which is free text, to the room there is, or takes columns out.
void fit(std::vector<Column>& columns, std::size_t width) {
  constexpr std::size_t kLeastText = 12;
  while (columns.size() > 1 && widthOf(columns) > width) {
    Column& text = columns.back();
    const std::size_t others = widthOf(columns) - text.width();
    if (text.worth == 0 && others + kLeastText <= width) {
      for (std::string& cell : text.cells) cell = fitted(cell, width - others);
      return;
    }
    columns.erase(std::ranges::min_element(columns, {}, &Column::worth));
  }
}

std::string lineOf(const std::vector<Column>& columns, std::size_t row, bool title) {
  std::string line;
  for (const Column& column : columns) {
    if (!line.empty()) line += std::string(kGap, ' ');
    line += padded(title ? column.title : column.cells[row], column.width());
  }
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string timeText(std::time_t time, const char* format) {
  char text[64];
  return {text, osal_formatLocalTime(time, format, text, sizeof text)};
}

}  // namespace

std::string bytesText(std::uint64_t bytes) {
  static constexpr std::array kUnits = {"B", "KiB", "MiB", "GiB", "TiB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1024 && unit + 1 < kUnits.size(); ++unit) value /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string clockText(std::uint64_t seconds) {
  const unsigned long long hours = seconds / 3600;
  const unsigned long long minutes = seconds / 60 % 60;
  char text[48];
  if (hours > 0) {
    std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", hours, minutes,
                  static_cast<unsigned long long>(seconds % 60));
  } else {
    std::snprintf(text, sizeof text, "%llu:%02llu", minutes,
                  static_cast<unsigned long long>(seconds % 60));
  }
  return text;
}

std::string localText(std::time_t time) {
  return time == 0 ? std::string() : timeText(time, "%Y-%m-%d %H:%M");
}

std::string pauseText(const std::string& why, std::time_t at) {
  return "Again at " + timeText(at, "%H:%M:%S") + ": " + why;
}

std::string progressLine(std::size_t width, std::uint64_t bytes, std::uint64_t size,
                         double bytesPerSecond) {
  constexpr std::size_t kLeastBar = 10;
  constexpr std::size_t kMostBar = 40;
  constexpr std::uint64_t kMostLeft = std::uint64_t{99} * 3600;
  const bool isKnown = size > 0;
  const double share =
      isKnown ? std::min(1.0, static_cast<double>(bytes) / static_cast<double>(size)) : 0;
  const double left = isKnown && bytesPerSecond > 0 && bytes < size
                          ? static_cast<double>(size - bytes) / bytesPerSecond
                          : 0;
  // In the order in which they get their room.
  std::vector<std::string> parts;
  if (isKnown) parts.push_back(std::to_string(static_cast<int>(share * 100)) + " %");
  if (bytesPerSecond > 0)
    parts.push_back(bytesText(static_cast<std::uint64_t>(bytesPerSecond)) + "/s");
  if (left >= 1 && left < static_cast<double>(kMostLeft)) {
    parts.push_back(clockText(static_cast<std::uint64_t>(left)) + " left");
  }
  parts.push_back(isKnown ? bytesText(bytes) + " of " + bytesText(size) : bytesText(bytes));

  const std::size_t room = width > 0 ? width - 1 : 0;  // the last column makes some terminals wrap
  const std::size_t reserved = isKnown ? kLeastBar : 0;
  std::string text;
  for (const std::string& part : parts) {
    if (reserved + text.size() + kGap + part.size() <= room) text += "  " + part;
  }
  if (!isKnown) return text.empty() ? text : text.substr(kGap);
  if (room < kLeastBar) return {};
  return bar(std::min(room - text.size(), kMostBar), share) + text;
}

std::string phaseText(Phase phase, const std::string& version) {
  switch (phase) {
    case Phase::Check:
      return "Checking for an update";
    case Phase::Fetch:
      return "Downloading " + version;
    case Phase::Verify:
      return "Verifying the package";
    case Phase::Prepare:
      return "Preparing the installation";
    case Phase::Stop:
      return "Stopping the agent";
    case Phase::Install:
      return "Installing " + version;
    case Phase::Start:
      return "Starting the agent";
    case Phase::Health:
      return "Looking after the agent";
    case Phase::Rollback:
      return "Putting the former version back";
    case Phase::Done:
      break;
  }
  return {};
}

std::string outcomeText(const RunRecord& record) {
  switch (record.outcome) {
    case RunOutcome::UpToDate:
      return "Up to date: " + record.from + " is installed" +
             (record.message.empty() ? "." : "; " + record.message + ".");
    case RunOutcome::Updated:
      return "Updated from " + record.from + " to " + record.to + ".";
    case RunOutcome::Deferred:
      return "Deferred: " + record.message;
    case RunOutcome::Refused:
      return "Refused: " + record.message;
    case RunOutcome::Failed:
      return "Failed: " + record.message;
    case RunOutcome::RolledBack:
      return "Rolled back: " + record.message;
    case RunOutcome::Running:
      break;
  }
  return "Under way.";
}

std::string fitted(std::string_view text, std::size_t width) {
  constexpr std::string_view kCut = "...";
  std::string result = plainLine(text);
  if (columnsOf(result) <= width) return result;
  const std::size_t kept = width > kCut.size() ? width - kCut.size() : 0;
  std::size_t end = 0;
  for (std::size_t columns = 0; end < result.size(); ++end) {
    if ((static_cast<unsigned char>(result[end]) & 0xC0U) != 0x80U && columns++ == kept) break;
  }
  return result.substr(0, end) + std::string(kCut.substr(0, width));
}

std::vector<std::string> historyTable(const std::vector<RunRecord>& records, std::size_t width) {
  std::vector<Column> columns = {{"Started", {}, 4}, {"Outcome", {}, 5}, {"Status", {}, 1},
                                 {"From", {}, 2},    {"To", {}, 3},      {"Message", {}, 0}};
  for (const RunRecord& record : records) {
    const std::array<std::string, 6> cells = {localText(record.started),
                                              std::string(outcomeToString(record.outcome)),
                                              std::to_string(record.status),
                                              record.from,
                                              record.to,
                                              record.message};
    for (std::size_t i = 0; i < cells.size(); ++i) {
      columns[i].cells.push_back(fitted(cells[i], std::size_t{1} << 16));
    }
  }
  fit(columns, width);
  std::vector<std::string> lines = {lineOf(columns, 0, true)};
  for (std::size_t row = 0; row < records.size(); ++row) {
    lines.push_back(fitted(lineOf(columns, row, false), width));
  }
  return lines;
}
