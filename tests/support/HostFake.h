#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "osal/osal_host.h"
#include "osal/osal_hostnet.h"

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

/// Its network. Errors are errno values, 0 for none.
struct HostNetFake {
  int openError = 0;
  unsigned int timeoutMs = 0;  ///< that the routing socket was opened with
  int writeError = 0;
  std::vector<std::string> requests;      ///< that were written, in order
  std::deque<std::string> replies;        ///< to be read, in order; then reading times out
  std::chrono::milliseconds readTakes{};  ///< the steady clock goes on by with each reading (Linux)
  int listError = 0;
  std::vector<HostInterface> interfaces;
  std::vector<HostLinkAddress> linkAddresses;
};

inline HostNetFake hostNetFake;
