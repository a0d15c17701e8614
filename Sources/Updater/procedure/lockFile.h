#pragma once

#include <optional>
#include <string>

// The lock of a run is a small text file whose content alone decides: one line, the start time of
// the run that owns it, in milliseconds since 1970-01-01 00:00:00 UTC.

/// Where it lies: in the temporary folder. Throws what boost::filesystem throws where there is
/// none.
std::string placeOfLock();

/// Whether a lock taken at `lockTime` still holds at `now` (both in ms): for an hour, inclusive,
/// and also when it lies in the future.
bool lockHolds(long long lockTime, long long now);

/// The time now, as locks hold it.
long long lockTimeNow();

/// The time in a lock file as `readLock` has it; nothing where there is none.
std::optional<long long> findLock(const std::string& path);

/// Whether a lock holds for a run that has a surer lock besides: then a time in the future is a
/// clock that was set, a file without a time is nobody's, and `former`, the time that the last
/// holder of the surer lock wrote, is a run that died.
bool lockHoldsBeside(std::optional<long long> lockTime, const std::string& former, long long now);

/// The time of a lock as messages show it, local; empty for a time that has no calendar date.
std::string lockTimeText(long long lockTime);

/// The time in the first line of a lock file, without the white space around it. Throws what
/// std::stoll throws for a line that is no number; a file that can't be read has an empty line.
long long readLock(const std::string& path);

/// Makes the file hold `now`, whole or not at all. Returns false when it could not be written.
bool writeLock(const std::string& path, long long now);
