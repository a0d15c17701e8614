#pragma once

#include <ctime>
#include <string>

/// What systemd's journal has of `unit` since then, the last MiB of it; empty where it has nothing,
/// or there is none.
std::string unitJournal(const std::string& unit, std::time_t since);
