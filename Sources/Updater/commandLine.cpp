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
