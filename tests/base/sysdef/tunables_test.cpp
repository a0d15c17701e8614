// The files that change the two tables.

#include "base/sysdef/tunables.h"

#include <gtest/gtest.h>

#include "FolderTest.h"
#include "base/ground/tunablesValues.h"
#include "ground/qdTunablesBaseValues.h"
#include "osal/osal_file.h"
#include "sysdef/qdTunablesBase.h"

namespace {

class TunablesTest : public FolderTest {};

TEST_F(TunablesTest, FilesReachBothTablesOrAreToldAbout) {
  LogCapture said("PRFS:5;OSAL:2;EXCP:5;");
  said.rename(root(), "~");
  writeFile(path, "QD_AGENT_PORT=1234\nBASE_MAX_SOAP_THREAD=7");
  tunablesUpdate(bytes(path));
  EXPECT_EQ(QD_AGENT_PORT, 1234U);
  EXPECT_EQ(BASE_MAX_SOAP_THREAD, 7U);
  EXPECT_TRUE(said().starts_with("INF Tunables - update | DBG Tunables - read : 41 B | "));
  OSAL_File holder;
  ASSERT_EQ(holder.open(bytes(path), QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK, true), 0);
  tunablesUpdate(bytes(path));
  EXPECT_TRUE(said().ends_with(" | ERR Tunables - cannot open or read file at path : \"~/file\""));
  tunablesUpdate(bytes(missing));
  EXPECT_TRUE(said().ends_with("No tunables config file found at path : \"~/missing\""));
}

TEST_F(TunablesTest, AFileIsCutBehindItsLimit) {
  const std::string last = "\nQD_SERVER_MODE=42\nBASE_MAX_SOAP_THREAD=42";
  for (const std::size_t excess : {0U, 1U}) {
    writeFile(path, std::string(4194304 + excess - last.size(), '/') + last);
    LogCapture said("PRFS:2;");
    tunablesUpdate(bytes(path));
    EXPECT_EQ(BASE_MAX_SOAP_THREAD, excess == 0 ? 42U : 4U);
    EXPECT_EQ(said(),
              excess == 0 ? "" : "ERR Tunables - file too big (>4194304) -> will be truncated");
    writeFile(path, "BASE_MAX_SOAP_THREAD=7\n" + std::string(4072 + excess, '/'));
    EXPECT_EQ(QDTunablesBase::tunablesUpdateFromFile(bytes(path)), excess == 0);
    EXPECT_EQ(BASE_MAX_SOAP_THREAD, excess == 0 ? 7U : 4U);
  }
}

}  // namespace
