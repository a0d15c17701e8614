#include "qd-update/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "Updater/process/Interrupts.h"
#include "ground/osal_io.h"
#include "qd-update/display.h"

namespace {

bool isSet(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

/// A terminal that can take a line back.
bool isCapableTerminal() {
  const char* const kind = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

const char* sequenceOf(Colour colour) {
  switch (colour) {
    case Colour::Green:
      return "\x1b[32m";
    case Colour::Yellow:
      return "\x1b[33m";
    case Colour::Red:
      return "\x1b[31m";
    case Colour::None:
      break;
  }
  return "";
}

void write(const std::string& text) { osal_writeAll(STDOUT_FILENO, text); }

}  // namespace

Screen::Screen()
    : isTerminal_(isCapableTerminal()), hasColours_(isTerminal_ && !isSet("NO_COLOR")) {}

std::size_t Screen::width() const {
  constexpr std::size_t kUsual = 80;
  constexpr std::size_t kEndless = 4096;
  winsize size{};
  if (!isTerminal_) return kEndless;
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

void Screen::print(const std::string& line, Colour colour) {
  clearLast();
  const bool coloured = hasColours_ && colour != Colour::None;
  write(coloured ? sequenceOf(colour) + line + "\x1b[0m\n" : line + "\n");
}

void Screen::drawLast(const std::string& line) {
  if (!isTerminal_) return;
  clearLast();
  write(line);
  drawn_ = line.size();
}

bool Screen::clearLast() {
  if (drawn_ == 0) return false;
  const std::size_t rowsAbove = (drawn_ - 1) / width();
  std::string sequence = "\r";
  if (rowsAbove > 0) sequence += "\x1b[" + std::to_string(rowsAbove) + "A";
  write(sequence + "\x1b[J");
  drawn_ = 0;
  return rowsAbove > 0;
}

void RunDisplay::show(const RunRecord& record) {
  if (!begun_ || record.phase != phase_) showPhase(record);
  if (record.phase == Phase::Fetch && record.bytes > 0) showProgress(record);
  if (Interrupts::came() && agentMayBeStopped(record.phase) && !toldInterrupt_) {
    toldInterrupt_ = true;
    screen_.print("Interrupted; the run goes on to its end, so that the agent runs again",
                  Colour::Yellow);
  }
}

void RunDisplay::showPhase(const RunRecord& record) {
  if (begun_ && phase_ == Phase::Fetch && record.bytes > 0) {
    const auto took = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - fetchBegan_);
    screen_.print("Downloaded " + bytesText(record.bytes) + " in " +
                  clockText(static_cast<std::uint64_t>(took.count())));
  }
  begun_ = true;
  phase_ = record.phase;
  fetchBegan_ = Clock::now();
  const std::string line = phaseText(record.phase, record.to);
  if (!line.empty()) screen_.print(line);
}

void RunDisplay::showProgress(const RunRecord& record) {
  constexpr auto kDrawEvery = std::chrono::milliseconds(100);
  const auto now = Clock::now();
  if (now - drawnAt_ < kDrawEvery && record.bytes < record.size) return;
  drawnAt_ = now;
  const double seconds = std::chrono::duration<double>(now - fetchBegan_).count();
  const double rate = seconds > 0 ? static_cast<double>(record.bytes) / seconds : 0;
  if (screen_.clearLast()) screen_.print(phaseText(record.phase, record.to));
  screen_.drawLast(progressLine(screen_.width(), record.bytes, record.size, rate));
}

void RunDisplay::showPause(const std::string& why, std::chrono::milliseconds time) noexcept try {
  using std::chrono::system_clock;
  const std::time_t at = system_clock::to_time_t(system_clock::now() + time);
  screen_.drawLast(fitted(pauseText(why, at), screen_.width() - 1));
} catch (...) {
  // Showing it is worth less than doing it.
}

void ScreenLog::log(unsigned int pid, unsigned long long threadId, const char* module,
                    const char* level, const char* file, int line, const char* func,
                    const char* message) {
  if (next_ != nullptr) next_->log(pid, threadId, module, level, file, line, func, message);
  try {
    screen_.print(std::string(level) + " " + plainLine(message));
  } catch (...) {
    // A line that is not shown is in the log all the same.
  }
}
