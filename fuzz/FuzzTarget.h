#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

// What libFuzzer calls; returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process where a promise is broken, in every build: the fuzzer then keeps the input.
inline void fuzzExpect(bool holds) {
  if (!holds) std::abort();
}

inline std::string fuzzText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}
