// Tunables texts: 4 MiB of the agent's own keys with comments, and whether the time grows as the
// text does.

#include <benchmark/benchmark.h>
#include <ini.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/sysdef/tunables.h"
#include "logging/QDLog.h"
#include "sysdef/qdTunablesBase.h"

namespace {

constexpr std::size_t kSmall = std::size_t{4} << 10;
constexpr std::size_t kLarge = std::size_t{4} << 20;

/// The agent's own keys over and over; `comment` is the two characters that start one.
std::string settings(std::size_t size, std::string_view comment) {
  std::string text;
  for (std::size_t number = 0; text.size() < size; ++number) {
    if (number % 8 == 0) text.append(comment).append(" a comment about what follows\n");
    text += tunablesOVT[number % tunablesOVTCount].name;
    text += " = " + std::to_string(number) + "\n";
  }
  text.resize(size);
  return text;
}

/// A new key in every line, which no table has.
std::string distinctKeys(std::size_t size) {
  std::string text;
  for (std::size_t number = 0; text.size() < size; ++number) {
    text += "QD_KEY_" + std::to_string(number * 2654435761U % 4294967296U) + "=1\n";
  }
  text.resize(size);
  return text;
}

void apply(const std::string& text) {
  tunablesUpdateStr(reinterpret_cast<const unsigned char*>(text.c_str()));
}

void project(benchmark::State& state) {
  QDLog::getLogger()->setLogCb(nullptr);
  const std::string text = settings(kLarge, "//");
  for (auto _ : state) apply(text);
}

/// 4 MiB in texts of `size` bytes.
void inTextsOf(benchmark::State& state, std::size_t size) {
  QDLog::getLogger()->setLogCb(nullptr);
  const std::string text = distinctKeys(size);
  for (auto _ : state) {
    for (std::size_t count = kLarge / size; count > 0; --count) apply(text);
  }
}

// --- What a program on inih does: look the name up, store the value in its variable --------------

using Records = std::unordered_map<std::string_view, const QDTunablesS*>;

int store(void* user, const char* /*section*/, const char* name, const char* value) {
  const auto& records = *static_cast<const Records*>(user);
  const auto found = records.find(name);
  if (found == records.end()) return 1;
  const QDTunablesS& record = *found->second;
  if (record.type == QD_TUNABLE_TYPE_BOOL) {
    *static_cast<bool*>(record.value) = std::strcmp(value, "true") == 0;
  } else if (record.type == QD_TUNABLE_TYPE_U32) {
    *static_cast<std::uint32_t*>(record.value) =
        static_cast<std::uint32_t>(std::strtoul(value, nullptr, 10));
  } else if (record.type == QD_TUNABLE_TYPE_U64) {
    *static_cast<std::uint64_t*>(record.value) = std::strtoull(value, nullptr, 10);
  } else {
    std::strcpy(static_cast<char*>(record.value), value);
  }
  return 1;
}

void inih(benchmark::State& state) {
  const std::string text = settings(kLarge, ";;");
  for (auto _ : state) {
    Records records;
    for (const QDTunablesS& record : tunablesOVT) records.emplace(record.name, &record);
    for (const QDTunablesS& record : tunablesBase) records.emplace(record.name, &record);
    benchmark::DoNotOptimize(ini_parse_string(text.c_str(), store, &records));
  }
}

void lineEnds(benchmark::State& state) {
  const std::string text = settings(kLarge, "//");
  for (auto _ : state) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at < end) {
      const void* const found = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
      at = found == nullptr ? end : static_cast<const char*>(found) + 1;
    }
    benchmark::DoNotOptimize(at);
  }
}

BENCHMARK(project)->Name("tunables/project");
BENCHMARK(inih)->Name("tunables/peer inih");
BENCHMARK(lineEnds)->Name("tunables/limit memchr");
BENCHMARK_CAPTURE(inTextsOf, large, kLarge)->Name("tunables-linear/project");
BENCHMARK_CAPTURE(inTextsOf, small, kSmall)->Name("tunables-linear/limit 1024 texts of 4 KiB");

}  // namespace
