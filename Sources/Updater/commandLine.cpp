#include "Updater/commandLine.h"

#include <string_view>

std::optional<CommandLine> readCommandLine(int argc, const char* const* argv) {
  if (argc == 3) return CommandLine{.url = argv[1], .version = argv[2]};
  if (argc != 4) return std::nullopt;
  const std::string_view option = argv[1];
  if (option != "-D" && option != "-S") return std::nullopt;
  return CommandLine{
      .echo = true, .skipInstall = option == "-S", .url = argv[2], .version = argv[3]};
}

std::string dataFolderFile(const std::string& configurationFolder, const std::string& instance) {
  constexpr std::size_t kMaxFolder = 1055;
  if (instance.find('/') != std::string::npos) return {};
  std::string folder = configurationFolder;
  if (!instance.empty()) folder += "." + instance;
  return folder.size() > kMaxFolder ? std::string() : folder + "/dbdir.cfg";
}
