// Large files: the digest and the copy of 1 GiB.

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <random>

#include "ground/osal_scoped.h"
#include "measure.h"
#include "tools/QDFile.h"
#include "tools/QDHash.h"

namespace {

constexpr std::size_t kSize = std::size_t{1} << 30;

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.c_str());
}

std::string sourceFile() {
  std::string block(std::size_t{1} << 20, '\0');
  std::mt19937 random(1);
  for (char& c : block) c = static_cast<char>(random());
  return measure::fileOf("source", kSize, block);
}

// --- Digest --------------------------------------------------------------------------------------

void md5Project(benchmark::State& state) {
  const std::string path = sourceFile();
  std::array<unsigned char, 33> hex{};
  for (auto _ : state) {
    measure::timed(state, [&] { QDHashMD5::computeFileHexHash(bytesOf(path), hex.data()); });
  }
  benchmark::DoNotOptimize(hex);
}

void md5Command(benchmark::State& state, const std::vector<std::string>& command) {
  std::vector<std::string> words = command;
  words.push_back(sourceFile());
  for (auto _ : state) {
    measure::timed(state, [&] {
      if (!measure::run(words)) state.SkipWithError("the command failed");
    });
  }
}

void md5Memory(benchmark::State& state) {
  const std::vector<unsigned char> memory(kSize, 'x');
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  for (auto _ : state) {
    measure::timed(state, [&] {
      EVP_Digest(memory.data(), memory.size(), digest.data(), nullptr, EVP_md5(), nullptr);
    });
  }
  benchmark::DoNotOptimize(digest);
}

using Words = std::vector<std::string>;
BENCHMARK(md5Project)->Name("md5/project")->Apply(measure::once);
BENCHMARK_CAPTURE(md5Command, md5sum, Words{"md5sum"})
    ->Name("md5/peer md5sum")
    ->Apply(measure::once);
BENCHMARK_CAPTURE(md5Command, openssl, Words{"openssl", "dgst", "-md5"})
    ->Name("md5/peer openssl dgst")
    ->Apply(measure::once);
BENCHMARK(md5Memory)->Name("md5/limit EVP over memory")->Apply(measure::once);

// --- Copy ----------------------------------------------------------------------------------------

void copyProject(const std::string& from, const std::string& to) {
  QDFile::copy(bytesOf(from), bytesOf(to), false);
}

struct Files {
  ScopedFd from;
  ScopedFd to;
  Files(const std::string& source, const std::string& target)
      : from(::open(source.c_str(), O_RDONLY | O_CLOEXEC)),
        to(::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {}
};

void copyLoop(const std::string& from, const std::string& to) {
  const Files files(from, to);
  std::vector<char> block(32768);
  ssize_t count = 0;
  while ((count = ::read(files.from.get(), block.data(), block.size())) > 0) {
    if (::write(files.to.get(), block.data(), static_cast<std::size_t>(count)) != count) return;
  }
}

void copyRange(const std::string& from, const std::string& to) {
  const Files files(from, to);
  while (::copy_file_range(files.from.get(), nullptr, files.to.get(), nullptr, kSize, 0) > 0) {
  }
}

void copy(benchmark::State& state, void (*copyFile)(const std::string&, const std::string&)) {
  const std::string from = sourceFile();
  const std::string to = measure::scratch("target");
  for (auto _ : state) {
    measure::timed(state, [&] { copyFile(from, to); });
    if (std::filesystem::file_size(to) != kSize) state.SkipWithError("the copy is not complete");
    std::filesystem::remove(to);
  }
}

BENCHMARK_CAPTURE(copy, project, copyProject)->Name("copy/project")->Apply(measure::once);
BENCHMARK_CAPTURE(copy, loop, copyLoop)->Name("copy/peer 32 KiB loop")->Apply(measure::once);
BENCHMARK_CAPTURE(copy, range, copyRange)->Name("copy/limit copy_file_range")->Apply(measure::once);

}  // namespace
