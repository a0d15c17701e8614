#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>

#include "ground/QDEnums.h"

/// One tunable: a named setting with a fixed type and, for numbers, a permitted range.
struct QDTunablesS {
  std::uint64_t min;  ///< limits of a number, inclusive; 0 and without a meaning for other types
  std::uint64_t max;
  QDTunableType type;
  void* value;       ///< its variable: bool, std::uint32_t, std::uint64_t or char[8193], by type
  const char* name;  ///< its key
};

/// What QD_TUNABLE stands for when a catalogue is included: the record of its table.
#define QD_TUNABLE_RECORD(type, key, min, max, initial) \
  {min, max, QD_TUNABLE_TYPE_##type, &key, #key},

/// Applies tunables texts to tables of tunables.
///
/// A text consists of lines KEY=value, ended by line feed, carriage return or both. A key has 1 to
/// 64 characters (A to Z, 0 to 9, "_"), a value at most 8,192, up to the end of its line. Blanks
/// before the key and on both sides of "=" do not count. "//" starts a line that is skipped.
class QDTunables {
 public:
  /// Applies the NUL-terminated `text` to the `count` records of `table`, in table order.
  ///
  /// The first line of a key counts; keys that no record names are ignored. Numbers are clamped to
  /// the limits of their record; a value that a BOOL does not take leaves it as it is. Problems are
  /// logged, and never stop the rest. One pass over the text: the time grows as it does, the memory
  /// with what the table takes of it. Takes no lock: for the start-up, before other threads read.
  static void tunablesUpdate(const unsigned char* text, const QDTunablesS* table,
                             unsigned int count);

  using Table = std::span<const QDTunablesS>;
  /// The same for one table after the other, each with all its messages; the text is read again
  /// only for these.
  static void tunablesUpdate(const unsigned char* text, std::initializer_list<Table> tables);
};
