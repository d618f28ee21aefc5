// SPDX-License-Identifier: BSD-3-Clause
/// velmora-solve: a sparse system from a file to a checked solution.
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

#include "options.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "solve.hpp"
#include "text_output.hpp"

namespace {

/// What a shell tells of a program that Ctrl-C ended.
constexpr int interrupted_status = 130;

/// While JSON goes to standard output, everything else goes to standard error.
class JsonOutput {
 public:
  explicit JsonOutput(const std::string& path) : path_(path) {
    if (path_ != "-") return;
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
  }
  void write(const std::string& text) {
    if (path_.empty()) return;
    if (path_ == "-") {
      std::fflush(stdout);
      dup2(saved_, STDOUT_FILENO);
      fmt::print("{}", text);
    } else {
      tool::TextOutput file(path_);
      file.print("{}", text);
      file.close();
    }
  }

 private:
  std::string path_;
  int saved_ = -1;
};

int end_without_memory() {
  std::fflush(stdout);
  std::fputs("velmora-solve: not enough memory\n", stderr);
  return 1;
}

/// While options are read, by a parser that takes memory where it must not throw, and while the
/// report becomes JSON, whose values take memory even to be destroyed.
class EndOnFullMemory {
 public:
  EndOnFullMemory() {
    std::set_new_handler([] { std::_Exit(end_without_memory()); });
  }
  ~EndOnFullMemory() { std::set_new_handler(nullptr); }
  EndOnFullMemory(const EndOnFullMemory&) = delete;
  EndOnFullMemory& operator=(const EndOnFullMemory&) = delete;
};

/// Runs the program; @return its exit status.
int run_program(int argc, char** argv) {
  const tool::Parsed parsed = [&] {
    const EndOnFullMemory guard;
    return tool::parse_options(argc, argv);
  }();
  if (parsed.exit_status) return *parsed.exit_status;
  const tool::Options& options = parsed.options;
  tool::Report report;
  int status = 1;
  try {
    for (const std::string& path : {options.output, options.spy, options.convergence, options.json})
      if (!path.empty() && path != "-") tool::require_writable(path);
    JsonOutput json(options.json);
    try {
      tool::run(options, tool::Printer(options.quiet), report);
    } catch (const tool::InputError& error) {
      report.failure = error.what();
    } catch (const tool::Interrupted& ended) {
      report.failure = ended.what();
      status = interrupted_status;
    } catch (const std::bad_alloc&) {
      report.failure = "not enough memory";
    }
    const EndOnFullMemory scope;
    json.write(tool::to_json(report));
  } catch (const tool::InputError& error) {
    report.failure = error.what();
  }
  if (report.failure.empty()) return 0;
  std::fflush(stdout);
  std::fprintf(stderr, "velmora-solve: %s\n", report.failure.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // Memory may run out anywhere, also where options are read or a failure is told.
  try {
    return run_program(argc, argv);
  } catch (const std::bad_alloc&) {
    return end_without_memory();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora-solve: %s\n", error.what());
  }
  return 1;
}
