#pragma once

/// True when the running kernel is an ARM64 kernel. For a process built for x86-64 this means that
/// it runs translated.
///
/// This function and `getsysinfo` share one record: they are not to be called from two threads at
/// once.
bool isEmulation();

/// Describes the system.
///
/// `osText` receives a description for people, `archName` the machine name ("arm64", "x86_64");
/// each has room for 1025 bytes and is the empty string where the system has no answer. `*sysFlags`
/// is 0x300, with 0x40 added on network-attached storage. On macOS, `osText` ends in " (Emulated)"
/// when the kernel is an ARM64 kernel. Returns the result of the last system call or of the last
/// copy; it tells nothing.
int getsysinfo(char* osText, char* archName, unsigned int* sysFlags);
