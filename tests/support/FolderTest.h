#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"

namespace fs = std::filesystem;

/// Its arguments, streamed one after the other.
template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/// A fresh folder for each test, which may not leave descriptors open.
class FolderTest : public testing::Test {
 protected:
  ~FolderTest() override { EXPECT_EQ(openDescriptors(), before); }

  [[nodiscard]] std::string root() const { return folder.path().string(); }
  /// The path of what is called `name` in the folder, as messages show it.
  [[nodiscard]] std::string quoted(const std::string& name) const {
    return '"' + (folder / name) + '"';
  }
  static int permissionsOf(const std::string& path) {
    return static_cast<int>(fs::status(path).permissions());
  }

  const TempFolder folder{cheapBase()};
  const std::ptrdiff_t before = openDescriptors();
  const std::string path = folder / "file";
  const std::string missing = folder / "missing";
};

/// With records, in which "~" is the folder and "(fd)" the descriptor that the next opened file
/// gets.
class SaidTest : public FolderTest {
 protected:
  explicit SaidTest(const std::string& levels = "OSAL:9;") : said(levels) {
    const int next = ::dup(0);
    ::close(next);
    said.rename(root(), "~");
    for (const std::string word : {"file ", "File ", "opened ", "closed ", "synchronized "}) {
      said.rename(text(word, '(', next, ')'), word + "(fd)");
    }
  }

  Said said;
};
