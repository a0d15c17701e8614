#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "Updater/outcome/RunRecord.h"

// Texts for eyes. None of them asks the system; widths are in columns.

/// "9.2 MiB".
std::string bytesText(std::uint64_t bytes);

/// "0:09", "1:02:03".
std::string clockText(std::uint64_t seconds);

/// Local time, "2026-11-24 02:14"; empty for 0.
std::string localText(std::time_t time);

/// A download in one line of fewer than `width` columns: a bar, percent, bytes, rate and time left;
/// what has no room is left out, the bar last. `size` 0: it is not known.
std::string progressLine(std::size_t width, std::uint64_t bytes, std::uint64_t size,
                         double bytesPerSecond);

/// What a run does in this phase, for a line of its own; empty for those that need none.
std::string phaseText(Phase phase, const std::string& version);

/// That a request failed, and is sent again at that time.
std::string pauseText(const std::string& why, std::time_t at);

/// How a run ended, in a sentence.
std::string outcomeText(const RunRecord& record);

/// `text` as a plain line, cut to `width` columns; what is cut ends in "...".
std::string fitted(std::string_view text, std::size_t width);

/// Runs as a table of lines, each of at most `width` columns: columns that have no room are left
/// out, least telling ones first.
std::vector<std::string> historyTable(const std::vector<RunRecord>& records, std::size_t width);
