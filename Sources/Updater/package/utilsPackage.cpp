#include "Updater/package/utilsPackage.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cstdlib>
#include <exception>
#include <locale>

#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"
#include "ground/osal_bytes.h"
#include "logging/QDLog.h"
#include "tools/QDHash.h"

namespace utils {

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

std::string detachCommand(const std::string& device) {
  return "hdiutil detach " + shellWord(device);
}

int unmount(const std::string& device) { return std::system(detachCommand(device).c_str()); }

std::string computeMD5(const std::string& path) {
  unsigned char hex[33] = {};
  QDHashMD5::computeFileHexHash(osal_bytes(path), hex);
  return boost::to_lower_copy(std::string(osal_chars(hex)), std::locale::classic());
}

}  // namespace utils
