#include "logging/QDStreamLogger.h"

#include <gtest/gtest.h>

#include <ios>
#include <new>
#include <streambuf>
#include <string>

#include "LogCapture.h"
#include "logging/QDLogPath.h"

namespace {

template <typename... Parts>
std::string record(const Parts&... parts) {
  QDStreamLogger out;
  out.clear();
  (out << ... << parts) << '\0';
  return out.text();
}

TEST(QDStreamLogger, PrintsEachKindOfValue) {
  const unsigned char* const text = bytes("text");
  char buffer[] = "buffer";
  const void* const address = reinterpret_cast<const void*>(0xBEEF);
  const struct {
    std::string got;
    const char* expected;
  } kCases[] = {
      {record('a', static_cast<unsigned char>('b')), "ab"},
      {record(static_cast<const char*>(nullptr)), "(null)"},
      {record(static_cast<const unsigned char*>(nullptr)), "(null)"},
      {record(""), ""},
      {record(text, buffer, std::string("string")), "textbufferstring"},
      {record(true, false), "truefalse"},
      {record(static_cast<void*>(nullptr)), "@0"},
      {record(address, ' ', 255), "@0xbeef 255"},
      {record(static_cast<short>(-1), 65535U, -2L, 3ULL), "-165535-23"},
      {record(18446744073709551615ULL), "18446744073709551615"},
      {record(QDStreamLogger::Hex, 255, QDStreamLogger::Oct, 8, QDStreamLogger::Dec, 9), "ff109"},
      {record(static_cast<QDStreamLogger::Base>(7), 10), " < unknown base 7 > 10"},
      {record(QDStreamLogger::Endl, static_cast<QDStreamLogger::Spec>(3)),
       "\n < unknown spec 3 > "},
      {record(QDLogPath("/a b")), "\"/a b\""},
      {record(QDLogPath("")), "\"(root)\""},
      {record(QDLogPath(static_cast<const char*>(nullptr))), "\"(null)\""},
  };
  for (const auto& [got, expected] : kCases) EXPECT_EQ(got, expected);
}

TEST(QDStreamLogger, PrintsEnumerationsByName) {
  const struct {
    std::string got;
    const char* expected;
  } kCases[] = {
      {record(QD_FILETYPE_REG), "QD_FILETYPE_REG"},
      {record(QD_FILETYPE_DOOR), "QD_FILETYPE_DOOR"},
      {record(QD_FILETYPE_UNKNOWN), "QD_FILETYPE_UNKNOWN"},
      {record(QD_FILETYPE_MNTPOINT), "QD_FILETYPE_MNTPOINT"},
      {record(static_cast<QDFileType>(51)), "QD_FILETYPE_UNKNOWN_51"},
      {record(static_cast<QDFileType>(403)), "QD_FILETYPE_UNKNOWN_403"},
      {record(QDStreamLogger::Hex, static_cast<QDFileType>(403)), "QD_FILETYPE_UNKNOWN_193"},
      {record(QD_OPENMODE_RDONLY), "QD_OPENMODE_RDONLY"},
      {record(static_cast<QDOpenMode>(-1)), "QD_OPENMODE_UNKNOWN_-1"},
      {record(QD_TUNABLE_TYPE_UNDEF), "QD_TUNABLE_TYPE_UNDEF"},
      {record(static_cast<QDTunableType>(5)), "QD_TUNABLE_TYPE_UNKNOWN_5"},
  };
  for (const auto& [got, expected] : kCases) EXPECT_EQ(got, expected);
}

TEST(QDLogBlob, DumpsInLinesOfSixteen) {
  const std::string data = "0123456789abcdef\x01\x7f~ ";
  const struct {
    std::string got;
    std::string expected;
  } kCases[] = {
      {record(QDLogBlob(data.data(), 0)), "UNDEF"},
      {record(QDLogBlob(nullptr, 5)), "UNDEF"},
      {record(QDLogBlob(data.data(), 2)), "0000   30 31 " + std::string(14 * 3 + 3, ' ') + "01"},
      {record(QDLogBlob(data.data(), 16)),
       "0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66    0123456789abcdef"},
      {record(QDLogBlob(data.data(), 4, 16)),
       "0000   01 7F 7E 20 " + std::string(12 * 3 + 3, ' ') + "..~ "},
      {record(QDLogBlob(data.data(), 20)),
       "\n0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66    0123456789abcdef"
       "\n0010   01 7F 7E 20 " +
           std::string(12 * 3 + 3, ' ') + "..~ "},
      {record(QDLogBlob("\x0A\xFF", 2, 0, QDLogBlob::kString)), "0x0aff"},
      {record(QDLogBlob("\x0A\xFF", 2, 0, 2)), ""},
      {record(QDStreamLogger::Hex, QDLogBlob("\x0A\xFF", 1, 1), 255),
       "0000   FF " + std::string(15 * 3 + 3, ' ') + ".255"},
  };
  for (const auto& [got, expected] : kCases) {
    EXPECT_EQ(got, expected);
  }
}

TEST(QDLogHStr, AbbreviatesLongStrings) {
  const struct {
    const char* text;
    unsigned int head, tail;
    const char* expected;
  } kCases[] = {
      {"abcdefghij", 4, 4, "abcd...ghij"},
      {"abcdefgh", 4, 4, "abcd...efgh"},
      {"abc", 4, 4, "\"abc\""},
      {"abc", 0, 0, "..."},
      {"", 0, 0, "..."},
      {nullptr, 4, 4, "\"<null>\""},
      {"abc", 0xFFFFFFFF, 1, "\"abc\""},
  };
  for (const auto& [text, head, tail, expected] : kCases) {
    EXPECT_EQ(record(QDLogHStr(bytes(text), head, tail)), expected);
  }
}

TEST(QDLogTabl, JoinsTheItems) {
  const unsigned char* const items[] = {bytes("a"), nullptr, bytes("c")};
  EXPECT_EQ(record(QDLogTabl<const unsigned char*>{items, 3, ", "}), "a, (null), c");
  EXPECT_EQ(record(QDLogTabl<const unsigned char*>{items, 0, ", "}), "");
}

class Broken : public QDStreamLoggerImpl {
 public:
  void print(std::ostringstream& out) const override { out.setstate(std::ios::badbit); }
};

TEST(QDStreamLogger, FailsWithoutThrowingAndIsUsableAfterClear) {
  QDStreamLogger out;
  const Broken broken;
  out << QDStreamLoggerAdapter(&broken) << "more";
  EXPECT_TRUE(out.fail());
  out.clear();
  out << "next" << '\0';
  EXPECT_STREQ(out.text(), "next");
}

/// A buffer that memory has no room for.
class NoRoom : public std::streambuf {
  int_type overflow(int_type) override { throw std::bad_alloc(); }
};

TEST(QDStreamLogger, WantOfMemoryIsAFailureOfTheStream) {
  QDStreamLogger out;
  NoRoom noRoom;
  out.std::ios::rdbuf(&noRoom);
  for (const char* const text : {"text", "@"}) {
    out.std::ios::clear();
    out << text << 5 << static_cast<const void*>(text) << QDLogBlob(text, 1) << QD_FILETYPE_REG;
    EXPECT_TRUE(out.fail());
  }
}

TEST(QDStreamLogger, KeepsTheBaseAcrossRecordsAndTheTextBehindThePosition) {
  QDStreamLogger out;
  out << "a long first record" << QDStreamLogger::Hex << '\0';
  out.clear();
  out << 255 << '\0';
  EXPECT_STREQ(out.text(), "ff");
}

TEST(QDStreamLogger, GivesTheMemoryOfAHugeRecordBack) {
  QDStreamLogger out;
  out << std::string(1 << 20, 'x') << '\0';
  out.shrink();
  EXPECT_LT(out.view().size(), 65536U);
  out.clear();
  out << "small" << '\0';
  EXPECT_STREQ(out.text(), "small");
}

}  // namespace
