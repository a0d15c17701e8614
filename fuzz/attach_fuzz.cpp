// What the disk image tool prints.

#include "FuzzTarget.h"
#include "Updater/command/utilsExec.h"
#include "Updater/package/utilsPackage.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string device;
  std::string package;
  utils::readAttachOutput(utils::splitLines(fuzzText(data, size)), "Kesa", device, package);
  fuzzExpect(device.empty() || device.find("/dev/") != std::string::npos);
  fuzzExpect(package.empty() || package.ends_with("/Kesa.pkg"));
  return 0;
}
