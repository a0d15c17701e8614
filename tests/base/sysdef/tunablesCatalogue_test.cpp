#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "TunablesGuard.h"
#include "base/sysdef/tunables.h"
#include "base/sysdef/tunablesValues.h"
#include "sysdef/qdTunablesBase.h"
#include "sysdef/qdTunablesBaseValues.h"
#include "tools/QDHash.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

// The tables as the program starts with them, and what is fixed about them as a whole. Long lists
// are compared by their digest.

std::string md5(const std::string& text) {
  unsigned char hex[33] = {};
  QDHashMD5::hexHashForStr(reinterpret_cast<const unsigned char*>(text.c_str()), hex);
  return reinterpret_cast<const char*>(hex);
}

const char* typeName(QDTunableType type) {
  constexpr const char* kNames[] = {"UNDEF", "BOOL", "U32", "U64", "STR"};
  return kNames[type];
}

std::string valueText(const QDTunablesS& record) {
  switch (record.type) {
    case QD_TUNABLE_TYPE_BOOL:
      return *static_cast<const qdtunable::BOOL*>(record.value) ? "true" : "false";
    case QD_TUNABLE_TYPE_U32:
      return std::to_string(*static_cast<const qdtunable::U32*>(record.value));
    case QD_TUNABLE_TYPE_U64:
      return std::to_string(*static_cast<const qdtunable::U64*>(record.value));
    case QD_TUNABLE_TYPE_STR:
      return static_cast<const char*>(record.value);
    default:
      return "?";
  }
}

/// "KEY TYPE MIN MAX VALUE"
std::string rowText(const QDTunablesS& record) {
  return std::string(record.name) + " " + typeName(record.type) + " " + std::to_string(record.min) +
         " " + std::to_string(record.max) + " " + valueText(record);
}

TEST(TunablesCatalogue, TheBaseTableIsWhatItIs) {
  std::string rows;
  for (const QDTunablesS& record : tunablesBase) rows += rowText(record) + "\n";
  EXPECT_EQ(std::size(tunablesBase), 65U);
  EXPECT_EQ(rowText(tunablesBase[2]), "BASE_DEFAULT_THREAD_STACK U32 1048576 1073741824 1048576");
  EXPECT_EQ(rowText(tunablesBase[64]), "INTELLIGENTREADCACHE_TOP_N U32 100 10000 100");
  EXPECT_EQ(md5(rows), "76271F8910BA94C30B1423A3856523F7") << rows;
}

TEST(TunablesCatalogue, TheAgentTableHasItsKeysInTheOrderOfEachType) {
  std::map<std::string, int> count;
  std::map<std::string, std::string> keys;
  for (const QDTunablesS& record : tunablesOVT) {
    ++count[typeName(record.type)];
    keys[typeName(record.type)] += std::string(record.name) + "\n";
  }
  EXPECT_EQ(std::size(tunablesOVT), 312U);
  EXPECT_THAT(count,
              ElementsAre(Pair("BOOL", 122), Pair("STR", 21), Pair("U32", 154), Pair("U64", 15)));
  EXPECT_EQ(md5(keys["BOOL"]), "58868CF31D6E55E6D0DB36A78E6C358C") << keys["BOOL"];
  EXPECT_EQ(md5(keys["U32"]), "1B64E8B0D348D6E056E77A8F21781813") << keys["U32"];
  EXPECT_EQ(md5(keys["U64"]), "FB33B860F5E2DFDDB0758866395C65F2") << keys["U64"];
  EXPECT_EQ(md5(keys["STR"]), "5F50802E5AA4EA28E54AF13502AB77A2") << keys["STR"];
}

TEST(TunablesCatalogue, KnownRowsOfTheAgentTableAreInTheirPlace) {
  const std::set<std::string> known = {
      "0 QD_SERVER_MODE U32 0 99 0",
      "2 QD_CONSOLELOG BOOL 0 0 false",
      "9 QD_HTTPS_PORT U32 1 65535 9443",
      "10 QD_HTTP_PORT U32 1 65535 9080",
      "11 QD_TARGET_HTTP_PORT U32 1 65535 8181",
      "12 QD_PLAIN_HTTP_PORT U32 1 65535 8181",
      "13 QD_NETCLIENT_SENDTIMEOUT U32 1 3600 60",
      "14 QD_NETCLIENT_RECVTIMEOUT U32 1 3600 60",
      "15 QD_NETCLIENT_CONNTIMEOUT U32 1 3600 10",
      "21 QD_NETCLIENT_RETRYTIMEOUT U32 1 86400 600",
      "22 QD_NETCLIENT_MAXREQTIME U32 1 691200 28800",
      "24 QD_NETCLIENT_RETRYPAUSE U32 0 30 5",
      "25 QD_CURL_IPRESOLVE U32 0 2 1",
      "45 QD_SERVER_WEBREST_PWMAXAGE_MINS U64 0 1000000 60",
      "59 QD_SERVER_MAIL_SMTPPORT U32 0 65538 25",
      "60 QD_SERVER_MAIL_SECURITY U32 0 2 0",
      "70 QD_SERVER_MIN_FREE_SPACE U64 0 1099511627776 10737418240",
      "77 QD_LOGS_FILESIZE_MB U32 0 1048576 50",
      "78 QD_TMP_LOGS_FILESIZE_MB U32 0 1048576 1",
      "79 QD_PAM_SERVICE_NAME STR 0 0 sshd",
      "83 QD_AGENT_NAS BOOL 0 0 false",
      "89 QD_AGENT_PAUSE_TIMEOUT U64 1 604800 14400",
      "97 QD_SERVER_EMBSRV_PORT U32 1 65536 8282",
      "150 QD_SERVER_STACK_SIZE U32 1048576 268435456 10485760",
      "151 QD_AGENT_STACK_SIZE U32 1048576 268435456 10485760",
      "208 QD_AGENT_DEBUG_OVWRBP_BP U32 0 255 0",
      "228 QD_SERVER_BLOCKBUF_MAXSIZ U64 1 2097152 32768",
      "245 QD_SERVER_VORA_TIME_IS_MTIME BOOL 0 0 false",
      "266 QD_AGENT_PORT U32 1 65535 27261",
      "267 QD_AGENT_PORT_API U32 1 65535 23235",
      "268 QD_AGENT_PORT_API_HTTP U32 1 65535 23234",
      "298 QD_ACTIVITY_SIMULATOR_MAXSTARTSIZE U64 0 34359738368 34359738368",
      "311 QD_AGENT_MAX_RAM_LIMIT_BEFORE_RESTART_MB U32 256 262144 1024",
  };
  std::set<std::string> missing = known;
  for (std::size_t i = 0; i < std::size(tunablesOVT); ++i) {
    missing.erase(std::to_string(i) + " " + rowText(tunablesOVT[i]));
  }
  EXPECT_THAT(missing, IsEmpty());
}

TEST(TunablesCatalogue, TheseBoolsOfTheAgentTableAreTrueAndNoOthers) {
  const std::set<std::string> expected = {
      "QD_ADECHECKBEFOREPUT",
      "QD_SERVER_INITCHECK_ISFATAL",
      "QD_CATCH_UNHANDLED",
      "QD_NETWORK_ASYNC_CLIENT",
      "QD_AGENT_FILTERS_TEST_EXTS_ON_PARENTS",
      "FAM_ALT_MASK_EXTDATA",
      "QD_SNAPSHOT_MODE",
      "QD_AGENT_FILTERS_SERVER_COMPONENTS_MATCH_ENDING_WILDCARD",
      "QD_AGENT_FILTERS_SERVER_NAMES_MATCH_ENDING_WILDCARD",
      "QD_AGENT_FILTERS_CLIENT_NAMES_MATCH_ENDING_WILDCARD",
      "QD_AGENT_FILTERS_CLIENT_EXTS_MATCH_ENDING_WILDCARD",
      "QD_AGENT_FILTERS_SERVER_EXTS_MATCH_ENDING_WILDCARD",
      "QD_AGENT_FILTERS_WILDCARDS_ON_SERVER_FILTERS",
      "QD_AGENT_TOOLS_STDOUT_DISPLAY",
      "QD_AGENT_RESTORE_CHECK_PERM",
      "QD_AGENT_RESTORE_REPORT_INMEM",
      "QD_AGENT_AGGRMODE_MACFSEVTS",
      "QD_AGENT_USEFASTSTAT",
      "QD_AGENT_LINUX_INOTIFY_ACTIVATED",
      "QD_AGENT_PTCL_HEXENCODING",
      "QD_AGENT_USE_BLKID",
      "QD_AGENT_DIRECTIO_NOCACHEIMPACT",
      "QD_AGENT_ENABLE_BROTLI",
      "QD_SERVER_RLDB_WITH_BLOCKS",
      "QD_SERVER_RELOAD_CONFIG",
      "QD_SERVER_REPLICATE_ENCRYPTED",
      "QD_SERVER_ALLOW_MISSING_DATA_MODE",
      "QD_REPLICATION_MISSING_BLOCK_STOP",
      "QD_SERVER_ADE_RESYNC",
      "QD_SERVER_MANAGECATEGAUTH",
      "QD_SERVER_ASYNCFILL",
      "QD_ACTIVITY_SIMULATOR_NORENAMEDIR",
      "QD_ACTIVITY_SIMULATOR_NOACCESS",
      "QD_ACTIVITY_SIMULATOR_NOCHTIME",
      "QD_API_WAN_MODE",
      "QD_AGENT_CHECK_RAM_USAGE",
  };
  std::set<std::string> on;
  for (const QDTunablesS& record : tunablesOVT) {
    if (record.type == QD_TUNABLE_TYPE_BOOL && valueText(record) == "true") on.insert(record.name);
  }
  EXPECT_EQ(on, expected);
}

TEST(TunablesCatalogue, AgentStringsStartEmptyButOne) {
  std::string filled;
  for (const QDTunablesS& record : tunablesOVT) {
    if (record.type == QD_TUNABLE_TYPE_STR && !valueText(record).empty()) filled += record.name;
  }
  EXPECT_EQ(filled, "QD_PAM_SERVICE_NAME");
}

TEST(TunablesCatalogue, NoKeyIsThereTwiceOrMalformed) {
  std::set<std::string> seen;
  for (const QDTunablesS& record : allTunables()) {
    const std::string key = record.name;
    EXPECT_TRUE(seen.insert(key).second) << key;
    EXPECT_LE(key.size(), 64U) << key;
    EXPECT_EQ(key.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"), std::string::npos)
        << key;
  }
}

TEST(TunablesCatalogue, DefaultsLieWithinTheirLimits) {
  for (const QDTunablesS& record : allTunables()) {
    SCOPED_TRACE(record.name);
    if (record.type == QD_TUNABLE_TYPE_U32 || record.type == QD_TUNABLE_TYPE_U64) {
      const std::uint64_t value = std::stoull(valueText(record));
      EXPECT_LE(record.min, value);
      EXPECT_LE(value, record.max);
      EXPECT_LE(record.max, record.type == QD_TUNABLE_TYPE_U32 ? UINT32_MAX : UINT64_MAX);
    } else {
      EXPECT_EQ(record.min, 0U);
      EXPECT_EQ(record.max, 0U);
    }
  }
}

/// The type of a tunable, told from its variable.
template <typename Variable>
constexpr QDTunableType kTypeOf = QD_TUNABLE_TYPE_UNDEF;
template <>
constexpr QDTunableType kTypeOf<bool> = QD_TUNABLE_TYPE_BOOL;
template <>
constexpr QDTunableType kTypeOf<std::uint32_t> = QD_TUNABLE_TYPE_U32;
template <>
constexpr QDTunableType kTypeOf<std::uint64_t> = QD_TUNABLE_TYPE_U64;
template <>
constexpr QDTunableType kTypeOf<char[8193]> = QD_TUNABLE_TYPE_STR;

TEST(TunablesCatalogue, ARecordPointsAtTheVariableOfItsNameAndType) {
  const struct {
    const char* name;
    const void* variable;
    QDTunableType type;
  } kVariables[] = {
#define QD_TUNABLE(type, key, min, max, initial) {#key, &key, kTypeOf<decltype(key)>},
#include "base/sysdef/tunablesOVT.def"
#define QD_TUNABLE(type, key, min, max, initial) {#key, &key, kTypeOf<decltype(key)>},
#include "sysdef/qdTunablesBase.def"
  };
  const auto records = allTunables();
  ASSERT_EQ(std::size(kVariables), records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    SCOPED_TRACE(records[i].name);
    EXPECT_STREQ(records[i].name, kVariables[i].name);
    EXPECT_EQ(records[i].value, kVariables[i].variable);
    EXPECT_EQ(records[i].type, kVariables[i].type);
  }
}

}  // namespace
