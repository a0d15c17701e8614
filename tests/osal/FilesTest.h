#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <string>

#include "Files.h"
#include "Said.h"
#include "TempFolder.h"

namespace fs = std::filesystem;

/// Its arguments, streamed one after the other.
template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/// A system error code as messages show it.
inline std::string code(int error) { return '(' + std::to_string(error) + ')'; }

/// A fresh folder, "~" in records, and the rule that no descriptor stays open. "(fd)" in records is
/// the descriptor that the next opened file gets.
class FilesTest : public testing::Test {
 protected:
  explicit FilesTest(const std::string& levels = "OSAL:9;") : said(levels) {
    const int next = ::dup(0);
    ::close(next);
    said.rename(folder.path().string(), "~");
    for (const std::string word : {"file ", "File ", "opened ", "closed ", "synchronized "}) {
      said.rename(word + code(next), word + "(fd)");
    }
  }
  ~FilesTest() override { EXPECT_EQ(openDescriptors(), before_); }

  static int permissionsOf(const std::string& path) {
    return static_cast<int>(fs::status(path).permissions());
  }

 private:
  const std::ptrdiff_t before_ = openDescriptors();

 protected:
  const TempFolder folder;
  const std::string path = folder / "file";
  const std::string missing = folder / "missing";
  Said said;
};
