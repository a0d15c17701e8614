// How long a tunables text takes to apply, by its size and by what its lines are. The column to
// look at is bytes_per_second: it stays where the time grows as the text does.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "base/sysdef/tunables.h"
#include "logging/QDLog.h"

namespace {

enum Shape : int {
  Settings,      ///< the agent's own keys over and over, with comments
  DistinctKeys,  ///< a new key in every line, which no table has
  LongValues,    ///< values of the greatest length
  Faulty,        ///< lines that are no pairs
};

const char* nameOf(std::int64_t shape) {
  constexpr const char* kNames[] = {"settings", "distinct keys", "long values", "faulty lines"};
  return kNames[shape];
}

std::string lineOf(std::int64_t shape, std::size_t number) {
  const QDTunablesS& record = tunablesOVT[number % std::size(tunablesOVT)];
  switch (shape) {
    case Settings:
      return number % 8 == 0 ? "// a comment about what follows\n"
                             : std::string(record.name) + " = " + std::to_string(number) + "\n";
    case DistinctKeys:
      return "QD_KEY_" + std::to_string(number * 2654435761U % 4294967296U) + "=1\n";
    case LongValues:
      return std::string(record.name) + "=" + std::string(8192, 'v') + "\n";
    default:
      return "not_a_key: " + std::to_string(number) + "\n";
  }
}

std::string textOf(std::int64_t shape, std::size_t size) {
  std::string text;
  for (std::size_t number = 0; text.size() < size; ++number) text += lineOf(shape, number);
  text.resize(size);
  return text;
}

void BM_TunablesUpdate(benchmark::State& state) {
  QDLog::getLogger()->setLogCb(nullptr);
  const std::string text = textOf(state.range(0), static_cast<std::size_t>(state.range(1)));
  for (auto _ : state) {
    tunablesUpdateStr(reinterpret_cast<const unsigned char*>(text.c_str()));
  }
  state.SetLabel(nameOf(state.range(0)));
  state.SetBytesProcessed(state.iterations() * state.range(1));
  state.SetComplexityN(state.range(1));
}

void sizesOf(benchmark::internal::Benchmark* bench, Shape shape) {
  for (const std::int64_t size : {4 << 10, 64 << 10, 1 << 20, 4 << 20}) bench->Args({shape, size});
  bench->ArgNames({"shape", "bytes"})->Complexity(benchmark::oN)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_TunablesUpdate)->Apply([](auto* bench) { sizesOf(bench, Settings); });
BENCHMARK(BM_TunablesUpdate)->Apply([](auto* bench) { sizesOf(bench, DistinctKeys); });
BENCHMARK(BM_TunablesUpdate)->Apply([](auto* bench) { sizesOf(bench, LongValues); });
BENCHMARK(BM_TunablesUpdate)->Apply([](auto* bench) { sizesOf(bench, Faulty); });

}  // namespace
