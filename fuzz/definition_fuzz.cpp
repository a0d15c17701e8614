// The setup definition file: any bytes give an entry with a plain file name, no entry, or a
// standard exception.

#include <exception>

#include "FuzzTarget.h"
#include "Updater/setup/utilsSetup.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace utils;
  constexpr struct {
    AgentOS os;
    AgentDistrib distrib;
  } kMachines[] = {{OsWindows, DistribExe}, {OsMacOSX, DistribNone}, {OsLinux, DistribDeb}};
  for (const auto& [os, distrib] : kMachines) {
    try {
      const std::string name = chooseSetup(fuzzText(data, size), os, ArchAmd64, distrib).setup;
      fuzzExpect(name.find_first_of(std::string("/\\\0\n", 4)) == std::string::npos);
      fuzzExpect(!name.starts_with('-'));
      fuzzExpect(!name.starts_with('.') || name == ".deb" || name == ".rpm" || name == ".spk");
    } catch (const std::exception&) {
      // The whole file counts as faulty.
    }
  }
  return 0;
}
