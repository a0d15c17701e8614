// The output of a child command: 200,000 lines.

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/process.hpp>
#include <cstdio>

#include "Updater/command/utilsExec.h"
#include "measure.h"

namespace {

constexpr std::size_t kLines = 200000;

using Lines = std::vector<std::string>;

/// A command that prints the lines.
std::string command() {
  const std::string line = "2026-03-01 14:05:09 status installed package:amd64 7.2.1\n";
  return "cat " + measure::fileOf("lines", kLines * line.size(), line);
}

Lines linesProject(std::string command) {
  Lines lines;
  utils::exec(command, lines);
  return lines;
}

Lines linesPopen(std::string command) {
  Lines lines;
  std::FILE* const pipe = ::popen(command.c_str(), "r");
  char* line = nullptr;
  std::size_t room = 0;
  ssize_t length = 0;
  while ((length = ::getline(&line, &room, pipe)) > 0) {
    lines.emplace_back(line, static_cast<std::size_t>(length - 1));
  }
  std::free(line);
  ::pclose(pipe);
  return lines;
}

Lines linesBoost(std::string command) {
  Lines lines;
  boost::process::ipstream output;
  boost::process::child child("/bin/sh", "-c", command, boost::process::std_out > output);
  for (std::string line; std::getline(output, line);) lines.push_back(line);
  child.wait();
  return lines;
}

void lines(benchmark::State& state, Lines (*read)(std::string)) {
  const std::string text = command();
  for (auto _ : state) {
    ::malloc_trim(0);  // the memory of the run before would be this one's, or be copied by its fork
    measure::timed(state, [&] {
      if (read(text).size() != kLines) state.SkipWithError("lines are missing");
    });
  }
}

/// The same bytes, as they come.
void linesRead(benchmark::State& state) {
  std::string text = command();
  for (auto _ : state) {
    measure::timed(state, [&] {
      std::array<int, 2> ends{};
      if (::pipe(ends.data()) != 0) return;
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
      std::string shell = "sh";
      std::string option = "-c";
      std::array<char*, 4> words{shell.data(), option.data(), text.data(), nullptr};
      pid_t child = 0;
      ::posix_spawn(&child, "/bin/sh", &actions, nullptr, words.data(), environ);
      ::close(ends[1]);
      std::vector<char> block(65536);
      while (::read(ends[0], block.data(), block.size()) > 0) {
      }
      ::close(ends[0]);
      ::waitpid(child, nullptr, 0);
      posix_spawn_file_actions_destroy(&actions);
    });
  }
}

void often(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(lines, project, linesProject)->Name("child-lines/project")->Apply(often);
BENCHMARK_CAPTURE(lines, popen, linesPopen)
    ->Name("child-lines/peer popen and getline")
    ->Apply(often);
BENCHMARK_CAPTURE(lines, boost, linesBoost)->Name("child-lines/peer Boost.Process")->Apply(often);
BENCHMARK(linesRead)->Name("child-lines/limit posix_spawn and read")->Apply(often);

}  // namespace
