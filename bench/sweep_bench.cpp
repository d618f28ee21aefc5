// SPDX-License-Identifier: BSD-3-Clause
// What a solve takes and what the machine would allow.
//
//   sweep_bench [-t THREADS] PROBLEM ...
//
// One right-hand side is bound by the reading of the factor: the entries of L and U that a pair of
// sweeps reads, 8 or 16 bytes each, over its time, beside the rate at which the threads read an
// array.  Many right-hand sides are bound by arithmetic: their operations beside those of gemm.
// Wall clock, the least of several calls; OpenBLAS's kernels are those that it chose.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "base/amuxy.hpp"
#include "base/matrix_types.hpp"
#include "kernels/blas.hpp"
#include "problem.hpp"
#include "velmora.h"

extern "C" void openblas_set_num_threads(int);
extern "C" char* openblas_get_corename();

namespace {

using bench::Matrix;

constexpr int many = 64;

template <class Run>
double seconds_of(int runs, const Run& run) {
  double least = 1e300;
  for (int k = 0; k < runs; ++k) {
    const double start = omp_get_wtime();
    run();
    least = std::min(least, omp_get_wtime() - start);
  }
  return least;
}

/// Bytes a second at which the threads read an array of a factor's size.
double read_rate(int threads, std::size_t values) {
  std::vector<double> data(values);
  const auto length = static_cast<std::ptrdiff_t>(values);
#pragma omp parallel for schedule(static) num_threads(threads)
  for (std::ptrdiff_t i = 0; i < length; ++i) data[static_cast<std::size_t>(i)] = 1.0;
  const double* const x = data.data();
  double total = 0;
  const double seconds = seconds_of(7, [&] {
    using Eight = double __attribute__((vector_size(64), aligned(8)));
    double sum = 0;
#pragma omp parallel for schedule(static) num_threads(threads) reduction(+ : sum)
    for (std::ptrdiff_t block = 0; block < length / 64; ++block) {
      Eight part[4] = {};
      for (int k = 0; k < 8; ++k)
        part[k % 4] += *reinterpret_cast<const Eight*>(x + 64 * block + 8 * k);
      const Eight both = (part[0] + part[1]) + (part[2] + part[3]);
      for (int k = 0; k < 8; ++k) sum += both[k];
    }
    total += sum;
  });
  return total > 0 ? 8.0 * static_cast<double>(values) / seconds : 0;
}

/// Operations a second of gemm, real ones.
template <class T>
double gemm_rate(int threads) {
  constexpr int n = 1500;
  std::vector<T> a(n * n, T(1)), b(n * n, T(0.5)), c(n * n);
  openblas_set_num_threads(threads);
  const double seconds = seconds_of(4, [&] {
    vlm::blas::gemm('N', 'N', n, n, n, T(1), a.data(), n, b.data(), n, T(0), c.data(), n);
  });
  const double each = sizeof(T) == sizeof(double) ? 2.0 : 8.0;
  return each * n * n * n / seconds;
}

class Factored {
 public:
  Factored(const bench::Problem& problem, int threads) : m_(problem.matrix) {
    const int direct = 0;
    int error = 0;
    iparm[2] = threads;
    velmorainit(pt_, &m_.mtype, &direct, iparm, dparm_, &error);
    if (problem.hard) iparm[10] = 1, iparm[12] = 2, iparm[20] = 1;
    refinement = iparm[7];
    call(12, 1, nullptr, nullptr);
  }
  ~Factored() { call(-1, 1, nullptr, nullptr); }
  Factored(const Factored&) = delete;
  Factored& operator=(const Factored&) = delete;
  void call(int phase, int nrhs, const double* b, double* x) {
    const int one = 1, quiet = 0;
    int error = 0;
    velmora(pt_, &one, &one, &m_.mtype, &phase, &m_.n, m_.a.data(), m_.ia.data(), m_.ja.data(),
            nullptr, &nrhs, iparm, &quiet, const_cast<double*>(b), x, &error, dparm_);
    if (error != 0) std::printf("phase %d: error %d\n", phase, error);
  }
  double entries() const { return iparm[17] < 0 ? -1000.0 * iparm[17] : iparm[17]; }
  int iparm[64] = {};
  int refinement = 0;

 private:
  const Matrix& m_;
  void* pt_[64] = {};
  double dparm_[64] = {};
};

/// The largest componentwise backward error: what a step of refinement could still bring down.
double backward_error(const vlm::SparseProduct& product, const std::vector<double>& x,
                      const std::vector<double>& b, std::vector<double>& work) {
  std::vector<double> r(b.size()), size(b.size()), modulus(x);
  const bool complex = vlm::matrix_type(product.mtype).complex;
  vlm::amuxy_res_velmora(product, 1, x.data(), b.data(), r.data(), work.data());
  const std::size_t step = complex ? 2 : 1;
  const auto modulus_of = [&](const std::vector<double>& v, std::size_t k) {
    return complex ? std::hypot(v[k], v[k + 1]) : std::abs(v[k]);
  };
  for (std::size_t k = 0; k < x.size(); k += step) {
    modulus[k] = modulus_of(x, k);
    if (complex) modulus[k + 1] = 0;
  }
  vlm::amuxy_abs_velmora(product, 1, modulus.data(), size.data(), work.data());
  double most = 0;
  for (std::size_t k = 0; k < r.size(); k += step)
    if (modulus_of(r, k) > 0)
      most = std::max(most, modulus_of(r, k) / (size[k] + modulus_of(b, k)));
  return most;
}

void run(const std::string& spec, int threads) {
  const bench::Problem problem = bench::load(spec, 0);
  const Matrix& m = problem.matrix;
  const vlm::MatrixType& type = vlm::matrix_type(m.mtype);
  Factored factor(problem, threads);
  const std::size_t length = static_cast<std::size_t>(m.n) * static_cast<std::size_t>(m.nvals());
  std::vector<double> b(length * many), x(b.size()), half(b.size());
  unsigned seed = 1;
  for (double& v : b) v = (seed = seed * 1664525u + 1013904223u) / 4294967296.0 - 0.5;

  const auto seconds = [&](int nrhs, int step, int refinement) {
    factor.iparm[7] = refinement;
    factor.iparm[25] = step;
    const double* const from = step == 2 ? half.data() : b.data();
    double* const to = step == 1 ? half.data() : x.data();
    return seconds_of(nrhs == 1 ? 9 : 3, [&] { factor.call(33, nrhs, from, to); });
  };
  const vlm::SparseProduct product{
      {m.n, m.ia.data(), m.ja.data(), m.a.data()}, m.mtype, false, threads};
  std::vector<double> work(vlm::amuxy_work_bytes(m.n, m.mtype, false, threads) / sizeof(double));
  const auto residual_seconds = [&](int nrhs) {
    return seconds_of(nrhs == 1 ? 9 : 3, [&] {
      vlm::amuxy_res_velmora(product, nrhs, x.data(), b.data(), half.data(), work.data());
    });
  };
  struct Times {
    double forward, backward, plain, whole, residual;
    int steps;
  };
  double error = 0;
  const auto times_of = [&](int nrhs) {
    Times t{};
    t.forward = seconds(nrhs, 1, 0);
    t.backward = seconds(nrhs, 2, 0);
    // The two halves never refine, whatever was perturbed.
    t.plain = factor.iparm[13] == 0 ? seconds(nrhs, 0, 0) : t.forward + t.backward;
    if (nrhs == 1) error = backward_error(product, x, b, work);
    t.whole = seconds(nrhs, 0, factor.refinement);
    t.steps = factor.iparm[6];
    t.residual = residual_seconds(nrhs);
    return t;
  };
  const Times one = times_of(1), all = times_of(many);

  // L is read twice by a symmetric factor; L and U are read once each.
  const double entries = factor.entries() * (type.symmetric ? 2 : 1);
  const double bytes = entries * 8 * m.nvals();
  const double read = read_rate(threads, static_cast<std::size_t>(factor.entries()) * m.nvals());
  const double gemm = type.complex ? gemm_rate<vlm::zcomplex>(threads) : gemm_rate<double>(threads);
  const double operations = entries * (type.complex ? 8 : 2) * many;
  std::printf(
      "| %s | %d | %.1f | %.1f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %d | %.0e | %.1f | %.2f "
      "| "
      "%.1f | %.1f | %.1f | %.1f | %.1f | %d |\n",
      problem.name.c_str(), m.n, bytes * 1e-6, bytes / one.plain * 1e-9, bytes / one.plain / read,
      one.forward * 1e3, one.backward * 1e3, one.plain * 1e3, one.residual * 1e3, one.whole * 1e3,
      one.steps, error, operations / all.plain * 1e-9, operations / all.plain / gemm,
      all.forward * 1e3, all.backward * 1e3, all.plain * 1e3, all.residual * 1e3, all.whole * 1e3,
      all.steps);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  int threads = 1;
  std::vector<std::string> specs;
  for (int k = 1; k < argc; ++k) {
    if (std::strcmp(argv[k], "-t") == 0 && k + 1 < argc)
      threads = std::max(1, std::atoi(argv[++k]));
    else
      specs.emplace_back(argv[k]);
  }
  if (specs.empty()) {
    std::puts("usage: sweep_bench [-t THREADS] PROBLEM ...");
    return 1;
  }
  std::printf(
      "%d threads, gemm by OpenBLAS's kernels %s; times in ms; x%d: right-hand sides at once\n\n"
      "| problem | n | MB read | GB/s | of reading | forward | backward | plain | residual | solve "
      "| "
      "steps | error of plain | x%d GFLOP/s | of gemm | forward | backward | plain | residual | "
      "solve | steps "
      "|\n|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|"
      "---|\n",
      threads, openblas_get_corename(), many, many);
  try {
    for (const std::string& spec : specs) run(spec, threads);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
