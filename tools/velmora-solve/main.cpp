// SPDX-License-Identifier: BSD-3-Clause
/// velmora-solve: a sparse system from a file to a checked solution.
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>

#include "options.hpp"
#include "report.hpp"
#include "solve.hpp"
#include "text_output.hpp"

namespace {

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

/// Everything but a failure to tell of one.
int run(int argc, char** argv) {
  const tool::Parsed parsed = tool::parse_options(argc, argv);
  if (parsed.exit_status) return *parsed.exit_status;
  const tool::Options& options = parsed.options;
  tool::Report report;
  try {
    JsonOutput json(options.json);
    try {
      tool::run(options, tool::Printer(options.quiet), report);
    } catch (const tool::InputError& error) {
      report.failure = error.what();
    } catch (const std::bad_alloc&) {
      report.failure = "not enough memory";
    }
    json.write(tool::to_json(report));
  } catch (const tool::InputError& error) {
    report.failure = error.what();
  }
  if (report.failure.empty()) return 0;
  std::fflush(stdout);
  fmt::print(stderr, "velmora-solve: {}\n", report.failure);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("velmora-solve: not enough memory\n", stderr);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora-solve: %s\n", error.what());
  }
  return 1;
}
