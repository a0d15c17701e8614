// One log line that is written, and one that is not.

#include <fcntl.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>

#include "logging/FileQDLogCb.h"
#include "measure.h"

namespace {

// --- A line in the file when the statement ends --------------------------------------------------

void lineProject(benchmark::State& state) {
  FileQDLogCb sink(measure::scratch("project.log"), false);
  QDLog::getLogger()->setLogCb(&sink);
  int number = 0;
  for (auto _ : state) QDLOG(ROOT, NFY, "Package downloaded: " << ++number << " bytes");
  QDLog::getLogger()->setLogCb(nullptr);
}

void lineSpdlog(benchmark::State& state) {
  const auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
      measure::scratch("spdlog.log"), std::size_t{5} << 20, 1);
  spdlog::logger logger("ROOT", sink);
  logger.set_pattern("[%Y-%m-%d %H:%M:%S] - %n:%l - [ (%s:%#)] - %v");
  logger.flush_on(spdlog::level::info);
  int number = 0;
  for (auto _ : state) SPDLOG_LOGGER_INFO(&logger, "Package downloaded: {} bytes", ++number);
}

void linePrintf(benchmark::State& state) {
  std::FILE* const file = std::fopen(measure::scratch("printf.log").c_str(), "a");
  int number = 0;
  for (auto _ : state) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    std::fprintf(file, "[%s] - %s:%s - [ (%s:%d)] - Package downloaded: %d bytes\n", stamp, "ROOT",
                 "NFY", "log_bench.cpp", __LINE__, ++number);
    std::fflush(file);
  }
  std::fclose(file);
}

void lineWrite(benchmark::State& state) {
  const int file = ::open(measure::scratch("write.log").c_str(),
                          O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const std::string line =
      "[2026-03-01 14:05:09] - ROOT:NFY - [ (log_bench.cpp:25)] - Package downloaded: 100000 "
      "bytes\n";
  for (auto _ : state) benchmark::DoNotOptimize(::write(file, line.data(), line.size()));
  ::close(file);
}

BENCHMARK(lineProject)->Name("log-line/project");
BENCHMARK(lineSpdlog)->Name("log-line/peer spdlog");
BENCHMARK(linePrintf)->Name("log-line/peer fprintf and fflush");
BENCHMARK(lineWrite)->Name("log-line/limit write");

// --- A statement whose level is off --------------------------------------------------------------

void offProject(benchmark::State& state) {
  FileQDLogCb sink("/dev/null", false);
  QDLog::getLogger()->setLogCb(&sink);
  int number = 0;
  for (auto _ : state) QDLOG(ROOT, DBG, "Package downloaded: " << ++number << " bytes");
  QDLog::getLogger()->setLogCb(nullptr);
}

void offSpdlog(benchmark::State& state) {
  spdlog::set_level(spdlog::level::err);
  int number = 0;
  for (auto _ : state) spdlog::debug("Package downloaded: {} bytes", ++number);
}

/// Which logger, and whether its level is on.
void offLoads(benchmark::State& state) {
  static std::atomic<int> level{2};
  static std::atomic<std::atomic<int>*> logger{&level};
  int number = 0;
  for (auto _ : state) {
    if (logger.load(std::memory_order_acquire)->load(std::memory_order_relaxed) >= 5) ++number;
  }
  benchmark::DoNotOptimize(number);
}

BENCHMARK(offProject)->Name("log-off/project");
BENCHMARK(offSpdlog)->Name("log-off/peer spdlog");
BENCHMARK(offLoads)->Name("log-off/limit two loads");

}  // namespace
