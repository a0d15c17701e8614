#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>

#include "Files.h"
#include "LogCapture.h"
#include "tools/QDException.h"

namespace fs = std::filesystem;

/// Its arguments, streamed one after the other.
template <typename... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/// What the tools layer says when `operation` makes it refuse: the code that it throws, and the one
/// line that it logs before, traces left out; "nothing" when it does not throw.
template <typename Operation>
std::string refusal(Operation operation) {
  const LogCapture log("EXCP:5;");
  std::string said = "nothing";
  try {
    operation();
  } catch (const QDException& exception) {
    said = std::to_string(exception.code());
    for (const std::string& line : log.lines()) {
      if (line.starts_with("EXCP:") && line.find(" - @") == std::string::npos) said += ' ' + line;
    }
  }
  return said;
}

/// What it is for an error with this text.
inline std::string refused(const std::string& text) { return "1 EXCP:ERR NET: " + text; }

/// So many bytes that do not repeat.
inline std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * i / 7);
  return bytes;
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

  const TempFolder folder;
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
    for (const std::string word : {"file ", "File ", "opened ", "closed "}) {
      said.rename(text(word, '(', next, ')'), word + "(fd)");
    }
  }

  LogCapture said;
};
