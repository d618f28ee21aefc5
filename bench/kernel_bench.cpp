// SPDX-License-Identifier: BSD-3-Clause
// The update kernel alone, beside the BLAS on the same operands.
//
//   kernel_bench [--isa NAME] [--kind d|s|z]
//
// Each row is one shape: GFLOP/s of the kernel to a contiguous and to a scattered place, and of
// gemm into a buffer (A B^T, which a factorization would still have to subtract), and the shares of
// gemm that they reach.  The least processor time of several repetitions counts, taken in turns.
// OpenBLAS's kernels are those that it chose; OPENBLAS_CORETYPE tells it otherwise, and the first
// line names them.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/large_block.hpp"
#include "kernels/choice.hpp"

extern "C" char* openblas_get_corename();
extern "C" void openblas_set_num_threads(int);
extern "C" void dtrsm_(const char*, const char*, const char*, const char*, const int*, const int*,
                       const double*, const double*, const int*, double*, const int*);

namespace vlm {
namespace {

struct Shape {
  int m, q, k, ld;
};

// Large ones as they stand near the root of a solid mesh, small ones as they stand at its leaves.
constexpr Shape shapes[] = {{2000, 200, 128, 4000},  {4000, 256, 256, 8000}, {4000, 128, 512, 8000},
                            {6000, 200, 200, 12000}, {1000, 100, 32, 2000},  {500, 40, 16, 1000},
                            {200, 24, 12, 600},      {400, 100, 64, 800},    {200, 100, 32, 400},
                            {100, 40, 24, 200},      {60, 20, 8, 120},       {30, 10, 4, 60},
                            {4000, 80, 80, 5000},    {1500, 80, 80, 2000},   {1500, 80, 240, 2000}};

double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

/// Least seconds of each of several runs, in turns, so that a slow moment of the machine meets
/// all of them; each sample is long enough for the clock.
std::vector<double> seconds_of(double expected, const std::vector<std::function<void()>>& runs) {
  const int inner = std::max(1, static_cast<int>(2e-3 / expected));
  std::vector<double> least(runs.size(), 1e300);
  for (int sample = 0; sample < 15; ++sample)
    for (std::size_t r = 0; r < runs.size(); ++r) {
      const double start = now();
      for (int i = 0; i < inner; ++i) runs[r]();
      least[r] = std::min(least[r], (now() - start) / inner);
    }
  return least;
}

/// Operands lie where a factor does.
template <class T>
struct BlockAllocator {
  using value_type = T;
  T* allocate(std::size_t length) {
    if (void* block = allocate_block(length * sizeof(T))) return static_cast<T*>(block);
    throw std::bad_alloc();
  }
  void deallocate(T* block, std::size_t) { std::free(block); }
  bool operator==(const BlockAllocator&) const = default;
};
template <class T>
using Values = std::vector<T, BlockAllocator<T>>;

template <class T>
Values<T> random_values(std::size_t count) {
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> u(-1, 1);
  Values<T> v(count);
  for (T& x : v) x = static_cast<T>(u(gen));
  return v;
}

/// Rising rows in runs of about six with gaps between them.
std::vector<int> scattered_rows(int count, int limit) {
  std::mt19937 gen(11);
  std::vector<int> row(static_cast<std::size_t>(count));
  const int gaps = std::max(1, count / 6);
  int at = 0, room = limit - count;
  for (int i = 0; i < count; ++i, ++at) {
    if (room > 0 && gen() % 6 == 0) {
      const int gap = std::min(
          room, 1 + static_cast<int>(
                        gen() % static_cast<unsigned>(std::max(1, 2 * (limit - count) / gaps))));
      at += gap;
      room -= gap;
    }
    row[static_cast<std::size_t>(i)] = at;
  }
  return row;
}

template <class T>
void measure(const Kernels<T>& kernel, double operations_of_one) {
  std::printf("%-8s %5s %5s %5s %6s %10s %10s %8s %10s %10s\n", kernel.isa, "m", "q", "k", "ld",
              "contiguous", "scattered", "gemm", "contiguous", "scattered");
  for (const Shape& s : shapes) {
    const auto a = random_values<T>(static_cast<std::size_t>(s.ld) * s.k);
    const auto rows = scattered_rows(s.m, s.ld);
    Values<T> c(static_cast<std::size_t>(s.ld) * (rows[static_cast<std::size_t>(s.q) - 1] + 1));
    PanelUpdate<T> u;
    u.m = s.m;
    u.q = s.q;
    u.k = s.k;
    u.a = u.b = a.data();
    u.lda = u.b_col = u.ldc = s.ld;
    u.c = c.data();
    Values<char> space(packing_bytes(sizeof(T), s.q, s.k));
    u.space = {space.data(), space.size()};
    const double work = operations_of_one * s.m * s.q * s.k, guess = work / 40e9;
    PanelUpdate<T> scattered = u;
    scattered.row = scattered.col = rows.data();
    Values<T> buffer(static_cast<std::size_t>(s.m) * s.q);
    const auto seconds =
        seconds_of(guess, {[&] { kernel.update(u); }, [&] { kernel.update(scattered); },
                           [&] {
                             blas::gemm('N', 'T', s.m, s.q, s.k, T(1), a.data(), s.ld, a.data(),
                                        s.ld, T(0), buffer.data(), s.m);
                           }});
    std::printf("%-8s %5d %5d %5d %6d %10.1f %10.1f %8.1f %10.2f %10.2f\n", "", s.m, s.q, s.k, s.ld,
                work / seconds[0] * 1e-9, work / seconds[1] * 1e-9, work / seconds[2] * 1e-9,
                seconds[2] / seconds[0], seconds[2] / seconds[1]);
  }
}

/// The panel steps: solves below a diagonal block, and the block's own factorization.
template <class T>
void measure_panels(const Kernels<T>& kernel, double operations_of_one) {
  std::printf("%-8s %5s %5s %11s %8s %9s %7s %9s\n", kernel.isa, "rows", "n", "solve_right", "trsm",
              "cholesky", "ldlt", "diagonal");
  for (const auto& [rows, n] : {std::pair{2000, 200}, {1000, 100}, {500, 60}, {200, 24}, {60, 8}}) {
    const auto size = static_cast<std::size_t>(rows) * static_cast<std::size_t>(n);
    Values<T> panel = random_values<T>(size);
    for (int j = 0; j < n; ++j) panel[static_cast<std::size_t>(j) * (rows + 1)] = T(4.0 * n);
    const auto fresh = panel;
    RightSolve<T> s;
    s.m = rows - n;
    s.n = n;
    s.l = panel.data();
    s.l_col = s.ldx = rows;
    s.x = panel.data() + n;
    const double solve_work = operations_of_one / 2 * s.m * n * n;
    const double own = seconds_of(solve_work / 40e9, {[&] { kernel.solve_right(s); }})[0];
    double blas = 0;  // its rate is told for double values alone
    if constexpr (std::is_same_v<T, double>) {
      const double one = 1;
      const double seconds = seconds_of(
          solve_work / 40e9,
          {[&] { dtrsm_("R", "L", "T", "N", &s.m, &n, &one, s.l, &rows, s.x, &rows); }})[0];
      blas = solve_work / seconds * 1e-9;
    }
    const double block_work = operations_of_one / 6 * n * n * n;
    Values<T> block(size);
    std::vector<int> pivot(static_cast<std::size_t>(n));
    const auto timed = [&](const auto& factor) {
      const auto run = [&] {
        for (int j = 0; j < n; ++j)
          std::copy_n(fresh.data() + static_cast<std::size_t>(j) * rows, n,
                      block.data() + static_cast<std::size_t>(j) * rows);
        factor();
      };
      return block_work * 1e-9 / seconds_of(block_work / 5e9, {run})[0];
    };
    BlockPivots<T> stats;
    const double cholesky = timed([&] { kernel.cholesky(n, block.data(), rows); });
    const double ldlt = timed([&] { kernel.ldlt(n, block.data(), rows, pivot.data(), stats); });
    const double diagonal =
        timed([&] { kernel.ldlt_diagonal(n, block.data(), rows, pivot.data(), stats); });
    std::printf("%-8s %5d %5d %11.1f %8.1f %9.1f %7.1f %9.1f\n", "", rows, n,
                solve_work / own * 1e-9, blas, cholesky, ldlt, diagonal);
  }
}

template <class T>
void measure_all(const std::string& isa, double operations_of_one) {
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    if (isa.empty() || isa == kernel->isa) {
      measure(*kernel, operations_of_one);
      measure_panels(*kernel, operations_of_one);
    }
}

int run(int argc, char** argv) {
  std::string isa, kinds = "d";
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--isa")) isa = argv[i + 1];
    if (!std::strcmp(argv[i], "--kind")) kinds = argv[i + 1];
  }
  openblas_set_num_threads(1);
  std::printf("OpenBLAS kernels: %s\n", openblas_get_corename());
  for (const char kind : kinds) {
    if (kind == 'd') measure_all<double>(isa, 2);
    if (kind == 's') measure_all<float>(isa, 2);
    if (kind == 'z') measure_all<zcomplex>(isa, 8);
  }
  return 0;
}

}  // namespace
}  // namespace vlm

int main(int argc, char** argv) { return vlm::run(argc, argv); }
