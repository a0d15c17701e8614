#pragma once

#include <ctime>
#include <optional>
#include <string>

/// "2026-03-01T14:05:09Z"; empty for a time that has no calendar date.
std::string osal_utcText(std::time_t instant);

/// The time of a text of exactly that form, which names a day and a time of day that there are.
std::optional<std::time_t> osal_parseUtc(const std::string& text);
