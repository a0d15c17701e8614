#include "Updater/health/journal.h"

#include "Updater/command/childRun.h"

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::chrono::seconds kLimit{20};

}  // namespace

std::string unitJournal(const std::string& unit, std::time_t since) {
  std::string text;
  utils::runChild({.program = "journalctl",
                   .arguments = {"--unit=" + unit, "--since=@" + std::to_string(since),
                                 "--lines=20000", "--output=short-iso", "--quiet", "--no-pager"},
                   .environment = {},
                   .limit = kLimit,
                   .onLine =
                       [&text](const std::string& line) {
                         text += line + "\n";
                         if (text.size() > 2 * kMostBytes) text.erase(0, kMostBytes);
                       },
                   .cancelled = {}});
  if (text.size() > kMostBytes) text.erase(0, text.find('\n', text.size() - kMostBytes) + 1);
  return text;
}
