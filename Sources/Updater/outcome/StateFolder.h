#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Updater/outcome/RunRecord.h"
#include "ground/osal_scoped.h"

/// The content of a file in the folder of the records; empty where there is none that can be read.
std::string readStateFile(const std::string& path, const char* name);

/// The folder of the records, for an agent instance that may be empty; empty for an instance name
/// that can't be one.
std::string stateFolderOf(const std::string& instance);

/// The folder in which runs leave what must outlive them, and its lock. Every file in it is whole
/// at every moment, whenever the process ends. Nothing is logged, and nothing thrown by what is
/// called while the agent is stopped.
class StateFolder {
 public:
  /// Creates the folder where it is missing, 0755 whatever the umask. Returns the reason why it
  /// can't be used, with what to do; empty when it can. It must belong to this user, or root, and
  /// nobody else may write to it.
  std::string open(const std::string& path);

  /// From here on nothing is written any more.
  void close() { path_.clear(); }

  [[nodiscard]] bool isOpen() const { return !path_.empty(); }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string pathOf(const char* name) const { return path_ + "/" + name; }

  /// Takes the lock for as long as this object lives. Returns false when another process holds it.
  /// Nobody but this user can open its file: whoever can open it can hold it.
  bool lock();

  [[nodiscard]] bool holdsLock() const { return static_cast<bool>(lock_); }

  /// What the latest holder of the lock wrote into it; kept over the end of a process.
  [[nodiscard]] std::string lockNote() const;
  void setLockNote(const std::string& note);

  /// Replaces a file, 0644. `durable`: it stands after a power cut. Returns 0 or an errno value.
  int replace(const char* name, std::string_view content, bool durable) const noexcept;

  /// Removes a file, if it is there, so that it is gone after a power cut, too. Returns 0 or an
  /// errno value.
  int remove(const char* name) const noexcept;

  /// Appends a line to the history by one write, and waits for the disk. A history that would grow
  /// beyond `limit` bytes is put aside first, in place of the one put aside before. Returns 0 or an
  /// errno value; then the history is as it was.
  int appendHistory(std::string_view line, std::uint64_t limit) const;

  /// Removes what a run that died left half done: a line at the end of the history, files under
  /// their temporary names. Under the lock only.
  void tidy() const;

  /// The last line of the history.
  [[nodiscard]] std::optional<RunRecord> latestInHistory() const;

  /// When the latest run with status 0 ended, by the history; 0 when it holds none.
  [[nodiscard]] std::time_t lastSuccess() const;

 private:
  std::string path_;
  ScopedFd folder_;
  ScopedFd lock_;
};

/// Whether a process holds the lock of the folder at `path`; nothing where that is unknown. Reads
/// only, and needs no rights.
std::optional<bool> stateFolderIsLocked(const std::string& path);

/// The lines of the history, what was put aside included, oldest first, those that are no record
/// passed over. Reads only.
std::vector<RunRecord> readHistory(const std::string& path);

/// The record of the latest run, or of the one under way. Reads only.
std::optional<RunRecord> readStatus(const std::string& path);
