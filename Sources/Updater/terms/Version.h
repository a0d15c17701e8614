#pragma once

#include <string>

#include "logging/QDStreamLogger.h"

/// A version of four numbers, such as 7.2.1.15. A number below 0 is unknown and kept as -1; a
/// version of which all four are unknown is invalid. An unknown number sorts below 0.
class Version : public QDStreamLoggerImpl {
 public:
  Version() = default;

  /// Reads "%d.%d.%d.%d" by the rules of C's scanf; what follows the fourth number is ignored. With
  /// fewer than four numbers, or one that does not fit 32 bits, the version is invalid.
  explicit Version(const std::string& text);

  [[nodiscard]] bool isValid() const;

  /// Prints four dotted decimal numbers, whatever base the record has.
  void print(std::ostringstream& out) const override;

  int major = -1;
  int minor = -1;
  int patch = -1;
  int build = -1;
};

/// As `print` writes it.
std::string versionText(const Version& version);

bool operator==(const Version& a, const Version& b);
bool operator<(const Version& a, const Version& b);
bool operator<=(const Version& a, const Version& b);
