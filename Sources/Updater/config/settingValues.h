#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Updater/terms/Version.h"

// The values that a setting can have, read from their text. A text that is no such value gives
// nothing.

/// A number and "s", "m", "h" or "d", such as "30m"; at most ten years.
std::optional<std::chrono::seconds> parseDuration(const std::string& text);

/// Bytes: a number, alone or with "KiB", "MiB" or "GiB" after it, such as "64MiB".
std::optional<std::uint64_t> parseSize(const std::string& text);

/// Days of the week with a time of day, local time, such as "Mon-Fri 01:00-04:00".
struct Window {
  unsigned int days = 0;  ///< bit 0: Monday ... bit 6: Sunday; the days on which it opens
  int opens = 0;          ///< minutes since midnight
  int closes = 0;         ///< minutes; not after `opens`: it closes on the following day

  bool operator==(const Window&) const = default;
};

/// Days (a name, a range, several with commas; none: every day), a blank, and two times of day, the
/// second of which may be 24:00.
std::optional<Window> parseWindow(const std::string& text);

/// The versions that may be installed: all that begin with certain numbers, or one version.
class VersionPin {
 public:
  /// Up to four numbers with dots; with fewer than four a "*" ends it, such as "7.2.*".
  static std::optional<VersionPin> parse(const std::string& text);

  [[nodiscard]] bool allows(const Version& version) const;
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
  std::vector<int> numbers_;
};

/// The address of a server, http or https, with a host and without query or fragment; one slash at
/// its end is taken off.
std::optional<std::string> parseServerAddress(const std::string& text);

/// The address of a proxy as curl takes it; empty means that none is used.
std::optional<std::string> parseProxyAddress(const std::string& text);

/// Whether an address holds a password.
bool addressHasPassword(const std::string& address);

/// An absolute path of printable characters.
std::optional<std::string> parsePath(const std::string& text);

/// A name of letters, digits, ".", "_" and "-", at most 64.
std::optional<std::string> parseName(const std::string& text);
