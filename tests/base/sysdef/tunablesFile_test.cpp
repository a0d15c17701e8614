#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <fstream>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "TunablesGuard.h"
#include "base/sysdef/tunablesValues.h"
#include "osal/osal_file.h"
#include "sysdef/qdTunablesBaseValues.h"

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

class TunablesFile : public ::testing::Test {
 protected:
  /// A file of `size` bytes that begins with `text` and goes on with comments.
  const unsigned char* file(std::string text, std::size_t size) {
    text += "\n//";
    text.resize(size, 'x');
    std::ofstream(path_, std::ios::binary) << text;
    return bytes(path_);
  }

  TunablesGuard guard_;
  TempFolder folder_;
  std::string path_ = folder_ / "tunables";
};

TEST_F(TunablesFile, ServesBothTables) {
  const unsigned char* const path = file("QD_AGENT_PORT=1234\nBASE_MAX_SOAP_THREAD=7", 100);
  LogCapture log("PRFS:5;");
  tunablesUpdate(path);
  EXPECT_EQ(guard_.changed(), "QD_AGENT_PORT BASE_MAX_SOAP_THREAD ");
  EXPECT_EQ(log.lines()[0], "PRFS:INF Tunables - update");
  EXPECT_EQ(log.lines()[1], "PRFS:DBG Tunables - read : 100 B");
}

TEST_F(TunablesFile, IsCutBehindFourMebibytes) {
  constexpr std::size_t kLimit = 4194304;
  const std::string last = "\nQD_SERVER_MODE=42";
  const std::string tooBig = "PRFS:ERR Tunables - file too big (>4194304) -> will be truncated";
  const struct {
    std::size_t size;
    unsigned int mode;
    std::vector<std::string> lines;
  } kCases[] = {
      {kLimit - 1, 42, {}}, {kLimit, 42, {}}, {kLimit + 1, 4, {tooBig}}, {2 * kLimit, 0, {tooBig}}};
  for (const auto& [size, mode, lines] : kCases) {
    SCOPED_TRACE(size);
    guard_.restore();
    std::ofstream(path_, std::ios::binary) << std::string(size - last.size(), '/') << last;
    LogCapture log("PRFS:2;");
    tunablesUpdate(bytes(path_));
    EXPECT_EQ(QD_SERVER_MODE, mode);
    EXPECT_EQ(log.lines(), lines);
  }
}

TEST_F(TunablesFile, MissingOrUnreadableChangesNothing) {
  LogCapture log("PRFS:5;");
  tunablesUpdate(bytes(path_));
  EXPECT_THAT(
      log.lines(),
      ElementsAre("PRFS:INF Tunables - update",
                  "PRFS:INF Tunables - No tunables config file found at path : \"" + path_ + "\""));
  log.clear();
  tunablesUpdate(bytes(""));
  EXPECT_EQ(log.lines().back(),
            "PRFS:INF Tunables - No tunables config file found at path : \"(root)\"");

  const unsigned char* const path = file("QD_AGENT_PORT=1234", 100);
  OSAL_File holder;
  ASSERT_EQ(holder.open(path, QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), 0);
  log.clear();
  tunablesUpdate(path);
  EXPECT_FALSE(QDTunablesBase::tunablesUpdateFromFile(path));
  EXPECT_EQ(guard_.changed(), "");
  EXPECT_THAT(
      log.lines(),
      ElementsAre("PRFS:INF Tunables - update",
                  StartsWith("OSAL:ERR Non-blocking, but would block for file"),
                  "EXCP:ERR NET: Cannot open file \"" + path_ + "\"",
                  StartsWith("EXCP:ERR ECT - @0x"), StartsWith("EXCP:ERR ECSP - @0x"),
                  "PRFS:ERR Tunables - cannot open or read file at path : \"" + path_ + "\"",
                  StartsWith("OSAL:ERR Non-blocking, but would block for file"),
                  "EXCP:ERR NET: Cannot open file \"" + path_ + "\"",
                  StartsWith("EXCP:ERR ECT - @0x"), StartsWith("EXCP:ERR EC ignored - @0x")));
}

TEST_F(TunablesFile, OfTheBaseLibraryHasOneTo4095Bytes) {
  const std::string text = "BASE_MAX_SOAP_THREAD=7\nQD_AGENT_PORT=1234";
  const struct {
    std::size_t size;
    bool applied;
  } kCases[] = {{0, false}, {100, true}, {4095, true}, {4096, false}, {5000, false}};
  for (const auto& [size, applied] : kCases) {
    SCOPED_TRACE(size);
    guard_.restore();
    EXPECT_EQ(QDTunablesBase::tunablesUpdateFromFile(file(text, size)), applied);
    EXPECT_EQ(guard_.changed(), applied ? "BASE_MAX_SOAP_THREAD " : "");
  }
  EXPECT_FALSE(QDTunablesBase::tunablesUpdateFromFile(bytes(folder_ / "missing")));
}

}  // namespace
