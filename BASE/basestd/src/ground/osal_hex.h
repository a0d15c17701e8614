#pragma once

#include <cstddef>
#include <cstdint>

// Hexadecimal digits. Arithmetic on bytes instead of tables, so that the compiler converts many of
// them at once.

constexpr std::uint8_t kNoHexDigit = 0xFF;

/// The digit of a value below 16.
constexpr char osal_hexDigit(std::uint8_t value, bool lowerCase = false) {
  // How much further than "9" the letters begin.
  const std::uint8_t letterGap = (lowerCase ? 'a' : 'A') - '9' - 1;
  const std::uint8_t gap = value > 9 ? letterGap : std::uint8_t{0};
  return static_cast<char>(static_cast<std::uint8_t>(value + '0' + gap));
}

/// The value of a digit, whose letters may be of either case, or `kNoHexDigit`.
constexpr std::uint8_t osal_hexValue(std::uint8_t character) {
  const auto number = static_cast<std::uint8_t>(character - '0');
  const auto letter = static_cast<std::uint8_t>((character | 0x20) - 'a');
  const std::uint8_t ofLetter = letter < 6 ? static_cast<std::uint8_t>(letter + 10) : kNoHexDigit;
  return number < 10 ? number : ofLetter;
}

/// Writes the `2 * count` digits of `count` bytes, without a NUL behind them.
inline void osal_writeHex(const std::uint8_t* bytes, std::size_t count, bool lowerCase,
                          char* digits) {
  for (std::size_t i = 0; i < count; ++i) {
    digits[2 * i] = osal_hexDigit(bytes[i] >> 4, lowerCase);
    digits[2 * i + 1] = osal_hexDigit(bytes[i] & 0xF, lowerCase);
  }
}
