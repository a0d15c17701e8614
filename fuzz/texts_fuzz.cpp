// The short texts of a server and of the command line: version, digest, hexadecimal address, and
// what becomes a word of a shell command.

#include <sstream>

#include "FuzzTarget.h"
#include "Updater/command/utilsShell.h"
#include "Updater/net/HttpClient.h"
#include "Updater/procedure/updateRules.h"
#include "Updater/terms/Version.h"
#include "tools/QDException.h"

namespace {

std::string printed(const Version& version) {
  std::ostringstream out;
  version.print(out);
  return out.str();
}

/// What a shell makes of a word in single quotes or of plain characters.
std::string unquoted(const std::string& word) {
  std::string text;
  bool quoted = false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] == '\'') {
      quoted = !quoted;
    } else if (word[i] == '\\' && !quoted) {
      text += word.at(++i);
    } else {
      text += word[i];
    }
  }
  fuzzExpect(!quoted);
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzzText(data, size);
  const Version version(text);
  fuzzExpect(Version(printed(version)) == version);
  if (const auto digest = digestIn(text)) fuzzExpect(text.starts_with(*digest + " "));
  fuzzExpect(unquoted(utils::shellWord(text)) == text);
  try {
    fuzzExpect(utils::decodeURL(text).size() < 4096);
  } catch (const QDException&) {
    fuzzExpect(size >= 8192);
  }
  return 0;
}
