// SPDX-License-Identifier: BSD-3-Clause
// What a call costs when the system is small: microseconds and allocations of each phase.
//
//   small_bench [--threads N]
//
// Microseconds are processor time of the calling thread, the least over many rounds of the mean of
// a few calls.  Allocations are counted in malloc itself, so they are those of the whole process.
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "gallery/gallery.hpp"
#include "velmora.h"

namespace {
std::atomic<long> allocations{0};
}

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* malloc(std::size_t bytes) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(bytes);
}
void* calloc(std::size_t count, std::size_t bytes) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, bytes);
}
}

namespace {

double seconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

class Solver {
 public:
  Solver(const gallery::Matrix& m, int threads, int maxfct) : m_(m), maxfct_(maxfct) {
    const int direct = 0;
    int error = 0;
    iparm[2] = threads;
    velmorainit(pt_, &m.mtype, &direct, iparm, dparm_, &error);
  }
  ~Solver() { call(-1, 1, nullptr, nullptr); }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;
  void call(int phase, int mnum, double* b, double* x) {
    const int one = 1, quiet = 0;
    int error = 0;
    velmora(pt_, &maxfct_, &mnum, &m_.mtype, &phase, &m_.n, m_.a.data(), m_.ia.data(), m_.ja.data(),
            nullptr, &one, iparm, &quiet, b, x, &error, dparm_);
    if (error != 0) std::printf("phase %d: error %d\n", phase, error);
  }
  int iparm[64] = {};

 private:
  const gallery::Matrix& m_;
  int maxfct_;
  void* pt_[64] = {};
  double dparm_[64] = {};
};

struct Cost {
  double microseconds = 1e300;
  long allocations = 0;
};

template <class Body>
Cost measure(Body body) {
  Cost cost;
  for (int k = 0; k < 5; ++k) body(k);
  const long before = allocations.load();
  body(5);
  cost.allocations = allocations.load() - before;
  constexpr int calls = 10;
  for (int round = 0; round < 200; ++round) {
    const double start = seconds();
    for (int k = 0; k < calls; ++k) body(k);
    cost.microseconds = std::min(cost.microseconds, (seconds() - start) / calls * 1e6);
  }
  return cost;
}

void run(const gallery::Matrix& m, int threads) {
  std::vector<double> b(static_cast<std::size_t>(m.n) * m.nvals(), 1.0), x(b.size());
  Solver whole(m, threads, 1), s(m, threads, 2);
  s.call(12, 1, nullptr, nullptr);
  s.call(22, 2, nullptr, nullptr);
  std::printf("| %s | %d | %d", m.name.c_str(), m.mtype, m.n);
  const auto print = [](const Cost& cost) {
    std::printf(" | %.2f | %ld", cost.microseconds, cost.allocations);
  };
  print(measure([&](int) { whole.call(13, 1, b.data(), x.data()); }));
  print(measure([&](int) { whole.call(11, 1, nullptr, nullptr); }));
  print(measure([&](int) { s.call(22, 1, nullptr, nullptr); }));
  print(measure([&](int k) { s.call(22, 1 + k % 2, nullptr, nullptr); }));
  print(measure([&](int) { s.call(33, 1, b.data(), x.data()); }));
  s.iparm[7] = 0;
  print(measure([&](int) { s.call(33, 1, b.data(), x.data()); }));
  std::puts(" |");
}

}  // namespace

int main(int argc, char** argv) {
  int threads = 1;
  for (int k = 1; k + 1 < argc; ++k)
    if (std::strcmp(argv[k], "--threads") == 0) threads = std::atoi(argv[k + 1]);
  std::printf("%d threads; each column: microseconds and allocations of a call\n\n", threads);
  std::puts(
      "| matrix | mtype | n | all, 13 | | analysis, 11 | | factorization, 22 | | two matrices in "
      "turns, 22 | | solve with refinement, 33 | | plain solve, 33 | |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|");
  for (const int n : {10, 100})
    for (const gallery::Matrix& m :
         {gallery::random_spd(n, 4, 1), gallery::tridiagonal(n, 2), gallery::dense(n, 3),
          gallery::random_indefinite(n, 0.1, 0.2, 7, 6),
          gallery::random_structurally_symmetric(n, 4, 4),
          gallery::random_unsymmetric(n, 4, 0.3, 5), gallery::random_unsymmetric(n, 4, 0.3, 6, 13)})
      run(m, threads);
}
