// The administrator's settings file: any bytes give settings, or a fault of one line with its
// place.

#include <variant>

#include "FuzzTarget.h"
#include "Updater/config/settingsParser.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parsed = parseSettings(fuzzText(data, size));
  if (const auto* const fault = std::get_if<SettingsFault>(&parsed)) {
    fuzzExpect(fault->line > 0 && fault->column > 0 && !fault->text.empty());
    fuzzExpect(fault->text.find('\n') == std::string::npos);
    return 0;
  }
  const Settings& settings = std::get<Settings>(parsed);
  fuzzExpect(!settings.trust || settings.trust->root.starts_with('/'));
  fuzzExpect(settings.mirrors.empty() || settings.trust);
  fuzzExpect(settings.server.empty() || settings.server.starts_with("http"));
  return 0;
}
