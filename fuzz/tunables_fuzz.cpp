// Any text is applied to all tunables without a crash or a read beyond its end; afterwards every
// variable is within its limits; and it makes no difference whether lines end with LF or CR LF.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "FuzzTarget.h"
#include "base/sysdef/tunables.h"
#include "ground/qdTunableTypes.h"
#include "logging/QDLog.h"
#include "sysdef/qdTunablesBase.h"

namespace {

/// Takes every record, so that all of them are built, and keeps none.
class Discard : public QDLogCb {
 public:
  void log(unsigned int, unsigned long long, const char*, const char*, const char*, int,
           const char*, const char*) override {}
};

struct Value {
  std::uint64_t number = 0;
  std::string text;
  bool operator==(const Value&) const = default;
};
using Values = std::vector<Value>;

[[noreturn]] void fail(const char* key, const char* what) {
  std::fprintf(stderr, "%s: %s\n", key, what);
  std::abort();
}

Value valueOf(const QDTunablesS& record) {
  switch (record.type) {
    case QD_TUNABLE_TYPE_BOOL: {
      unsigned char byte = 0;  // not as a bool, which would have only two values
      std::memcpy(&byte, record.value, 1);
      return {byte, {}};
    }
    case QD_TUNABLE_TYPE_U32:
      return {*static_cast<const qdtunable::U32*>(record.value), {}};
    case QD_TUNABLE_TYPE_U64:
      return {*static_cast<const qdtunable::U64*>(record.value), {}};
    case QD_TUNABLE_TYPE_STR: {
      const char* const text = static_cast<const char*>(record.value);
      if (std::memchr(text, '\0', sizeof(qdtunable::STR)) == nullptr) {
        fail(record.name, "not terminated");
      }
      return {0, text};
    }
    default:
      fail(record.name, "has no type");
  }
}

void restore(const QDTunablesS& record, const Value& value) {
  switch (record.type) {
    case QD_TUNABLE_TYPE_BOOL:
      *static_cast<qdtunable::BOOL*>(record.value) = value.number != 0;
      break;
    case QD_TUNABLE_TYPE_U32:
      *static_cast<qdtunable::U32*>(record.value) = static_cast<qdtunable::U32>(value.number);
      break;
    case QD_TUNABLE_TYPE_U64:
      *static_cast<qdtunable::U64*>(record.value) = value.number;
      break;
    default:
      std::memcpy(record.value, value.text.c_str(), value.text.size() + 1);
      break;
  }
}

/// Calls `visit` with every record and its running number.
template <typename Visit>
void forEachRecord(Visit visit) {
  std::size_t index = 0;
  for (const QDTunablesS& record : tunablesOVT) visit(record, index++);
  for (const QDTunablesS& record : tunablesBase) visit(record, index++);
}

Values allValues() {
  Values values;
  forEachRecord([&](const QDTunablesS& record, std::size_t) { values.push_back(valueOf(record)); });
  return values;
}

void checkLimits(const QDTunablesS& record, const Value& value) {
  const bool isBool = record.type == QD_TUNABLE_TYPE_BOOL;
  const bool isText = record.type == QD_TUNABLE_TYPE_STR;
  const std::uint64_t max = isBool ? 1 : record.max;
  if (!isText && (value.number < record.min || value.number > max)) {
    fail(record.name, "outside its limits");
  }
}

/// The text's bytes and a NUL, in a block that ends with it.
std::vector<unsigned char> terminated(std::span<const std::uint8_t> text) {
  std::vector<unsigned char> block(text.size() + 1);
  if (!text.empty()) std::memcpy(block.data(), text.data(), text.size());
  return block;
}

std::vector<unsigned char> withCrLf(std::span<const std::uint8_t> text) {
  std::vector<unsigned char> result;
  for (const std::uint8_t c : text) {
    if (c == '\n') result.push_back('\r');
    result.push_back(c);
  }
  return terminated(result);
}

Values valuesAfter(const std::vector<unsigned char>& text, const Values& defaults) {
  forEachRecord(
      [&](const QDTunablesS& record, std::size_t index) { restore(record, defaults[index]); });
  tunablesUpdateStr(text.data());
  Values values = allValues();
  forEachRecord(
      [&](const QDTunablesS& record, std::size_t index) { checkLimits(record, values[index]); });
  return values;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Values defaults = [] {
    static Discard sink;
    QDLog::getLogger()->setLogCb(&sink);
    QDLog::getLogger()->setLevels("PRFS:9;EXCP:9;");
    return allValues();
  }();
  const std::span text(data, size);
  if (valuesAfter(terminated(text), defaults) != valuesAfter(withCrLf(text), defaults)) {
    fail("line ends", "LF and CR LF differ");
  }
  return 0;
}
