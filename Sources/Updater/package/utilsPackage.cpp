#include "Updater/package/utilsPackage.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cstdlib>
#include <exception>
#include <locale>
#include <utility>

#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"
#include "ground/osal_bytes.h"
#include "logging/QDLog.h"
#include "tools/QDHash.h"

namespace utils {

namespace {

std::string detachCommand(const std::string& device) {
  return "hdiutil detach " + shellWord(device);
}

template <typename Compute>
std::string lowerCaseDigest(Compute compute) {
  unsigned char hex[33] = {};
  compute(hex);
  return boost::to_lower_copy(std::string(osal_chars(hex)), std::locale::classic());
}

}  // namespace

void readAttachOutput(const std::vector<std::string>& lines, const std::string& pkgName,
                      std::string& device, std::string& pkgPath) {
  for (const std::string& line : lines) {
    std::vector<std::string> fields;
    boost::split(
        fields, line, [](char c) { return c == '\t'; }, boost::token_compress_on);
    for (const std::string& field : fields) {
      if (field.size() > 4 && field.find("/dev/") != std::string::npos) {
        device = boost::trim_copy(field);
        QDLOG(ROOT, DBG, "Mounted device is " << device);
      }
      if (field.size() > 8 && field.find("/Volumes/") != std::string::npos) {
        pkgPath = boost::trim_copy(field) + "/" + pkgName + ".pkg";
        QDLOG(ROOT, DBG, "PKG path is " << pkgPath);
      }
    }
  }
}

int mountAndGetPkgPath(const std::string& pkgName, const std::string& imagePath,
                       std::string& device, std::string& pkgPath) {
  try {
    std::string command = "hdiutil attach " + shellWord(imagePath) + " -nobrowse";
    std::vector<std::string> lines;
    if (const int status = exec(command, lines); status != 0) return status;
    readAttachOutput(lines, pkgName, device, pkgPath);
    return device.empty() || pkgPath.empty() ? -1 : 0;
  } catch (const std::exception& e) {
    QDLOG(ROOT, ERR, "mountAndGetPkgPath Error: " << e.what());
    return -1;
  }
}

int unmount(const std::string& device) { return std::system(detachCommand(device).c_str()); }

int attach(const std::string& pkgName, const std::string& imagePath, AttachedImage& image) {
  AttachedImage found;
  const int r = mountAndGetPkgPath(pkgName, imagePath, found.device, found.pkgPath);
  if (r != 0) {
    if (!found.device.empty()) unmount(found.device);
    found = {};
  } else {
    found.detachCmd = detachCommand(found.device);
  }
  image = std::move(found);
  return r;
}

std::string computeMD5(const std::string& path) {
  return lowerCaseDigest(
      [&](unsigned char* hex) { QDHashMD5::computeFileHexHash(osal_bytes(path), hex); });
}

std::string computeMD5(int fd) {
  return lowerCaseDigest([&](unsigned char* hex) { QDHashMD5::computeFileHexHash(fd, hex); });
}

}  // namespace utils
