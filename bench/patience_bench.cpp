// SPDX-License-Identifier: BSD-3-Clause
// How patient somebody must be who ends a call: for analysis, factorization, a solve of 64 right-hand
// sides and, with --inverse, the inversion, the longest silence between two words to the listener, and
// the time from an interrupt to the end of the call, the longest of several.
//
//   patience_bench [-t THREADS] [--cuts N] [--inverse] [--climb] [PROBLEM ...]
//
// The interrupts come at N places of a phase (3), evenly over the time that it took when nobody
// interrupted it.  --climb asks for solves that go on to other factors (iparm(42)).  Exit code 1 where
// a call ends with another error than it should, or the handle does not take the next one.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "problem.hpp"
#include "velmora.h"
#include "velmora/progress.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string failure(int phase, int error) {
  return "phase " + std::to_string(phase) + " ended with error " + std::to_string(error);
}

volatile std::sig_atomic_t interrupted = 0;
constexpr int right_hand_sides = 64, cancelled = -9;

/// A handle with its matrix, and a listener that ends calls after an interrupt.
class Call {
 public:
  Call(const Problem& problem, int threads, bool climb)
      : m_(problem.matrix),
        values_(m_.a),
        b_(m_.a.size() / m_.ja.size() * right_hand_sides * n(), 1) {
    const int direct = 0;
    int error = 0;
    iparm_[2] = threads;
    velmorainit(pt_, &m_.mtype, &direct, iparm_, dparm_, &error);
    if (problem.hard) iparm_[10] = iparm_[20] = 1, iparm_[12] = 2;
    iparm_[41] = climb ? 1 : 0;
    iparm_[35] = 1;  // the inversion keeps the factor
    x_.resize(b_.size());
    velmora_set_progress(pt_, hear, this);
  }
  ~Call() { run(-1); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  int run(int phase) {
    const int one = 1, quiet = 0, nrhs = right_hand_sides;
    int error = 0;
    if (phase == -22) values_ = m_.a;
    silence_ = 0;
    last_ = Clock::now();
    velmora(pt_, &one, &one, &m_.mtype, &phase, &m_.n, phase == -22 ? values_.data() : m_.a.data(),
            m_.ia.data(), m_.ja.data(), nullptr, &nrhs, iparm_, &quiet, b_.data(), x_.data(),
            &error, dparm_);
    silence_ = std::max(silence_, since(last_));
    return error;
  }
  double silence() const { return silence_; }

 private:
  std::size_t n() const { return static_cast<std::size_t>(m_.n); }
  static int hear(void* data, int, double) {
    Call& self = *static_cast<Call*>(data);
    self.silence_ = std::max(self.silence_, since(self.last_));
    self.last_ = Clock::now();
    return interrupted;
  }

  const Matrix& m_;
  std::vector<double> values_, b_, x_;
  void* pt_[64] = {};
  int iparm_[64] = {};
  double dparm_[64] = {};
  double silence_ = 0;
  Clock::time_point last_;
};

/// Seconds from an interrupt, so long after the begin of the call, to its end; 0 where the call was
/// over before.
double interrupt(Call& call, int phase, double after) {
  std::atomic<bool> over = false;
  Clock::time_point at;
  interrupted = 0;
  std::thread user([&] {
    const auto start = Clock::now();
    while (since(start) < after && !over) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    at = Clock::now();
    if (!over) std::raise(SIGINT);
  });
  const int error = call.run(phase);
  const auto end = Clock::now();
  over = true;
  user.join();
  interrupted = 0;
  if (error != 0 && error != cancelled) throw std::runtime_error(failure(phase, error));
  return error == 0 ? 0 : std::chrono::duration<double>(end - at).count();
}

void measure(const std::string& name, int threads, int cuts, bool inverse, bool climb) {
  const Problem problem = load(name, 0);
  Call call(problem, threads, climb);
  for (const int phase : {11, 22, 33, -22}) {
    if (phase == -22 && !inverse) break;
    const auto finish = [&] {
      if (const int error = call.run(phase)) throw std::runtime_error(failure(phase, error));
    };
    const auto start = Clock::now();
    finish();
    const double seconds = since(start), silence = call.silence();
    double longest = 0;
    for (int k = 1; k <= cuts; ++k)
      longest = std::max(longest, interrupt(call, phase, seconds * k / (cuts + 1)));
    if (cuts > 0) finish();  // what an interrupt took away, and the proof that the handle goes on
    std::printf("| %s | %d | %d | %.2f | %.3f | %.3f |\n", name.c_str(), problem.matrix.n, phase,
                seconds, silence, longest);
    std::fflush(stdout);
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::vector<std::string> problems = {"poisson3d:large", "kkt:large", "circuit:large",
                                       "cfd:medium"};
  int threads = 2, cuts = 3;
  bool inverse = false, climb = false;
  CLI::App app("Times how soon calls end that somebody ends");
  app.add_option("problems", problems, "as velmora_bench takes them");
  app.add_option("-t,--threads", threads, "threads")->check(CLI::PositiveNumber);
  app.add_option("--cuts", cuts, "interrupts of each phase")->check(CLI::NonNegativeNumber);
  app.add_flag("--inverse", inverse, "the inversion, too");
  app.add_flag("--climb", climb, "solves that go on to other factors");
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGINT, [](int) { bench::interrupted = 1; });
  std::printf(
      "| problem | n | phase | seconds | longest silence | interrupt to end |\n"
      "|---|---:|---:|---:|---:|---:|\n");
  for (const std::string& name : problems) try {
      bench::measure(name, threads, cuts, inverse, climb);
    } catch (const std::exception& failure) {
      std::printf("\n%s: %s\n", name.c_str(), failure.what());
      return 1;
    }
}
