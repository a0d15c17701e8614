#pragma once

#include <string>
#include <vector>

namespace utils {

/// Reads the output of `hdiutil attach`: tab-separated fields, of which one under "/dev/" is the
/// device and one under "/Volumes/" the mount point; the last of each counts. Sets `device`, and
/// `pkgPath` to the package `pkgName` in the mounted volume; what is not found is not touched. Logs
/// each find (DBG).
void readAttachOutput(const std::vector<std::string>& lines, const std::string& pkgName,
                      std::string& device, std::string& pkgPath);

/// Attaches the disk image at `imagePath`. Returns 0 with `device` and `pkgPath` set; hdiutil's
/// status when that is not 0; -1 when its output lacks a device or a volume (the image may then
/// still be attached, as `device` says) or when it can't be run. Both outputs are passed in empty.
int mountAndGetPkgPath(const std::string& pkgName, const std::string& imagePath,
                       std::string& device, std::string& pkgPath);

/// The command that detaches `device`.
std::string detachCommand(const std::string& device);

/// Detaches; returns what system() returned.
int unmount(const std::string& device);

/// The MD5 digest of a file, 32 lower-case hexadecimal characters. A file that can't be read has
/// the digest of no bytes.
std::string computeMD5(const std::string& path);

}  // namespace utils
