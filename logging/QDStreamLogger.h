#pragma once

#include <cstddef>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>

#include "ground/QDEnums.h"
#include "ground/QDMarkers.h"

/// An object that can print itself into a log record.
class QDStreamLoggerImpl : public qd_interface_base_qualifier {
 public:
  virtual void print(std::ostringstream& out) const = 0;
};

/// Carries a printable object into a log statement: `<< QDStreamLoggerAdapter(&version)`. It does
/// not own the object, which must outlive the statement.
class QDStreamLoggerAdapter {
 public:
  explicit QDStreamLoggerAdapter(const QDStreamLoggerImpl* object) : object_(object) {}
  virtual ~QDStreamLoggerAdapter() = default;
  void print(std::ostringstream& out) const { object_->print(out); }

 private:
  const QDStreamLoggerImpl* object_;
};

/// A range of bytes, to be dumped. The bytes stay the caller's.
/// Prints "UNDEF" when there is nothing to show.
class QDLogBlob : public QDStreamLoggerImpl {
 public:
  static constexpr int kDump = 0;    ///< lines of 16 bytes in hexadecimal and ASCII
  static constexpr int kString = 1;  ///< "0x" and two lower-case digits a byte

  /// Shows `count` bytes from `bytes + from` on. Another mode than the two prints nothing.
  QDLogBlob(const void* bytes, unsigned long long count, unsigned long long from = 0,
            int how = kDump)
      : data(static_cast<const unsigned char*>(bytes)), size(count), offset(from), mode(how) {}
  void print(std::ostringstream& out) const override;

  const unsigned char* data;
  unsigned long long size;    ///< bytes to show
  unsigned long long offset;  ///< of the first of them
  int mode;

 private:
  void printDump(std::ostringstream& out) const;
  void printDumpLine(std::ostringstream& out, unsigned long long first) const;
  void printString(std::ostringstream& out) const;
};

/// A string that is abbreviated when it is long: `head` characters, "..." and `tail` characters
/// when it has at least that many, else the whole string in double quotes. The string stays the
/// caller's.
class QDLogHStr : public QDStreamLoggerImpl {
 public:
  QDLogHStr(const unsigned char* text, unsigned int first, unsigned int last)
      : str(text), head(first), tail(last) {}
  void print(std::ostringstream& out) const override;

  const unsigned char* str;
  unsigned int head;  ///< characters
  unsigned int tail;
};

/// A list of strings, joined by `separator`. Array and strings stay the caller's.
template <typename T>
struct QDLogTabl {
  const T* items;
  unsigned int count;
  const char* separator;
};

/// The record that log statements stream into. One overload for each type that may be logged fixes
/// how it looks; null strings and pointers are legal.
///
/// Base, fill and letter case are state of the record and outlive a statement: a statement that
/// changes them changes them back. An insertion that fails, also for lack of memory, throws
/// nothing: the record stays failed, which the statement reports.
class QDStreamLogger : public std::ostringstream {
 public:
  enum Base : int { Oct = 0, Dec = 1, Hex = 2 };
  enum Spec : int { Endl = 0 };

  /// Numbers look the same in every locale.
  QDStreamLogger() { imbue(std::locale::classic()); }

  /// Goes back to the start of the buffer and forgets errors. Keeps the formats and the text behind
  /// the new position, which is why a record ends with a NUL.
  void clear();

  /// The record's text as a C string: what was written up to its NUL.
  [[nodiscard]] const char* text() const;

  /// Sets decimal numbers without a prefix, filled with blanks: what a complete statement leaves.
  void resetFormats();

  /// Gives the memory back that one extraordinarily long record made the buffer keep.
  void shrink();

  QDStreamLogger& operator<<(char c);
  QDStreamLogger& operator<<(unsigned char c);
  QDStreamLogger& operator<<(const char* s);
  QDStreamLogger& operator<<(char* s) { return *this << static_cast<const char*>(s); }
  QDStreamLogger& operator<<(const unsigned char* s);
  QDStreamLogger& operator<<(unsigned char* s) {
    return *this << static_cast<const unsigned char*>(s);
  }
  QDStreamLogger& operator<<(const std::string& s) { return *this << s.c_str(); }
  QDStreamLogger& operator<<(bool b);
  QDStreamLogger& operator<<(const void* p);
  QDStreamLogger& operator<<(void* p) { return *this << static_cast<const void*>(p); }
  QDStreamLogger& operator<<(short n);
  QDStreamLogger& operator<<(unsigned short n);
  QDStreamLogger& operator<<(int n);
  QDStreamLogger& operator<<(unsigned int n);
  QDStreamLogger& operator<<(long n);
  QDStreamLogger& operator<<(unsigned long n);
  QDStreamLogger& operator<<(long long n);
  QDStreamLogger& operator<<(unsigned long long n);
  QDStreamLogger& operator<<(float n);
  QDStreamLogger& operator<<(double n);
  QDStreamLogger& operator<<(long double n);
  QDStreamLogger& operator<<(Base base);
  QDStreamLogger& operator<<(Spec spec);
  QDStreamLogger& operator<<(QDFileType type);
  QDStreamLogger& operator<<(QDOpenMode mode);
  QDStreamLogger& operator<<(QDTunableType type);
  QDStreamLogger& operator<<(const QDStreamLoggerAdapter& adapter);
  QDStreamLogger& operator<<(const QDLogBlob& blob);
  QDStreamLogger& operator<<(const QDLogHStr& str);

  template <typename T>
  QDStreamLogger& operator<<(const QDLogTabl<T>& list) {
    for (unsigned int i = 0; i < list.count; ++i) {
      if (i > 0) *this << list.separator;
      *this << list.items[i];
    }
    return *this;
  }

 private:
  /// As `insert`, without what a stream prepares for each value, where its formats ask for nothing.
  QDStreamLogger& insertText(std::string_view text);
  template <typename T>
  QDStreamLogger& insertNumber(T number);

  template <typename T>
  QDStreamLogger& insert(T value) {
    static_cast<std::ostringstream&>(*this) << value;
    return *this;
  }
};
