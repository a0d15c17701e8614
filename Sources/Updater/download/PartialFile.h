#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Updater/download/RunningDigests.h"
#include "fetch/Transfer.h"

/// The folder of downloads that were begun, `state`/partial: this user's alone. Created where it is
/// missing. Empty where it can't be used, or commands could not name it without quotes.
std::string openPartialFolder(const std::string& state);

/// Removes the files in that folder, which nobody goes on with. What cannot be removed stays.
void emptyPartialFolder(const std::string& folder);

/// A file on its way, whose beginning an earlier request or run may have brought. Beside it, as
/// NAME.from, lies which address it comes from and what distinguishes it from any other file there.
/// A failure to write throws std::system_error.
class PartialFile {
 public:
  /// `fd`, which stays the caller's, is the open file at `path`. `kept`: it lies in the folder
  /// above, where other files are left from earlier versions, and removed; else nothing is noted
  /// beside it, and it is not taken up by a later run.
  PartialFile(int fd, std::string path, bool kept, RunningDigests::Kinds digests);

  /// Takes up what is there of the file at `url`, or of one that another server has by the same
  /// name, which begins with a SHA-256. Where it is not known what it belongs to, it is emptied.
  void resume(const std::string& url);

  /// Empties it.
  void restart();

  [[nodiscard]] std::uint64_t size() const { return size_; }
  /// For If-Range; empty: there is none.
  [[nodiscard]] const std::string& validator() const { return validator_; }
  /// Whether an answer may go on where this ends.
  [[nodiscard]] bool canContinue() const { return !validator_.empty() || takenUp_; }
  /// Whether it begins with what was there before.
  [[nodiscard]] bool isTakenUp() const { return takenUp_; }

  /// An answer begins. False: it does not continue what is there, which is then emptied.
  bool begin(const fetch::Result& head);

  /// Its next bytes.
  void write(std::string_view bytes);
  /// Everything is with the system.
  void flush();

  /// Those of all that was flushed, once it has been read.
  RunningDigests& digests();

 private:
  void note() const;
  [[nodiscard]] std::string notePath() const { return path_ + ".from"; }

  int fd_;
  std::string path_;
  bool kept_;
  std::string url_;
  std::string validator_;
  bool takenUp_ = false;
  std::uint64_t size_ = 0;  // with what is in the buffer
  std::string buffer_;
  RunningDigests digests_;
};
