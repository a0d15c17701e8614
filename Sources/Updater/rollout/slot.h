#pragma once

#include <string>

#include "Updater/rollout/Release.h"

/// The machine's place in the order in which machines get a version, from 0 to below 1: SHA-256
/// (FIPS 180-4) of the machine's id (32 lower-case hexadecimal digits), a line feed and the
/// version's text, of which the first 53 bits are the fraction. Another version, another order.
double slotOf(const std::string& machineId, const Version& version);

/// The share of the machines, from 0 to 1, that a ramp lets through at `now`.
double shareAt(const Ramp& ramp, UnixTime now);

/// Whether the ramp lets a slot through at `now`.
bool isThrough(const Ramp& ramp, double slot, UnixTime now);

/// The first second at which the ramp lets a slot through; nothing when it never does.
std::optional<UnixTime> throughAt(const Ramp& ramp, double slot);
