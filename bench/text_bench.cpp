// Conversions of 64 MiB: hexadecimal, URLs, and the repair of UTF-8.

#include <curl/curl.h>
#include <utf8.h>

#include <boost/algorithm/hex.hpp>
#include <cstring>
#include <iterator>
#include <random>
#include <string_view>

#include "measure.h"
#include "tools/QDSys.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned int kSize = 64U << 20;

const Bytes& randomBytes() {
  static const Bytes kBytes = [] {
    Bytes bytes(kSize);
    std::mt19937 random(1);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
  }();
  return kBytes;
}

/// Words and names as they are in paths and messages: mostly ASCII, some letters of two and three
/// bytes.
const Bytes& ordinaryText() {
  constexpr std::string_view kWords[] = {"the ",          "backup/",    "of ",     "Documents/",
                                         "report 2026, ", "été ",       "Größe: ", "file.txt ",
                                         "server_1 ",     "“quoted” ",  "and ",    "folder\n",
                                         "is ",           "complete. ", "資料/"};
  static const Bytes kText = [&] {
    std::mt19937 random(1);
    Bytes text;
    while (text.size() < kSize) {
      const std::string_view word = kWords[random() % std::size(kWords)];
      text.insert(text.end(), word.begin(), word.end());
    }
    text.resize(kSize);
    return text;
  }();
  return kText;
}

/// What the machine allows: the bytes once through memory.
void copy(benchmark::State& state) {
  const Bytes& from = ordinaryText();
  Bytes to(kSize);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), kSize);
    benchmark::ClobberMemory();
  }
}

// --- Hexadecimal ---------------------------------------------------------------------------------

const Bytes& digits() {
  static const Bytes kDigits = [] {
    Bytes hex(2 * kSize);
    QDSys::convertBinToHex(randomBytes().data(), kSize, hex.data(), 2 * kSize, false);
    return hex;
  }();
  return kDigits;
}

void toHexProject(benchmark::State& state) {
  const Bytes& from = randomBytes();
  Bytes to(2 * kSize);
  for (auto _ : state) QDSys::convertBinToHex(from.data(), kSize, to.data(), 2 * kSize, false);
}

void toHexBoost(benchmark::State& state) {
  const Bytes& from = randomBytes();
  Bytes to(2 * kSize);
  for (auto _ : state) boost::algorithm::hex(from.begin(), from.end(), to.begin());
}

void fromHexProject(benchmark::State& state) {
  const Bytes& from = digits();
  Bytes to(kSize);
  for (auto _ : state) QDSys::convertHexToBin(from.data(), 2 * kSize, to.data(), kSize);
}

void fromHexBoost(benchmark::State& state) {
  const Bytes& from = digits();
  Bytes to(kSize);
  for (auto _ : state) boost::algorithm::unhex(from.begin(), from.end(), to.begin());
}

// --- URLs, in pieces: libcurl bounds what it encodes ---------------------------------------------

constexpr unsigned int kPiece = 2U << 20;

std::vector<std::string> pieces() {
  const Bytes& text = ordinaryText();
  std::vector<std::string> pieces;
  for (auto at = text.begin(); at != text.end(); at += kPiece) pieces.emplace_back(at, at + kPiece);
  return pieces;
}

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.c_str());
}

std::vector<std::string> encodedPieces() {
  std::vector<std::string> encoded;
  Bytes buffer(3 * kPiece + 4);
  for (const std::string& piece : pieces()) {
    const int size = QDSys::encodeURLfromUTF8(bytesOf(piece), buffer.data(), 3 * kPiece + 4);
    encoded.emplace_back(buffer.begin(), buffer.begin() + size);
  }
  return encoded;
}

using Convert = int (*)(const unsigned char*, unsigned char*, unsigned int);

void urlProject(benchmark::State& state, Convert convert, std::vector<std::string> (*input)()) {
  const std::vector<std::string> texts = input();
  Bytes to(3 * kPiece + 4);
  for (auto _ : state) {
    for (const std::string& text : texts) convert(bytesOf(text), to.data(), 3 * kPiece + 4);
  }
}

char* escape(const std::string& text) {
  return ::curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size()));
}

char* unescape(const std::string& text) {
  return ::curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), nullptr);
}

void urlCurl(benchmark::State& state, char* (*convert)(const std::string&),
             std::vector<std::string> (*input)()) {
  const std::vector<std::string> texts = input();
  for (auto _ : state) {
    for (const std::string& text : texts) {
      char* const converted = convert(text);
      if (converted == nullptr) state.SkipWithError("libcurl refused the text");
      ::curl_free(converted);
    }
  }
}

// --- Repair of UTF-8 -----------------------------------------------------------------------------

std::string cString(const Bytes& bytes) {
  std::string text(bytes.begin(), bytes.end());
  for (char& c : text) c = c == '\0' ? '\x80' : c;
  return text;
}

/// With memory that was used before: what is measured is the repair.
std::string roomFor(const std::string& text) { return std::string(3 * text.size(), ' '); }

void repairProject(benchmark::State& state, const Bytes& (*input)()) {
  const std::string text = cString(input());
  std::string repaired = roomFor(text);
  for (auto _ : state) benchmark::DoNotOptimize(QDSys::fixedUTF8(bytesOf(text), repaired));
}

void repairUtfcpp(benchmark::State& state, const Bytes& (*input)()) {
  const std::string text = cString(input());
  std::string repaired = roomFor(text);
  for (auto _ : state) {
    repaired.clear();
    utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(repaired));
    benchmark::DoNotOptimize(repaired.data());
  }
}

BENCHMARK(toHexProject)->Name("hex-encode/project");
BENCHMARK(toHexBoost)->Name("hex-encode/peer Boost.Algorithm");
BENCHMARK(copy)->Name("hex-encode/limit memcpy");
BENCHMARK(fromHexProject)->Name("hex-decode/project");
BENCHMARK(fromHexBoost)->Name("hex-decode/peer Boost.Algorithm");
BENCHMARK(copy)->Name("hex-decode/limit memcpy");

BENCHMARK_CAPTURE(urlProject, encode, QDSys::encodeURLfromUTF8, pieces)->Name("url-encode/project");
BENCHMARK_CAPTURE(urlCurl, encode, escape, pieces)->Name("url-encode/peer libcurl");
BENCHMARK(copy)->Name("url-encode/limit memcpy");
BENCHMARK_CAPTURE(urlProject, decode, QDSys::decodeURLtoUTF8, encodedPieces)
    ->Name("url-decode/project");
BENCHMARK_CAPTURE(urlCurl, decode, unescape, encodedPieces)->Name("url-decode/peer libcurl");
BENCHMARK(copy)->Name("url-decode/limit memcpy");

BENCHMARK_CAPTURE(repairProject, text, ordinaryText)->Name("utf8-text/project");
BENCHMARK_CAPTURE(repairUtfcpp, text, ordinaryText)->Name("utf8-text/peer utfcpp");
BENCHMARK(copy)->Name("utf8-text/limit memcpy");
BENCHMARK_CAPTURE(repairProject, random, randomBytes)->Name("utf8-random/project");
BENCHMARK_CAPTURE(repairUtfcpp, random, randomBytes)->Name("utf8-random/peer utfcpp");
BENCHMARK(copy)->Name("utf8-random/limit memcpy");

}  // namespace
