// SPDX-License-Identifier: BSD-3-Clause
// Selected inversion beside the factorization of the same matrix.
//
//   inverse_bench [-t THREADS] [-r REPEATS] [--cpu] [PROBLEM...]
//
// Factorization (phase 22) and inversion (phase -22, which overwrites the factor) take turns on
// one analysis, first on one thread and then on THREADS; the table shows the shortest time of each
// in seconds.  "memory" is the most that an inversion holds at a time, the factor included, over
// the factor.  "trace" is |sum a(i,j) inv(j,i) / n - 1|, for patterns that are symmetric.
#include <fmt/core.h>
#include <omp.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <ctime>
#include <string>
#include <vector>

#include "driver/factor_store.hpp"
#include "problem.hpp"
#include "velmora.h"

namespace bench {
namespace {

double now(bool cpu) {
  return cpu ? static_cast<double>(std::clock()) / CLOCKS_PER_SEC : omp_get_wtime();
}

/// sum a(i,j) inv(j,i) / n; NaN for a pattern that is not symmetric.
std::complex<double> trace(const Matrix& a, const Matrix& inverse) {
  std::complex<double> sum = 0;
  for (int i = 0; i < a.n; ++i)
    for (int p = a.ia[i] - 1; p < a.ia[i + 1] - 1; ++p) {
      const int j = a.ja[p] - 1;
      if (a.triangle()) {
        const auto term =
            a.value(p) * (a.hermitian() ? std::conj(inverse.value(p)) : inverse.value(p));
        sum += term;
        if (i != j) sum += a.hermitian() ? std::conj(term) : term;
        continue;
      }
      const int* const row = inverse.ja.data() + inverse.ia[j] - 1;
      const int* const end = inverse.ja.data() + inverse.ia[j + 1] - 1;
      const int* const found = std::lower_bound(row, end, i + 1);
      if (found == end || *found != i + 1) return NAN;
      sum += a.value(p) * inverse.value(static_cast<int>(found - inverse.ja.data()));
    }
  return sum / static_cast<double>(a.n);
}

class Handle {
 public:
  Handle(const Problem& problem, int threads) : m_(problem.matrix) {
    const int solver = 0;
    int error = 0;
    iparm_[2] = threads;
    velmorainit(pt_.data(), &m_.mtype, &solver, iparm_.data(), dparm_.data(), &error);
    if (problem.hard) iparm_[10] = iparm_[20] = 1, iparm_[12] = 2;
    if (!m_.triangle()) iparm_[12] = 0;  // no entries outside of the factor's pattern
  }
  ~Handle() { call(-1, nullptr); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  void run(int phase, const double* a) {
    const int error = call(phase, a);
    if (error == 0) return;
    std::array<char, 1024> text;
    velmora_last_message(text.data(), static_cast<int>(text.size()));
    throw std::runtime_error(fmt::format("phase {}: error {}\n{}", phase, error, text.data()));
  }
  int iparm(int k) const { return iparm_[static_cast<std::size_t>(k - 1)]; }
  double factor_bytes() { return static_cast<double>(vlm::factor_table(pt_.data())->bytes); }

 private:
  int call(int phase, const double* a) {
    int one = 1, quiet = 0, error = 0;
    velmora(pt_.data(), &one, &one, &m_.mtype, &phase, &m_.n, a, m_.ia.data(), m_.ja.data(),
            nullptr, &one, iparm_.data(), &quiet, nullptr, nullptr, &error, dparm_.data());
    return error;
  }

  const Matrix& m_;
  std::array<void*, 64> pt_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
};

struct Times {
  double factor = INFINITY, inverse = INFINITY;
  double memory = 0;  ///< the most that an inversion held, over the factor
  double trace = 0;   ///< distance from 1
  int perturbed = 0;
};

Times measure(const Problem& problem, int threads, int repeats, bool cpu) {
  Handle handle(problem, threads);
  const Matrix& m = problem.matrix;
  Matrix inverse = m;
  handle.run(11, m.a.data());
  Times out;
  for (int k = 0; k < repeats; ++k) {
    double start = now(cpu);
    handle.run(22, m.a.data());
    out.factor = std::min(out.factor, now(cpu) - start);
    inverse.a = m.a;
    vlm::MemoryMeter meter;
    start = now(cpu);
    {
      const vlm::MeterScope scope(meter);
      handle.run(-22, inverse.a.data());
    }
    out.inverse = std::min(out.inverse, now(cpu) - start);
    out.memory = 1 + static_cast<double>(meter.peak()) / handle.factor_bytes();
  }
  out.trace = std::abs(trace(m, inverse) - 1.0);
  out.perturbed = handle.iparm(14);
  return out;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::vector<std::string> problems = {"poisson2d:medium", "poisson3d:medium",  "elasticity:medium",
                                       "plate:medium",     "shifted:medium",    "saddle:medium",
                                       "kkt:medium",       "convdiff:medium",   "cfd:medium",
                                       "structsym:medium", "zstructsym:medium", "helmholtz:medium",
                                       "hermitian:medium", "hermindef:medium",  "zconvdiff:medium"};
  int threads = 1, repeats = 3;
  bool cpu = false;
  CLI::App app("Times selected inversion beside the factorization of the same matrix");
  app.add_option("problems", problems, "as velmora_bench takes them");
  app.add_option("-t,--threads", threads, "threads beside one")->check(CLI::PositiveNumber);
  app.add_option("-r,--repeats", repeats, "repeats")->check(CLI::PositiveNumber);
  app.add_flag("--cpu", cpu, "processor seconds instead of wall clock; for one thread");
  CLI11_PARSE(app, argc, argv);
  fmt::print("| problem | type | n | factor 1 | inverse 1 | inverse / factor | memory | trace |");
  if (threads > 1)
    fmt::print(" factor {0} | inverse {0} | inverse, speed-up | memory {0} |", threads);
  fmt::print("\n|---|---:|---:|---:|---:|---:|---:|---:|{}\n",
             threads > 1 ? "---:|---:|---:|---:|" : "");
  for (const std::string& name : problems) try {
      const bench::Problem problem = bench::load(name, 0);
      const bench::Times one = bench::measure(problem, 1, repeats, cpu);
      fmt::print("| {} | {} | {} | {:.4g} | {:.4g} | {:.2f} | {:.3f} | {:.0e}{} |", name,
                 problem.matrix.mtype, problem.matrix.n, one.factor, one.inverse,
                 one.inverse / one.factor, one.memory, one.trace,
                 one.perturbed > 0 ? fmt::format(", {} perturbed", one.perturbed) : "");
      if (threads > 1) {
        const bench::Times more = bench::measure(problem, threads, repeats, cpu);
        fmt::print(" {:.4g} | {:.4g} | {:.2f} | {:.3f} |", more.factor, more.inverse,
                   one.inverse / more.inverse, more.memory);
      }
      fmt::print("\n");
      std::fflush(stdout);
    } catch (const std::exception& failure) {
      fmt::print("\n{}: {}\n", name, failure.what());
      return 1;
    }
}
