#include "Updater/utilsExec.h"

#include <sys/wait.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <sstream>
#include <system_error>

#include "Updater/boostProcess.h"
#include "logging/QDLog.h"

namespace utils {

namespace {

int waitFor(bp::child& child) {
  if (child.id() <= 0) return -1;
  child.wait();
  return exitStatusOf(child.native_exit_code());
}

}  // namespace

int exitStatusOf(int waitStatus) {
  if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
  if (WIFSIGNALED(waitStatus)) return WTERMSIG(waitStatus);
  return waitStatus;
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

int exec(std::string& cmd, std::vector<std::string>& lines) {
  bp::ipstream output;
  bp::child child(bp::search_path("sh"), bp::args({"-c", cmd}), bp::std_out > output);
  std::vector<std::string> read;
  for (std::string line; std::getline(output, line);) read.push_back(line);
  const int status = waitFor(child);
  if (status == 0) lines.insert(lines.end(), read.begin(), read.end());
  return status;
}

int execlog(std::string& cmd) {
  if (cmd.find_first_not_of(' ') == std::string::npos) {  // the library would read beyond its words
    throw bp::process_error(std::make_error_code(std::errc::no_such_file_or_directory),
                            "execve failed");
  }
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
