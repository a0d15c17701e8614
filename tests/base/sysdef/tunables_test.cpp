// The two tables as the program starts with them, and the texts and files that change them.

#include "base/sysdef/tunables.h"

#include <gtest/gtest.h>

#include <cstring>

#include "FolderTest.h"
#include "base/ground/tunablesValues.h"
#include "ground/qdTunableTypes.h"
#include "ground/qdTunablesBaseValues.h"
#include "osal/osal_file.h"
#include "sysdef/qdTunablesBase.h"
#include "tools/QDHash.h"

namespace {

/// "KEY TYPE MIN MAX VALUE"
std::string rowText(const QDTunablesS& record) {
  const auto row = [&record](const char* type, const std::string& value) {
    return text(record.name, ' ', type, ' ', record.min, ' ', record.max, ' ', value);
  };
  switch (record.type) {
    case QD_TUNABLE_TYPE_BOOL:
      return row("BOOL", *static_cast<const qdtunable::BOOL*>(record.value) ? "true" : "false");
    case QD_TUNABLE_TYPE_U32:
      return row("U32", text(*static_cast<const qdtunable::U32*>(record.value)));
    case QD_TUNABLE_TYPE_U64:
      return row("U64", text(*static_cast<const qdtunable::U64*>(record.value)));
    default:
      return row("STR", static_cast<const char*>(record.value));
  }
}

class TunablesTest : public FolderTest {
 protected:
  ~TunablesTest() override { restore(); }

  static void restore() {
    QD_AGENT_PORT = 27261;
    QD_SERVER_MODE = 0;
    QD_SERVER_MAIL_SMTPPORT = 25;
    std::strcpy(QD_PAM_SERVICE_NAME, "sshd");
    BASE_MAX_SOAP_THREAD = 1000;
  }

  /// A file of `size` bytes that begins with `text` and goes on with comments.
  const unsigned char* file(std::string text, std::size_t size) {
    text += "\n//";
    text.resize(size, 'x');
    writeFile(path, text);
    return bytes(path);
  }
};

TEST_F(TunablesTest, TheTablesAreWhatTheyAre) {
  std::vector<std::string> rows;
  for (const QDTunablesS& record : tunablesOVT) rows.push_back(rowText(record));
  for (const QDTunablesS& record : tunablesBase) rows.push_back(rowText(record));
  ASSERT_EQ(rows.size(), 312U + 65U);
  EXPECT_EQ(rows[59], "QD_SERVER_MAIL_SMTPPORT U32 0 65538 25");
  EXPECT_EQ(rows[312 + 64], "INTELLIGENTREADCACHE_TOP_N U32 100 10000 100");
  std::string all;
  for (const std::string& row : rows) all += row + "\n";
  unsigned char digest[33] = {};
  QDHashMD5::hexHashForStr(bytes(all), digest);
  EXPECT_STREQ(reinterpret_cast<char*>(digest), "1EFD5AECDDC9B746248A9280351CD744") << all;
}

TEST_F(TunablesTest, TextsReachBothTablesTheAgentsFirst) {
  Said said("PRFS:4;");
  const auto* const text =
      bytes("BASE_MAX_SOAP_THREAD=7\nQD_PAM_SERVICE_NAME=login\nQD_SERVER_MAIL_SMTPPORT=65537");
  tunablesUpdateStr(text);
  EXPECT_EQ(said(),
            R"(INF Tunables - "QD_SERVER_MAIL_SMTPPORT" -> Value (U32) updated to : 65537 | )"
            R"(INF Tunables - "QD_PAM_SERVICE_NAME" -> Value (STR) updated to : "login" | )"
            R"(INF Tunables - "BASE_MAX_SOAP_THREAD" -> Value (U32) updated to : 7)");
  EXPECT_STREQ(QD_PAM_SERVICE_NAME, "login");
  EXPECT_EQ(BASE_MAX_SOAP_THREAD, 7U);
}

TEST_F(TunablesTest, FilesReachBothTables) {
  Said said("PRFS:5;OSAL:2;EXCP:5;");
  said.rename(root(), "~");
  const auto* const whole = file("QD_AGENT_PORT=1234\nBASE_MAX_SOAP_THREAD=7", 100);
  tunablesUpdate(whole);
  EXPECT_EQ(QD_AGENT_PORT, 1234U);
  EXPECT_EQ(BASE_MAX_SOAP_THREAD, 7U);
  EXPECT_TRUE(said().starts_with("INF Tunables - update | DBG Tunables - read : 100 B | "));
  restore();
  EXPECT_TRUE(QDTunablesBase::tunablesUpdateFromFile(whole));
  EXPECT_EQ(QD_AGENT_PORT, 27261U);
  restore();
  OSAL_File holder;
  ASSERT_EQ(holder.open(whole, QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), 0);
  tunablesUpdate(whole);
  EXPECT_TRUE(said().ends_with(" | ERR Tunables - cannot open or read file at path : \"~/file\""));
  EXPECT_FALSE(QDTunablesBase::tunablesUpdateFromFile(whole));
  EXPECT_TRUE(said().ends_with(" | EXCP:ERR EC ignored - @"));
  tunablesUpdate(bytes(missing));
  EXPECT_EQ(said(),
            "INF Tunables - update | INF Tunables - No tunables config file found at path : "
            "\"~/missing\"");
  EXPECT_FALSE(QDTunablesBase::tunablesUpdateFromFile(bytes(missing)));
  EXPECT_EQ(QD_AGENT_PORT, 27261U);
}

TEST_F(TunablesTest, AFileIsCutBehindFourMebibytes) {
  constexpr std::size_t kLimit = 4194304;
  const std::string last = "\nQD_SERVER_MODE=42";
  const std::string tooBig = "ERR Tunables - file too big (>4194304) -> will be truncated";
  for (const std::size_t size : {kLimit, kLimit + 1}) {
    writeFile(path, std::string(size - last.size(), '/') + last);
    Said said("PRFS:2;");
    tunablesUpdate(bytes(path));
    EXPECT_EQ(QD_SERVER_MODE, size == kLimit ? 42U : 4U);
    EXPECT_EQ(said(), size == kLimit ? "" : tooBig);
  }
}

TEST_F(TunablesTest, AFileOfTheBaseLibraryHasOneTo4095Bytes) {
  constexpr std::pair<std::size_t, bool> kCases[] = {{0, false}, {4095, true}, {4096, false}};
  for (const auto& [size, applied] : kCases) {
    restore();
    const auto* const written = file("BASE_MAX_SOAP_THREAD=7", size);
    EXPECT_EQ(QDTunablesBase::tunablesUpdateFromFile(written), applied);
    EXPECT_EQ(BASE_MAX_SOAP_THREAD, applied ? 7U : 1000U) << size;
  }
}

}  // namespace
