#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The wanted keys, and the first value that a text has for each. Other keys are not kept, so that
/// a text full of them costs no memory.
///
/// A hash table with open addressing and linear probing (Knuth, The Art of Computer Programming,
/// volume 3, section 6.4, algorithm L), filled once and then searched for each line.
class QDTunableKeys {
 public:
  /// A table for up to `count` keys.
  explicit QDTunableKeys(std::size_t count);

  /// Adds a wanted key, without a value; one that is there already stays as it is. The characters
  /// of `key` stay the caller's and outlive this. No more than `count` of the constructor.
  void add(std::string_view key);

  /// Where the value of `key` is kept until the next `add`; null if the key is not wanted.
  std::optional<std::string>* find(std::string_view key) {
    const std::uint32_t entry = slots_[slotOf(key)];
    return entry == kFree ? nullptr : &values_[entry];
  }

 private:
  static constexpr std::uint32_t kFree = UINT32_MAX;

  /// The slot of `key`, or the free one where it would go.
  [[nodiscard]] std::size_t slotOf(std::string_view key) const;

  std::vector<std::string_view> keys_;
  std::vector<std::optional<std::string>> values_;
  std::vector<std::uint32_t> slots_;  // a power of two of them; each an index into the others
};
