#include "Updater/command/utilsExec.h"

#include <sys/wait.h>

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <cstdlib>
#include <iterator>
#include <locale>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "Updater/command/boostProcess.h"
#include "logging/QDLog.h"

namespace utils {

namespace {

constexpr int kReadBlock = 65536;  // what a pipe holds

int waitFor(bp::child& child) {
  if (child.id() <= 0) return -1;
  child.wait();
  return exitStatusOf(child.native_exit_code());
}

/// Cuts a text that comes in pieces into lines.
class Lines {
 public:
  void add(std::string_view piece) {
    for (std::size_t end = 0; (end = piece.find('\n')) != std::string_view::npos;) {
      if (begun_.empty()) {
        whole_.emplace_back(piece.substr(0, end));
      } else {
        whole_.push_back(std::exchange(begun_, {}).append(piece.substr(0, end)));
      }
      piece.remove_prefix(end + 1);
    }
    begun_.append(piece);
  }

  /// All of them; a last one without an end counts.
  std::vector<std::string> take() {
    if (!begun_.empty()) whole_.push_back(std::exchange(begun_, {}));
    return std::move(whole_);
  }

 private:
  std::vector<std::string> whole_;
  std::string begun_;
};

/// The library asks for the locale that the environment names, which may not be installed here: ssh
/// hands it on from another machine. Commands would fall back to this one, too.
void leaveMissingLocale() {
  static const bool once = [] {
    try {
      const std::locale named("");
    } catch (const std::runtime_error&) {
      ::setenv("LC_ALL", "C", 1);
    }
    return true;
  }();
  (void)once;
}

std::vector<std::string> readLines(bp::pipe& pipe) {
  Lines lines;
  std::vector<char> block(kReadBlock);
  while (const int count = pipe.read(block.data(), kReadBlock)) {
    lines.add({block.data(), static_cast<std::size_t>(count)});
  }
  return lines.take();
}

}  // namespace

int exitStatusOf(int waitStatus) {
  if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
  if (WIFSIGNALED(waitStatus)) return WTERMSIG(waitStatus);
  return waitStatus;
}

std::vector<std::string> splitLines(const std::string& text) {
  Lines lines;
  lines.add(text);
  return lines.take();
}

int exec(std::string& cmd, std::vector<std::string>& lines) {
  leaveMissingLocale();
  bp::pipe output;
  bp::child child(bp::search_path("sh"), bp::args({"-c", cmd}), bp::std_out > output);
  std::vector<std::string> read = readLines(output);
  const int status = waitFor(child);
  if (status == 0) {
    if (lines.empty()) lines.swap(read);
    std::move(read.begin(), read.end(), std::back_inserter(lines));
  }
  return status;
}

int execlog(std::string& cmd) {
  if (cmd.find_first_not_of(' ') == std::string::npos) {  // the library would read beyond its words
    throw bp::process_error(std::make_error_code(std::errc::no_such_file_or_directory),
                            "execve failed");
  }
  leaveMissingLocale();
  boost::asio::io_context context;
  bp::async_pipe outputPipe(context);
  bp::async_pipe errorPipe(context);
  bp::child child(cmd, bp::std_out > outputPipe, bp::std_err > errorPipe);

  std::string output;
  std::string errors;
  const auto ignore = [](const boost::system::error_code&, std::size_t) {};
  boost::asio::async_read(outputPipe, boost::asio::dynamic_buffer(output), ignore);
  boost::asio::async_read(errorPipe, boost::asio::dynamic_buffer(errors), ignore);
  context.run();  // ends when both pipes are at their end

  const int status = waitFor(child);
  QDLOG(ROOT, NFY, "exec : " << cmd);
  for (const std::string& line : splitLines(output)) QDLOG(ROOT, NFY, line);
  for (const std::string& line : splitLines(errors)) QDLOG(ROOT, NFY, line);
  return status;
}

}  // namespace utils
