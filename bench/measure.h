#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

/// What the benchmarks share that work with files and child processes.
namespace measure {

/// Processor time in seconds that this process, with all its threads, and the children that it has
/// waited for have taken. Unlike real time, it is hardly longer on a busy machine.
inline double processorTime() {
  double seconds = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    ::getrusage(who, &usage);
    for (const timeval& part : {usage.ru_utime, usage.ru_stime}) {
      seconds += static_cast<double>(part.tv_sec) + 1e-6 * static_cast<double>(part.tv_usec);
    }
  }
  return seconds;
}

/// Runs `work` once, and counts its processor time as that of one iteration.
template <typename Work>
void timed(benchmark::State& state, const Work& work) {
  const double start = processorTime();
  work();
  state.SetIterationTime(processorTime() - start);
}

/// For what takes long: one run a repetition, timed by `timed`.
inline void once(benchmark::internal::Benchmark* bench) {
  bench->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

/// A path in the folder that scripts/bench removes in the end.
inline std::string scratch(const std::string& name) {
  return std::filesystem::temp_directory_path() / name;
}

/// Runs a command, without its output, and waits for it. False when it did not end with 0.
inline bool run(std::vector<std::string> command) {
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = ::posix_spawnp(&child, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (status == 0) ::waitpid(child, &status, 0);
  return status == 0;
}

/// A file of `size` bytes made of `block`, created when it is not there yet.
inline std::string fileOf(const std::string& name, std::uintmax_t size, const std::string& block) {
  const std::string path = scratch(name);
  std::error_code error;
  if (std::filesystem::file_size(path, error) == size) return path;
  std::ofstream file(path, std::ios::binary);
  for (std::uintmax_t done = 0; done < size; done += block.size()) file << block;
  return path;
}

}  // namespace measure
