#pragma once

#include <pthread.h>

#include <functional>
#include <string>

#include "FolderTest.h"
#include "Limits.h"
#include "LogCapture.h"
#include "tools/QDException.h"

/// What the tools layer says when it refuses: the one line in module EXCP that `operation` logs, as
/// an error or as a warning, before it throws the code that belongs to it. "nothing" when it does
/// not throw.
template <typename Operation>
std::string refusal(Operation operation) {
  const LogCapture log("EXCP:5;");
  int code = 0;
  try {
    operation();
    return "nothing";
  } catch (const QDException& exception) {
    code = exception.code();
  }
  std::string said;
  for (const std::string& line : log.lines()) {
    const bool isError = line.starts_with("EXCP:ERR NET: ");
    if (!isError && !line.starts_with("EXCP:WRN SET: ")) continue;
    said += said.empty() ? line : " and " + line;
    if (code != (isError ? 1 : 2)) said += " with another code";
  }
  return said;
}

/// The line for `text` logged with the throw of code 1, and with that of code 2.
inline std::string refused(const std::string& text) { return "EXCP:ERR NET: " + text; }
inline std::string tolerated(const std::string& text) { return "EXCP:WRN SET: " + text; }

/// So many bytes that do not repeat.
inline std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * i / 7);
  return bytes;
}

/// Runs `body` on a thread of its own with a stack of 64 KiB, to its end.
inline void runOnSmallStack(std::function<void()> body) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr std::size_t kStack = 256 * 1024;  // its checks take a lot for themselves
#else
  constexpr std::size_t kStack = 64 * 1024;
#endif
  const auto run = [](void* function) -> void* {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStack);
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
  pthread_attr_destroy(&attributes);
  pthread_join(thread, nullptr);
}
