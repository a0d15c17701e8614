#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

/// The types and checks that the catalogues of tunables (the .def files) are expanded with.
namespace qdtunable {

/// Longest value of a tunable, in characters.
inline constexpr std::size_t kMaxValue = 8192;

/// The variable of a tunable, by the type's name in the catalogue.
using BOOL = bool;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using STR = char[kMaxValue + 1];

/// Whether a line of the catalogue makes sense: for numbers, the default lies within the limits and
/// the limits within the variable.
template <typename Variable, typename Initial>
constexpr bool isSane([[maybe_unused]] std::uint64_t min, [[maybe_unused]] std::uint64_t max,
                      [[maybe_unused]] Initial initial) {
  if constexpr (std::is_same_v<Variable, U32> || std::is_same_v<Variable, U64>) {
    const auto value = static_cast<std::uint64_t>(initial);
    return min <= value && value <= max && max <= std::numeric_limits<Variable>::max();
  }
  return true;
}

}  // namespace qdtunable

// What QD_TUNABLE stands for when a catalogue is included: the declaration of the variable, or its
// definition with the default.
#define QD_DECLARE_TUNABLE(type, key, min, max, initial) extern qdtunable::type key;
#define QD_DEFINE_TUNABLE(type, key, min, max, initial)                     \
  static_assert(qdtunable::isSane<qdtunable::type>(min, max, initial),      \
                #key ": the default and the limits contradict each other"); \
  qdtunable::type key = initial;
