#include "logging/QDStreamLogger.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iomanip>
#include <ios>
#include <iterator>
#include <ostream>
#include <utility>

#include "ground/osal_bytes.h"

namespace {

constexpr std::size_t kBytesPerLine = 16;

/// Puts base, fill and the other formats back as they were, also when a print throws.
class FormatGuard {
 public:
  explicit FormatGuard(std::ios& stream)
      : stream_(stream), flags_(stream.flags()), fill_(stream.fill()) {}
  FormatGuard(const FormatGuard&) = delete;
  FormatGuard& operator=(const FormatGuard&) = delete;
  ~FormatGuard() {
    stream_.flags(flags_);
    stream_.fill(fill_);
  }

 private:
  std::ios& stream_;
  std::ios::fmtflags flags_;
  char fill_;
};

/// The dumps leave decimal and a blank as fill behind them, whatever was set before.
void useDumpDefaults(std::ios& stream) {
  stream.setf(std::ios::dec, std::ios::basefield);
  stream.unsetf(std::ios::showbase | std::ios::uppercase);
  stream.fill(' ');
}

void printName(QDStreamLogger& out, const char* name, const char* prefix, int value) {
  if (name != nullptr) {
    out << name;
  } else {
    out << prefix << "_UNKNOWN_" << value;
  }
}

const char* fileTypeName(QDFileType type) {
  switch (type) {
#define QD_NAME(name) \
  case name:          \
    return #name
    QD_NAME(QD_FILETYPE_REG);
    QD_NAME(QD_FILETYPE_DIR);
    QD_NAME(QD_FILETYPE_SYMLINK);
    QD_NAME(QD_FILETYPE_NOTEXISTS);
    QD_NAME(QD_FILETYPE_EFS);
    QD_NAME(QD_FILETYPE_FIFO);
    QD_NAME(QD_FILETYPE_SOCK);
    QD_NAME(QD_FILETYPE_BSPE);
    QD_NAME(QD_FILETYPE_CSPE);
    QD_NAME(QD_FILETYPE_DOOR);
    QD_NAME(QD_FILETYPE_UNKNOWN);
    QD_NAME(QD_FILETYPE_OUTOFPROT);
    QD_NAME(QD_FILETYPE_ERROR);
    QD_NAME(QD_FILETYPE_RAWDISK);
    QD_NAME(QD_FILETYPE_RAWVOL);
    QD_NAME(QD_FILETYPE_MNTPOINT);
  }
  return nullptr;
}

const char* openModeName(QDOpenMode mode) {
  switch (mode) {
    QD_NAME(QD_OPENMODE_RWNOTEXISTING);
    QD_NAME(QD_OPENMODE_RWEXISTING);
    QD_NAME(QD_OPENMODE_RWCANCREATE);
    QD_NAME(QD_OPENMODE_RDONLY);
  }
  return nullptr;
}

const char* tunableTypeName(QDTunableType type) {
  switch (type) {
    QD_NAME(QD_TUNABLE_TYPE_UNDEF);
    QD_NAME(QD_TUNABLE_TYPE_BOOL);
    QD_NAME(QD_TUNABLE_TYPE_U32);
    QD_NAME(QD_TUNABLE_TYPE_U64);
    QD_NAME(QD_TUNABLE_TYPE_STR);
#undef QD_NAME
  }
  return nullptr;
}

}  // namespace

void QDLogBlob::print(std::ostringstream& out) const {
  if (mode != kDump && mode != kString) return;
  if (size == 0 || data == nullptr) {
    out << "UNDEF";
    return;
  }
  useDumpDefaults(out);
  const FormatGuard guard(out);
  if (mode == kDump) {
    printDump(out);
  } else {
    printString(out);
  }
}

void QDLogBlob::printDump(std::ostringstream& out) const {
  const bool severalLines = size > kBytesPerLine;
  if (severalLines) out << '\n';
  for (unsigned long long first = 0; first < size; first += kBytesPerLine) {
    if (first > 0) out << '\n' << std::flush;
    printDumpLine(out, first);
  }
}

void QDLogBlob::printDumpLine(std::ostringstream& out, unsigned long long first) const {
  const unsigned char* const bytes = data + offset + first;
  const auto count =
      static_cast<std::size_t>(std::min<unsigned long long>(kBytesPerLine, size - first));
  out << std::hex << std::uppercase << std::setfill('0') << std::setw(4) << first << "   ";
  for (std::size_t i = 0; i < kBytesPerLine; ++i) {
    if (i < count) {
      out << std::setw(2) << static_cast<unsigned int>(bytes[i]) << ' ';
    } else {
      out << "   ";
    }
  }
  out << "   ";
  for (std::size_t i = 0; i < count; ++i) {
    out << (bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.');
  }
}

void QDLogBlob::printString(std::ostringstream& out) const {
  out << "0x" << std::hex << std::setfill('0');
  for (unsigned long long i = 0; i < size; ++i) {
    out << std::setw(2) << static_cast<unsigned int>(data[offset + i]);
  }
}

void QDLogHStr::print(std::ostringstream& out) const {
  if (str == nullptr) {
    out << "\"<null>\"";
    return;
  }
  const char* const text = osal_chars(str);
  const std::size_t length = std::strlen(text);
  if (length >= static_cast<unsigned long long>(head) + tail) {
    out.write(text, head) << "...";
    out.write(text + length - tail, tail);
  } else {
    out << '"' << text << '"';
  }
}

void QDStreamLogger::clear() {
  std::ostringstream::clear();
  rdbuf()->pubseekpos(0, std::ios::out);
}

void QDStreamLogger::resetFormats() {
  useDumpDefaults(*this);
  width(0);
}

const char* QDStreamLogger::text() const { return view().data(); }

void QDStreamLogger::shrink() {
  constexpr std::size_t kKeep = std::size_t{64} * 1024;
  if (view().size() <= kKeep) return;
  const std::string freed = std::move(static_cast<std::ostringstream&>(*this)).str();
}

QDStreamLogger& QDStreamLogger::insertText(std::string_view text) {
  if (width() != 0 || !good()) return insert(text);
  bool inserted = false;
  try {
    const auto size = static_cast<std::streamsize>(text.size());
    inserted = rdbuf()->sputn(text.data(), size) == size;
  } catch (const std::exception&) {
    // no memory: a failure of the stream as any other
  }
  if (!inserted) setstate(std::ios::badbit);
  return *this;
}

template <typename T>
QDStreamLogger& QDStreamLogger::insertNumber(T number) {
  const auto format = flags() & (std::ios::basefield | std::ios::showpos);
  if (format != std::ios::dec || width() != 0) return insert(number);
  char digits[32];
  return insertText({digits, std::to_chars(digits, std::end(digits), number).ptr});
}

QDStreamLogger& QDStreamLogger::operator<<(char c) { return insertText({&c, 1}); }
QDStreamLogger& QDStreamLogger::operator<<(unsigned char c) {
  return *this << static_cast<char>(c);
}
QDStreamLogger& QDStreamLogger::operator<<(const char* s) {
  return insertText(s != nullptr ? s : "(null)");
}
QDStreamLogger& QDStreamLogger::operator<<(const unsigned char* s) {
  return *this << osal_chars(s);
}
QDStreamLogger& QDStreamLogger::operator<<(bool b) { return insertText(b ? "true" : "false"); }

QDStreamLogger& QDStreamLogger::operator<<(const void* p) {
  insert('@').insert(std::hex).insert(std::showbase).insert(std::nouppercase);
  insert(reinterpret_cast<std::uintptr_t>(p));
  return insert(std::noshowbase).insert(std::dec);
}

QDStreamLogger& QDStreamLogger::operator<<(short n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(unsigned short n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(int n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(unsigned int n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(long n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(unsigned long n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(long long n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(unsigned long long n) { return insertNumber(n); }
QDStreamLogger& QDStreamLogger::operator<<(float n) { return insert(n); }
QDStreamLogger& QDStreamLogger::operator<<(double n) { return insert(n); }
QDStreamLogger& QDStreamLogger::operator<<(long double n) { return insert(n); }

QDStreamLogger& QDStreamLogger::operator<<(Base base) {
  switch (base) {
    case Oct:
      setf(std::ios::oct, std::ios::basefield);
      return *this;
    case Dec:
      setf(std::ios::dec, std::ios::basefield);
      return *this;
    case Hex:
      setf(std::ios::hex, std::ios::basefield);
      return *this;
  }
  return *this << " < unknown base " << static_cast<int>(base) << " > ";
}

QDStreamLogger& QDStreamLogger::operator<<(Spec spec) {
  if (spec == Endl) {
    insert('\n').flush();
    return *this;
  }
  return *this << " < unknown spec " << static_cast<int>(spec) << " > ";
}

QDStreamLogger& QDStreamLogger::operator<<(QDFileType type) {
  printName(*this, fileTypeName(type), "QD_FILETYPE", type);
  return *this;
}

QDStreamLogger& QDStreamLogger::operator<<(QDOpenMode mode) {
  printName(*this, openModeName(mode), "QD_OPENMODE", mode);
  return *this;
}

QDStreamLogger& QDStreamLogger::operator<<(QDTunableType type) {
  printName(*this, tunableTypeName(type), "QD_TUNABLE_TYPE", type);
  return *this;
}

QDStreamLogger& QDStreamLogger::operator<<(const QDStreamLoggerAdapter& adapter) {
  adapter.print(*this);
  return *this;
}

QDStreamLogger& QDStreamLogger::operator<<(const QDLogBlob& blob) {
  blob.print(*this);
  return *this;
}

QDStreamLogger& QDStreamLogger::operator<<(const QDLogHStr& str) {
  str.print(*this);
  return *this;
}
