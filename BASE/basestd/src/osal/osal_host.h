#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// What only the operating system can answer about the machine. Each system has its own
// implementation of all of it, and the build takes one.
//
// Every function returns 0, or an errno value; ENOENT where the system has no such thing. Outputs
// are written on success only, unless said otherwise. Nothing here logs.

/// The system's version as the system spells it: "14.5" on macOS, os-release's VERSION_ID on Linux
/// (which a rolling distribution lacks).
int host_productVersion(std::string& version);

/// Major, minor and patch number for when that text is of no use: the system's on macOS, the
/// kernel's on Linux. Numbers that are known are written on failure too.
int host_productVersionNumbers(std::array<int, 3>& numbers);

/// The system's name and version for people, as os-release has it. ENOENT on macOS.
int host_productName(std::string& name);

/// The kernel's release, for instance "23.5.0".
int host_kernelRelease(std::string& release);

/// The identifier of this installation, 16 bytes: the host UUID, or the machine id.
int host_uuid(std::array<unsigned char, 16>& uuid);

/// The machine's name for people, in UTF-8 with "?" for what UTF-8 can't say. ENOENT: it has none;
/// EILSEQ: nothing of it converts.
int host_machineName(std::string& name);

/// Milliseconds since the system started.
int host_upTimeMs(std::uint64_t& ms);

/// The user whose session has the machine's own screen and keyboard, at most 255 bytes of UTF-8.
/// EILSEQ: the name is longer or does not convert.
int host_consoleUser(std::string& user);

/// The calling process's scheduling priority as a nice value, for all its threads.
int host_setNice(int nice);

/// How a region of memory is shared.
enum class HostShareMode { Private, CopyOnWrite, Other };

/// A region of this process's memory.
struct HostMemoryRegion {
  std::uint64_t size;  ///< bytes
  HostShareMode shareMode;
  unsigned int referenceCount;  ///< of the object behind it; 0 where the system does not say
  unsigned int privateResidentPages;
};

/// All of them. What is reserved but was never written counts as `Other`.
int host_memoryRegions(std::vector<HostMemoryRegion>& regions);

/// Memory of this process that is resident, in bytes.
int host_residentSize(std::uint64_t& bytes);

/// The machine's memory, in bytes.
int host_physicalMemory(std::uint64_t& bytes);
