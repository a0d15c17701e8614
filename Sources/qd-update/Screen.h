#pragma once

#include <chrono>
#include <string>

#include "Updater/outcome/RunRecord.h"
#include "logging/QDLog.h"

enum class Colour { None, Green, Yellow, Red };

/// Standard output as a person sees it. On a terminal it has a last line that is drawn again and
/// again, whole at whatever width the terminal has at that moment.
class Screen {
 public:
  Screen();

  [[nodiscard]] bool isTerminal() const { return isTerminal_; }

  /// Columns that a line may have; of what is no terminal, very many.
  [[nodiscard]] std::size_t width() const;

  /// Prints a line; on a terminal in that colour, unless NO_COLOR is set.
  void print(const std::string& line, Colour colour = Colour::None);

  /// Draws the last line in place of the one before it. Only on a terminal.
  void drawLast(const std::string& line);

  /// Takes the last line away. Returns true when the terminal has become narrower than the line:
  /// then some terminals show it on several rows and others cut it, and in the latter what stood
  /// above it is gone, too.
  bool clearLast();

 private:
  bool isTerminal_;
  bool hasColours_;
  std::size_t drawn_ = 0;  ///< columns of the last line
};

/// Shows a run on a terminal: a line for each phase, and a bar for the download.
class RunDisplay {
 public:
  explicit RunDisplay(Screen& screen) : screen_(screen) {}

  void show(const RunRecord& record);

  /// A request failed, and is sent again after `time`: the last line, until something else happens.
  void showPause(const std::string& why, std::chrono::milliseconds time) noexcept;

 private:
  using Clock = std::chrono::steady_clock;

  void showPhase(const RunRecord& record);
  void showProgress(const RunRecord& record);

  Screen& screen_;
  bool begun_ = false;
  Phase phase_ = Phase::Check;
  Clock::time_point fetchBegan_;
  Clock::time_point drawnAt_;
  bool toldInterrupt_ = false;
};

/// A sink that prints each record, above the line that is drawn, and hands it on if there is a
/// next.
class ScreenLog : public QDLogCb {
 public:
  explicit ScreenLog(Screen& screen, QDLogCb* next = nullptr) : next_(next), screen_(screen) {}
  void log(unsigned int pid, unsigned long long threadId, const char* module, const char* level,
           const char* file, int line, const char* func, const char* message) override;

 private:
  QDLogCb* next_;
  Screen& screen_;
};
