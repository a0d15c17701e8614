#pragma once

#include <string>

#include "tools/QDTermIntf.h"

/// Checked C functions, pauses, time, random bytes, parsing and conversions.
///
/// Misuse never passes silently: a null argument, an overflow or a buffer that is too small is
/// logged once and thrown as a QDException of code 1. Sizes and lengths are in bytes. Buffers stay
/// the caller's. Unless stated otherwise, functions may be called from any thread.
class QDSys {
 public:
  // --- Checked C functions ----------------------------------------------------------------------

  /// Length of `s`. A string of 4 GiB or more is refused.
  static unsigned int strlen(const unsigned char* s);

  /// Copies `n` bytes between areas that do not overlap.
  static void memcpy(void* dst, const void* src, unsigned int n);

  /// Whether both strings are equal; `strIsNEqual` looks at their first `n` characters only.
  static bool strIsEqual(const unsigned char* a, const unsigned char* b);
  static bool strIsNEqual(const unsigned char* a, const unsigned char* b, unsigned int n);

  /// Copies `src` and fills the rest of the `size` bytes of `dst` with NULs. A source of `size`
  /// characters or more is refused when `strict`, with `dst` as it was; otherwise `dst` gets its
  /// first `size` characters and no terminator. A caller that uses the result as a string asks for
  /// `strict`.
  static void strncpy(unsigned char* dst, const unsigned char* src, unsigned int size, bool strict);

  /// Prints into the `size` bytes of `buf`, terminator included. What does not fit is cut, which is
  /// no error.
  [[gnu::format(printf, 3, 4)]] static void snprintf(char* buf, unsigned int size,
                                                     const char* format, ...);

  // --- Pauses -----------------------------------------------------------------------------------

  /// Waits in slices of at most one second and asks `term`, unless it is null, before each of them
  /// whether to stop. `reason` is for the log. An interrupted or failed pause just ends early.
  static void sleep(unsigned int seconds, QDTermIntf* term, const char* reason);
  static void sleepMs(unsigned int ms, QDTermIntf* term, const char* reason);

  // --- Time and identity ------------------------------------------------------------------------

  /// Milliseconds since 1970 as the clock showed it at the first call, and as they passed since
  /// then: never runs backwards, whatever happens to the clock.
  static unsigned long long timeMs();

  static unsigned int getPID();

  /// A number that no other call of this process returned; not synchronised between threads. It
  /// starts from the time, so two runs are not likely to share numbers.
  static unsigned long long getWeakSeqID();

  /// Seconds that local time is ahead of UTC: now, and at the end of 1999.
  static int getTZOffset();
  static int getIniTZOffset();

  /// Memory of this process in MiB: what it shares with nobody, and what is resident.
  static void getRAMInfos(unsigned int& privateMiB, unsigned int& residentMiB);

  // --- Random numbers ---------------------------------------------------------------------------
  // Not synchronised: concurrent first calls may seed the generator twice, which does no harm.

  static unsigned long long QDRand();
  static void QDRand(void* buf, unsigned short len);

  // --- Exit -------------------------------------------------------------------------------------

  /// Ends the process with status 0, `code` or 97.
  [[noreturn]] static void exitNoErr();
  [[noreturn]] static void exitErr(unsigned short code);
  [[noreturn]] static void exitRLDB();

  // --- Parsing ----------------------------------------------------------------------------------
  // The whole string is digits, decimal or hexadecimal of either case: at least one, with no sign,
  // blank or prefix. Anything else, null, and what does not fit 64 bits give 0 and false.

  static unsigned long long atoll(const char* s, bool* ok);
  static bool atoll(const char* s, unsigned long long& value);
  static unsigned long long atoll16(const char* s, bool* ok);
  static bool atoll16(const char* s, unsigned long long& value);

  // --- Conversions ------------------------------------------------------------------------------
  // A result that does not fit an int counts as one that does not fit the buffer.

  /// Copies letters, digits and "-./_~"; other bytes become "%" and two upper-case hexadecimal
  /// digits. Before each input byte 4 bytes of the `size` must be left, whatever it becomes.
  /// Terminates `out` and returns its length; bytes behind the terminator are unspecified.
  static int encodeURLfromUTF8(const unsigned char* in, unsigned char* out, unsigned int size);

  /// Turns "%" and two upper-case hexadecimal digits into their byte and copies everything else,
  /// "+" and a "%" without such digits included. Terminates `out` and returns its length, which
  /// counts decoded NULs. `in` and `out` may be the same buffer.
  static int decodeURLtoUTF8(const unsigned char* in, unsigned char* out, unsigned int size);

  /// Writes two digits a byte, high nibble first, and no terminator. Returns 2 * `n`.
  static int convertBinToHex(const void* bin, unsigned int n, unsigned char* out,
                             unsigned int outSize, bool lowerCase);
  static int convertBinToHex(const void* bin, unsigned int n, char* out, unsigned int outSize,
                             bool lowerCase);

  /// The same in upper case, with "00" for an empty input.
  static int convertBinToHexStrNull(const void* bin, unsigned int n, unsigned char* out,
                                    unsigned int outSize);

  /// Converts `hexLen` / 2 pairs of digits of either case up to the first pair that is none.
  /// `bin` needs room for all of them. A string that ends before `hexLen` is not read further.
  /// Returns the number of bytes produced.
  static int convertHexToBin(const unsigned char* hex, unsigned int hexLen, void* bin,
                             unsigned int binSize);

  /// The same, with a NUL after the bytes produced, which takes one byte more.
  static int convertHexStrNullToBin(const unsigned char* hex, unsigned int hexLen, void* bin,
                                    unsigned int binSize);

  /// Copies `in` to `out` with U+FFFD in the place of each ill-formed UTF-8 sequence and each
  /// non-character. A lead byte is replaced together with those continuation bytes behind it that
  /// it announces. Returns the text of `out`; `in` may lie in `out`.
  static const char* fixedUTF8(const unsigned char* in, std::string& out);

 private:
  static void _initRandom();

  /// Refuses null arguments, the first one first, with `function` in the message.
  static void _checkArgs(const char* function, const void* first, const void* second);

  static bool _randInit;
  static unsigned long long _uniqID;
};
