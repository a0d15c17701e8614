#include "sysdef/qdTunables.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "ground/osal_bytes.h"
#include "ground/qdTunableTypes.h"
#include "sysdef/qdTunableKeys.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

constexpr unsigned int kMaxKey = 64;
constexpr unsigned int kMaxValue = qdtunable::kMaxValue;

/// A text between double quotes.
struct Quoted {
  std::string_view text;
};

QDStreamLogger& operator<<(QDStreamLogger& out, const Quoted& quoted) {
  out << '"';
  out.write(quoted.text.data(), static_cast<std::streamsize>(quoted.text.size()));
  return out << '"';
}

/// How every message about the value of one record starts.
struct About {
  const QDTunablesS& record;
};

QDStreamLogger& operator<<(QDStreamLogger& out, const About& about) {
  return out << "Tunables - \"" << about.record.name << "\" -> ";
}

// --- Reading the text ----------------------------------------------------------------------------

bool isDigit(char c) { return c >= '0' && c <= '9'; }

constexpr auto kIsKeyCharacter = [] {
  std::array<bool, 256> is{};
  for (unsigned char c = 'A'; c <= 'Z'; ++c) is[c] = true;
  for (unsigned char c = '0'; c <= '9'; ++c) is[c] = true;
  is['_'] = true;
  return is;
}();

const unsigned char* skipSpaces(const unsigned char* at) {
  while (*at == ' ') ++at;
  return at;
}

const unsigned char* skipLineEnds(const unsigned char* at) {
  while (*at == '\n' || *at == '\r') ++at;
  return at;
}

/// The end of the line at `at`, which the end of the text is, too.
const unsigned char* endOfLine(const unsigned char* at) {
  return at + std::strcspn(osal_chars(at), "\r\n");
}

/// How many characters of a key are at `at`; no more than one too many.
unsigned int keyLengthAt(const unsigned char* at) {
  const unsigned char* end = at;
  while (kIsKeyCharacter[*end]) ++end;
  return static_cast<unsigned int>(std::min<std::ptrdiff_t>(end - at, kMaxKey + 1));
}

/// Copies the `length` characters at `at`. Returns nothing, after logging, when that is refused.
std::optional<std::string> copyValue(const unsigned char* at, unsigned int length) {
  std::string value(length, '\0');
  try {
    QDSys::memcpy(value.data(), at, length);
    return value;
  } catch (const QDException& e) {
    qdTraceException(e, "ECSP");
    QDLOG(PRFS, ERR, "Tunables - cannot read value -> skip line");
    return std::nullopt;
  }
}

/// Keeps the value of the line from `at` to `end`, if it holds a pair and its key is wanted and
/// new. Returns false after logging a fault of the line.
bool readLine(const unsigned char* at, const unsigned char* end, QDTunableKeys& keys) {
  at = skipSpaces(at);
  if (at[0] == '/' && at[1] == '/') {
    QDLOG(PRFS, INF, "Tunables - // comment found -> skip line");
    return true;
  }
  const unsigned int keyLength = keyLengthAt(at);
  if (keyLength == 0 || keyLength > kMaxKey) {
    QDLOG(PRFS, ERR, "Tunables - bad read name -> skip line : " << QDLogBlob(at, keyLength));
    return false;
  }
  const std::string_view key(osal_chars(at), keyLength);

  at = skipSpaces(at + keyLength);
  if (*at != '=') {
    QDLOG(PRFS, ERR,
          "Tunables - cannot find '=' ('0x" << QDStreamLogger::Hex << static_cast<unsigned int>(*at)
                                            << QDStreamLogger::Dec << "') for key = " << Quoted{key}
                                            << " -> skip line");
    return false;
  }
  at = skipSpaces(at + 1);
  const auto valueLength =
      static_cast<unsigned int>(std::min<std::ptrdiff_t>(end - at, kMaxValue + 1));
  if (valueLength > kMaxValue) {
    QDLOG(PRFS, ERR,
          "Tunables - read value too long -> skip line : " << QDLogBlob(at, valueLength));
    return false;
  }
  QDLOG(PRFS, DBG,
        "Tunables - value found for key = " << Quoted{key} << " -> "
                                            << Quoted{{osal_chars(at), valueLength}});
  std::optional<std::string>* const wanted = keys.find(key);
  if (wanted == nullptr || *wanted) return true;
  *wanted = copyValue(at, valueLength);
  return wanted->has_value();
}

QDTunableKeys keysOf(std::initializer_list<QDTunables::Table> tables) {
  std::size_t count = 0;
  for (const QDTunables::Table& table : tables) count += table.size();
  QDTunableKeys keys(count);
  for (const QDTunables::Table& table : tables) {
    for (const QDTunablesS& record : table) keys.add(record.name);
  }
  return keys;
}

/// Returns false after logging a fault of a line.
bool readValues(const unsigned char* text, QDTunableKeys& keys) {
  bool good = true;
  for (const unsigned char* line = text; *line != '\0';) {
    const unsigned char* const end = endOfLine(line);
    good = readLine(line, end, keys) && good;
    line = skipLineEnds(end);
  }
  return good;
}

bool logs(QDLevel level) {
  QDLog* const logger = QDLog::getLogger();
  return logger != nullptr && logger->wants(QDLOG_PRFS, static_cast<int>(level));
}

// --- Applying a value ----------------------------------------------------------------------------

/// The number that `value` starts with, 0 when it starts with none.
std::uint64_t readNumber(const QDTunablesS& record, const std::string& value) {
  constexpr std::uint64_t kRoomForADigit = std::uint64_t{1} << 60;
  std::uint64_t number = 0;
  for (const char c : value) {
    if (!isDigit(c)) break;
    if (number >= kRoomForADigit) {
      QDLOG(PRFS, ERR,
            About{record} << "Value too big for u64 (" << Quoted{value} << ") ; truncate to "
                          << number);
      break;
    }
    number = number * 10 + static_cast<std::uint64_t>(c - '0');
  }
  return number;
}

std::uint64_t clamped(const QDTunablesS& record, std::uint64_t number) {
  if (number > record.max) {
    QDLOG(PRFS, WRN,
          About{record} << "Value too big for max = " << record.max << " (" << number
                        << ") ; set to max value");
    return record.max;
  }
  if (number < record.min) {
    QDLOG(PRFS, WRN,
          About{record} << "Value too low for min = " << record.min << " (" << number
                        << ") ; set to min value");
    return record.min;
  }
  return number;
}

void applyU32(const QDTunablesS& record, const std::string& value) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t number = clamped(record, readNumber(record, value));
  if (number > kLargest) {
    QDLOG(PRFS, ERR, About{record} << "Value too big for u32 (" << number << ") ; set to max u32");
    number = kLargest;
  }
  *static_cast<std::uint32_t*>(record.value) = static_cast<std::uint32_t>(number);
  QDLOG(PRFS, INF, About{record} << "Value (U32) updated to : " << number);
}

void applyU64(const QDTunablesS& record, const std::string& value) {
  const std::uint64_t number = clamped(record, readNumber(record, value));
  *static_cast<std::uint64_t*>(record.value) = number;
  QDLOG(PRFS, INF, About{record} << "Value (U64) updated to : " << number);
}

void applyBool(const QDTunablesS& record, const std::string& value) {
  if (value != "true" && value != "false") {
    QDLOG(PRFS, ERR,
          About{record} << "Value (BOOL) cannot be updated (bad value) : " << Quoted{value});
    return;
  }
  const bool on = value == "true";
  *static_cast<bool*>(record.value) = on;
  QDLOG(PRFS, INF, About{record} << "Value (BOOL) updated to " << on);
}

void applyStr(const QDTunablesS& record, const std::string& value) {
  try {
    QDSys::strncpy(static_cast<unsigned char*>(record.value), osal_bytes(value),
                   sizeof(qdtunable::STR), true);
    QDLOG(PRFS, INF, About{record} << "Value (STR) updated to : " << Quoted{value});
  } catch (const QDException& e) {
    qdTraceException(e, "ECSP");
    QDLOG(PRFS, ERR,
          About{record} << "Error updating with string (inconsistant truncated value) : "
                        << Quoted{value});
  }
}

void apply(const QDTunablesS& record, const std::string& value) {
  switch (record.type) {
    case QD_TUNABLE_TYPE_BOOL:
      return applyBool(record, value);
    case QD_TUNABLE_TYPE_U32:
      return applyU32(record, value);
    case QD_TUNABLE_TYPE_U64:
      return applyU64(record, value);
    case QD_TUNABLE_TYPE_STR:
      return applyStr(record, value);
    case QD_TUNABLE_TYPE_UNDEF:
      break;
  }
  QDLOG(PRFS, ERR, "Tunables - unmanaged type = " << record.type);
}

}  // namespace

void QDTunables::tunablesUpdate(const unsigned char* text, const QDTunablesS* table,
                                unsigned int count) {
  tunablesUpdate(text, {Table(table, count)});
}

void QDTunables::tunablesUpdate(const unsigned char* text, std::initializer_list<Table> tables) {
  std::optional<QDTunableKeys> keys;
  bool mustRead = true;
  for (const Table& table : tables) {
    try {
      if (!keys) keys = keysOf(tables);
      // One reading finds the values for all tables. It is repeated only when it logs something,
      // since the messages belong to each table.
      if (mustRead) mustRead = logs(readValues(text, *keys) ? QDLevel::INF : QDLevel::ERR);
      for (const QDTunablesS& record : table) {
        const std::optional<std::string>& value = *keys->find(record.name);
        if (value) apply(record, *value);
      }
    } catch (...) {
      QDLOG(PRFS, ERR, "Tunables - unexpected error while updating");
    }
  }
}
