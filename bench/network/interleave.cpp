// Runs commands in turn, one after the other and round after round, each round beginning with
// another one, so that what disturbs the machine disturbs all alike, and prints how long each run
// took from its start to its end.
//
//   interleave ROW ROUNDS [--memory] [--warm=MIB] [--remove=FILE]... [--verify=SHELL-COMMAND]
//              --as VARIANT COMMAND [ARGUMENT]... [--as ...]
//
// Before each run the files are removed, and so much memory is written to and given back: what a
// virtual machine has given back for longer, the host takes, and who gets it again waits for it.
// The first round is not counted; after each of its runs the shell command must succeed. Samples
// are lines of row, variant and value, with tabs between: the nanoseconds of a run, or with
// --memory the KiB that it occupied at most.

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Variant {
  const char* name;
  std::vector<char*> command;  ///< ends with a null pointer
};

struct Plan {
  const char* row = nullptr;
  std::size_t rounds = 0;
  bool memory = false;
  std::size_t warm = 0;  ///< bytes
  std::vector<std::string> removed;
  std::string verify;
  std::vector<Variant> variants;
};

[[noreturn]] void fail(const std::string& what, const char* which) {
  std::fprintf(stderr, "interleave: %s: %s\n", what.c_str(), which);
  std::exit(1);
}

/// The value of the option `--name=value`, when `argument` is that option.
bool valueOf(std::string_view argument, std::string_view name, std::string& value) {
  if (!argument.starts_with(name)) return false;
  value = argument.substr(name.size());
  return true;
}

Plan readPlan(char** argument) {
  Plan plan;
  plan.row = *argument++;
  plan.rounds = std::strtoul(*argument++, nullptr, 10);
  std::string value;
  for (; *argument != nullptr; ++argument) {
    const std::string_view text = *argument;
    if (text == "--as" && argument[1] != nullptr) {
      plan.variants.push_back({*++argument, {}});
    } else if (!plan.variants.empty()) {
      plan.variants.back().command.push_back(*argument);
    } else if (valueOf(text, "--remove=", value)) {
      plan.removed.push_back(value);
    } else if (text == "--memory") {
      plan.memory = true;
    } else if (valueOf(text, "--warm=", value)) {
      plan.warm = std::stoul(value) << 20;
    } else if (!valueOf(text, "--verify=", plan.verify)) {
      fail("what is this", *argument);
    }
  }
  for (Variant& variant : plan.variants) variant.command.push_back(nullptr);
  return plan;
}

void warm(std::size_t bytes) {
  constexpr int kPrivate = MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE;
  void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, kPrivate, -1, 0);
  if (memory != MAP_FAILED) ::munmap(memory, bytes);
}

/// Runs one command. Returns the sample.
long long run(const Plan& plan, const Variant& variant) {
  for (const std::string& file : plan.removed) ::unlink(file.c_str());
  if (plan.warm > 0) warm(plan.warm);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    ::execvp(variant.command[0], variant.command.data());
    ::_exit(127);
  }
  int status = -1;
  rusage used{};
  ::wait4(pid, &status, 0, &used);
  const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
  if (status != 0) fail(plan.row, variant.name);
  return plan.memory ? used.ru_maxrss : taken.count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const Plan plan = readPlan(argv + 1);
  for (const Variant& variant : plan.variants) {
    run(plan, variant);
    if (!plan.verify.empty() && std::system(plan.verify.c_str()) != 0) {
      fail("not verified", variant.name);
    }
  }
  const auto count = plan.variants.size();
  for (std::size_t round = 0; round < plan.rounds; ++round) {
    for (std::size_t i = 0; i < count; ++i) {
      const Variant& variant = plan.variants[(round + i) % count];
      std::printf("%s\t%s\t%lld\n", plan.row, variant.name, run(plan, variant));
      std::fflush(stdout);
    }
  }
}
