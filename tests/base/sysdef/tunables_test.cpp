// The two tables as the program starts with them, and the texts and files that change them.

#include "base/sysdef/tunables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "Files.h"
#include "PosixFaults.h"
#include "Said.h"
#include "TempFolder.h"
#include "base/sysdef/tunablesValues.h"
#include "osal/osal_file.h"
#include "sysdef/qdTunableTypes.h"
#include "sysdef/qdTunablesBase.h"
#include "sysdef/qdTunablesBaseValues.h"
#include "tools/QDHash.h"

namespace {

/// "KEY TYPE MIN MAX VALUE"
std::string rowText(const QDTunablesS& record) {
  const auto row = [&record](const std::string& type, const std::string& value) {
    return std::string(record.name) + " " + type + " " + std::to_string(record.min) + " " +
           std::to_string(record.max) + " " + value;
  };
  switch (record.type) {
    case QD_TUNABLE_TYPE_BOOL:
      return row("BOOL", *static_cast<const qdtunable::BOOL*>(record.value) ? "true" : "false");
    case QD_TUNABLE_TYPE_U32:
      return row("U32", std::to_string(*static_cast<const qdtunable::U32*>(record.value)));
    case QD_TUNABLE_TYPE_U64:
      return row("U64", std::to_string(*static_cast<const qdtunable::U64*>(record.value)));
    case QD_TUNABLE_TYPE_STR:
      return row("STR", static_cast<const char*>(record.value));
    default:
      return row("?", "?");
  }
}

/// Every tunable of both tables, those of the agent suite first.
std::vector<std::string> allRows() {
  std::vector<std::string> rows;
  for (const QDTunablesS& record : tunablesOVT) rows.push_back(rowText(record));
  for (const QDTunablesS& record : tunablesBase) rows.push_back(rowText(record));
  return rows;
}

class TunablesTest : public ::testing::Test {
 protected:
  ~TunablesTest() override { restore(); }

  static void restore() {
    QD_AGENT_PORT = 27261;
    QD_SERVER_MODE = 0;
    QD_SERVER_MAIL_SMTPPORT = 25;
    std::strcpy(QD_PAM_SERVICE_NAME, "sshd");
    BASE_MAX_SOAP_THREAD = 1000;
    BASE_DEFAULT_THREAD_STACK = 1048576;
  }

  /// The rows that differ from what they were, joined.
  [[nodiscard]] std::string changed() const {
    std::string rows;
    const std::vector<std::string> now = allRows();
    for (std::size_t i = 0; i < now.size(); ++i) {
      if (now[i] != before_[i]) rows += now[i] + "; ";
    }
    return rows;
  }

  /// A file of `size` bytes that begins with `text` and goes on with comments.
  const unsigned char* file(std::string text, std::size_t size) {
    text += "\n//";
    text.resize(size, 'x');
    writeFile(path, text);
    return bytes(path);
  }

  const TempFolder folder;
  const std::string path = folder / "tunables";

 private:
  const std::vector<std::string> before_ = allRows();
};

TEST_F(TunablesTest, TheTablesAreWhatTheyAre) {
  constexpr std::pair<std::size_t, const char*> kRows[] = {
      {0, "QD_SERVER_MODE U32 0 99 0"},
      {2, "QD_CONSOLELOG BOOL 0 0 false"},
      {9, "QD_HTTPS_PORT U32 1 65535 9443"},
      {45, "QD_SERVER_WEBREST_PWMAXAGE_MINS U64 0 1000000 60"},
      {59, "QD_SERVER_MAIL_SMTPPORT U32 0 65538 25"},
      {70, "QD_SERVER_MIN_FREE_SPACE U64 0 1099511627776 10737418240"},
      {79, "QD_PAM_SERVICE_NAME STR 0 0 sshd"},
      {97, "QD_SERVER_EMBSRV_PORT U32 1 65536 8282"},
      {245, "QD_SERVER_VORA_TIME_IS_MTIME BOOL 0 0 false"},
      {266, "QD_AGENT_PORT U32 1 65535 27261"},
      {298, "QD_ACTIVITY_SIMULATOR_MAXSTARTSIZE U64 0 34359738368 34359738368"},
      {311, "QD_AGENT_MAX_RAM_LIMIT_BEFORE_RESTART_MB U32 256 262144 1024"},
      {312 + 2, "BASE_DEFAULT_THREAD_STACK U32 1048576 1073741824 1048576"},
      {312 + 64, "INTELLIGENTREADCACHE_TOP_N U32 100 10000 100"},
  };
  const std::vector<std::string> rows = allRows();
  ASSERT_EQ(std::size(tunablesOVT), 312U);
  ASSERT_EQ(rows.size(), 312U + 65U);
  for (const auto& [place, row] : kRows) EXPECT_EQ(rows[place], row);
  std::set<std::string> keys;
  std::string all;
  for (const std::string& row : rows) {
    const std::string key = row.substr(0, row.find(' '));
    EXPECT_TRUE(keys.insert(key).second) << key;
    EXPECT_LE(key.size(), 64U) << key;
    EXPECT_EQ(key.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"), std::string::npos);
    all += row + "\n";
  }
  unsigned char digest[33] = {};
  QDHashMD5::hexHashForStr(bytes(all), digest);
  EXPECT_STREQ(reinterpret_cast<char*>(digest), "1EFD5AECDDC9B746248A9280351CD744") << all;
}

TEST_F(TunablesTest, TextsReachBothTablesTheAgentsFirst) {
  Said said("PRFS:4;");
  const auto* const text = bytes(
      "BASE_DEFAULT_THREAD_STACK=65536\nQD_PAM_SERVICE_NAME=login\nQD_SERVER_MAIL_SMTPPORT=65537");
  tunablesUpdateStr(text);
  const std::string base =
      R"(WRN Tunables - "BASE_DEFAULT_THREAD_STACK" -> Value too low for min = 1048576 (65536) ; )"
      R"(set to min value | )"
      R"(INF Tunables - "BASE_DEFAULT_THREAD_STACK" -> Value (U32) updated to : 1048576)";
  EXPECT_EQ(said(),
            R"(INF Tunables - "QD_SERVER_MAIL_SMTPPORT" -> Value (U32) updated to : 65537 | )"
            R"(INF Tunables - "QD_PAM_SERVICE_NAME" -> Value (STR) updated to : "login" | )" +
                base);
  EXPECT_EQ(changed(),
            "QD_SERVER_MAIL_SMTPPORT U32 0 65538 65537; QD_PAM_SERVICE_NAME STR 0 0 login; ");
  QDTunablesBase::tunablesUpdate(text);
  EXPECT_EQ(said(), base);
}

TEST_F(TunablesTest, FilesReachBothTables) {
  Said said("PRFS:5;OSAL:2;EXCP:5;");
  said.rename(folder.path().string(), "~");
  const auto* const whole = file("QD_AGENT_PORT=1234\nBASE_MAX_SOAP_THREAD=7", 100);
  const std::string soap = "BASE_MAX_SOAP_THREAD U32 1 4096 7; ";
  tunablesUpdate(whole);
  EXPECT_EQ(changed(), "QD_AGENT_PORT U32 1 65535 1234; " + soap);
  EXPECT_TRUE(said().starts_with("INF Tunables - update | DBG Tunables - read : 100 B | "));
  restore();
  EXPECT_TRUE(QDTunablesBase::tunablesUpdateFromFile(whole));
  EXPECT_EQ(changed(), soap);
  restore();

  OSAL_File holder;
  ASSERT_EQ(holder.open(whole, QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), 0);
  const std::string locked =
      "OSAL:ERR Non-blocking, but would block for file \"~/tunables\" | "
      "EXCP:ERR NET: Cannot open file \"~/tunables\" | EXCP:ERR ECT - @ | EXCP:ERR EC";
  said.clear();
  tunablesUpdate(whole);
  EXPECT_EQ(said(),
            "INF Tunables - update | " + locked +
                "SP - @ | ERR Tunables - cannot open or read file at path : \"~/tunables\"");
  EXPECT_FALSE(QDTunablesBase::tunablesUpdateFromFile(whole));
  EXPECT_EQ(said(), locked + " ignored - @");
  const std::string none =
      "INF Tunables - update | INF Tunables - No tunables config file found at path : ";
  tunablesUpdate(bytes(folder / "missing"));
  EXPECT_EQ(said(), none + "\"~/missing\"");
  tunablesUpdate(bytes(""));
  EXPECT_EQ(said(), none + "\"(root)\"");
  EXPECT_FALSE(QDTunablesBase::tunablesUpdateFromFile(bytes(folder / "missing")));
#if defined(__linux__)
  const PosixFault wantOfMemory("operator new[]", 1);
  tunablesUpdate(whole);
  EXPECT_EQ(said(),
            "INF Tunables - update | ERR Tunables - unexpected error while updating | "
            "EXCP:EL2 ECEP");
#endif
  EXPECT_EQ(changed(), "");
}

TEST_F(TunablesTest, AFileIsCutBehindFourMebibytes) {
  constexpr std::size_t kLimit = 4194304;
  const std::string last = "\nQD_SERVER_MODE=42";
  const std::string tooBig = "ERR Tunables - file too big (>4194304) -> will be truncated";
  const struct {
    std::size_t size;
    unsigned int mode;
    std::string said;
  } kCases[] = {
      {kLimit - 1, 42, ""}, {kLimit, 42, ""}, {kLimit + 1, 4, tooBig}, {2 * kLimit, 0, tooBig}};
  for (const auto& c : kCases) {
    restore();
    writeFile(path, std::string(c.size - last.size(), '/') + last);
    Said said("PRFS:2;");
    tunablesUpdate(bytes(path));
    EXPECT_EQ(QD_SERVER_MODE, c.mode) << c.size;
    EXPECT_EQ(said(), c.said);
  }
}

TEST_F(TunablesTest, AFileOfTheBaseLibraryHasOneTo4095Bytes) {
  constexpr std::pair<std::size_t, bool> kCases[] = {
      {0, false}, {4095, true}, {4096, false}, {5000, false}};
  for (const auto& [size, applied] : kCases) {
    restore();
    const auto* const written = file("BASE_MAX_SOAP_THREAD=7", size);
    EXPECT_EQ(QDTunablesBase::tunablesUpdateFromFile(written), applied);
    EXPECT_EQ(BASE_MAX_SOAP_THREAD, applied ? 7U : 1000U) << size;
  }
}

}  // namespace
