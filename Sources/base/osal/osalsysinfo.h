#pragma once

#include <array>
#include <string>

// The parts of the system description.

/// The description of this machine as each family gives it: on macOS the version's, marked when the
/// kernel is an ARM64 kernel; on Linux the name that os-release has for people, or the kernel's.
std::string osalsysinfo_macOS();
std::string osalsysinfo_linux();

/// The description of a macOS version: "macOS 14.5 (Sonoma)", "OS X 10.9.5 (Mavericks)". Version
/// 10.16 and its successors are the numbers that older programs see on macOS 11 and later, and read
/// as those.
std::string osalsysinfo_macOSDescription(int major, int minor, int patch);

/// Reads major, minor and patch number from a product version; a number that is missing is 0.
/// Returns false for a text too short or too long to be one ("14", or more than 8 characters).
bool osalsysinfo_parseVersion(const std::string& text, std::array<int, 3>& numbers);

/// Whether a kernel's version text (`uname`) names an ARM64 kernel.
bool osalsysinfo_isArm64Kernel(const char* kernelVersion);
