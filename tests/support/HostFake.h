#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "osal/osal_host.h"

/// A machine that answers what a test wants. A test program that links HostFake.cpp has it in place
/// of the real machine. With `error` set, every answer is that one and writes nothing.
struct HostFake {
  int error = 0;
  std::string productVersion = "14.5";
  int productVersionError = 0;
  std::array<int, 3> productVersionNumbers{13, 2, 1};
  std::string productName = "Some Linux 1 (one)";
  std::string kernelRelease = "23.5.0";
  std::array<unsigned char, 16> uuid{};
  std::string machineName = "Machine";
  std::uint64_t upTimeMs = 0;
  std::string consoleUser = "alice";
  std::vector<HostMemoryRegion> regions;
  std::uint64_t residentSize = 0;
  std::uint64_t physicalMemory = 0;
  std::vector<int> niceValues;  ///< that were set, in order
};

inline HostFake hostFake;
