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

/// Detaches; returns what system() returned.
int unmount(const std::string& device);

/// A disk image that the system has attached.
struct AttachedImage {
  std::string device;     ///< empty: none is attached
  std::string pkgPath;    ///< the package in its volume
  std::string detachCmd;  ///< the command that detaches it
};

/// Attaches as `mountAndGetPkgPath` does, with its result. After a failure nothing stays attached,
/// and `image` is empty.
int attach(const std::string& pkgName, const std::string& imagePath, AttachedImage& image);

/// The MD5 digest of a file, or of what an open one still holds, 32 lower-case hexadecimal
/// characters. A file that can't be read has the digest of no bytes. Empty, and so equal to no
/// digest, where OpenSSL refuses MD5.
std::string computeMD5(const std::string& path);
std::string computeMD5(int fd);

}  // namespace utils
