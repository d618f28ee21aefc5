// SPDX-License-Identifier: BSD-3-Clause
// Products of sparse matrices and vectors against a plain loop and a copy of the same bytes.
//
//   smat_bench [edge [repeats]]     cube of edge^3 points, 100 by default; 15 repeats
//
// Each row of the table is one matrix of a 7- or 27-point stencil.  The three candidates take
// turns, so that a machine that is busy slows all of them; the table shows the shortest time of
// each in milliseconds, and in brackets how many times the copy it takes.  Every product is
// compared with the plain loop's before it is timed.  Copy and plain loop run on one thread, the
// products on those of OMP_NUM_THREADS: set it to 1 to compare them with each other.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "norv.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Stencil matrix of a cube with `reach` 1 for faces only (7 points) or 3 for all (27 points).
smat* stencil(int edge, int reach, int type) {
  std::vector<int> row, col;
  std::vector<double> a;
  const auto node = [&](int x, int y, int z) { return (z * edge + y) * edge + x; };
  const auto inside = [&](int x) { return x >= 0 && x < edge; };
  for (int i = 0; i < edge * edge * edge; ++i) {
    const int x = i % edge, y = i / edge % edge, z = i / edge / edge;
    for (int d = 0; d < 27; ++d) {
      const int dx = d % 3 - 1, dy = d / 3 % 3 - 1, dz = d / 9 - 1;
      if (std::abs(dx) + std::abs(dy) + std::abs(dz) > reach) continue;
      if (!inside(x + dx) || !inside(y + dy) || !inside(z + dz)) continue;
      const int j = node(x + dx, y + dy, z + dz);
      if ((type & 1) && j < i) continue;
      row.push_back(i);
      col.push_back(j);
      a.push_back(i == j ? 26.5 : -1.0 - 0.001 * d);
      if (type & 2) a.push_back(0.25 * dx);
    }
  }
  const unsigned n = static_cast<unsigned>(edge * edge * edge);
  return smat_new_from_coord(n, n, static_cast<unsigned>(row.size()), row.data(), col.data(),
                             a.data(), type);
}

/// The product as one writes it down: y = A x.
template <typename T>
void plain_loop(const smat* A, const vec* x, vec* y) {
  const T* a = reinterpret_cast<const T*>(A->a);
  const T* xv = reinterpret_cast<const T*>(x->v);
  T* yv = reinterpret_cast<T*>(y->v);
  const int m = static_cast<int>(A->m);
  if (A->sym) std::fill_n(yv, m, T{});
  for (int i = 0; i < m; ++i) {
    T sum{};
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      sum += a[k] * xv[A->ja[k]];
      if (A->sym && A->ja[k] != i) yv[A->ja[k]] += a[k] * xv[i];
    }
    if (A->sym) {
      yv[i] += sum;
    } else {
      yv[i] = sum;
    }
  }
}

double largest_difference(const vec* x, const vec* y) {
  double worst = 0.0;
  for (std::size_t k = 0; k < (std::size_t{x->n} << x->is_complex); ++k) {
    worst = std::max(worst, std::fabs(x->v[k] - y->v[k]));
  }
  return worst;
}

vec* new_like(const smat* A) { return A->is_complex ? vec_new_zero_cpx(A->m) : vec_new_zero(A->m); }

double milliseconds(const std::function<void()>& f) {
  const auto begin = Clock::now();
  f();
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

void measure(const char* name, int edge, int reach, int type, int repeats) {
  smat* A = stencil(edge, reach, type);
  vec *x = new_like(A), *y = new_like(A), *z = new_like(A);
  vec_rand(x);
  const std::size_t index_bytes = (std::size_t{A->m} + 1 + A->nnz) * sizeof(int);
  const std::size_t value_bytes = (std::size_t{A->nnz} << A->is_complex) * sizeof(double);
  std::vector<char> copy(index_bytes + value_bytes, 1);

  const auto plain = [&] {
    if (A->is_complex) {
      plain_loop<std::complex<double>>(A, x, y);
    } else {
      plain_loop<double>(A, x, y);
    }
  };
  const std::function<void()> candidates[] = {
      [&] {
        char* to = copy.data();
        std::memcpy(to, A->ia, (std::size_t{A->m} + 1) * sizeof(int));
        to += (std::size_t{A->m} + 1) * sizeof(int);
        std::memcpy(to, A->ja, A->nnz * sizeof(int));
        std::memcpy(to + A->nnz * sizeof(int), A->a, value_bytes);
      },
      plain,
      [&] { smat_vecmul(z, A, x); },
      [&] { smat_vecmul_trans(z, A, x); },
  };
  plain();
  smat_vecmul(z, A, x);
  const double error = largest_difference(y, z);

  double best[4] = {INFINITY, INFINITY, INFINITY, INFINITY};
  for (int r = 0; r < repeats; ++r) {
    for (int c = 0; c < 4; ++c) best[c] = std::min(best[c], milliseconds(candidates[c]));
  }
  std::printf("%-22s %9u %10u %8.1f %8.2f", name, A->m, A->nnz,
              1e-6 * static_cast<double>(index_bytes + value_bytes), best[0]);
  for (int c = 1; c < 4; ++c) std::printf("  %8.2f (%4.2f)", best[c], best[c] / best[0]);
  std::printf("  %8.1e\n", error);
  for (vec* v : {x, y, z}) vec_release(v);
  smat_free(A);
}

}  // namespace

int main(int argc, char** argv) {
  const int edge = argc > 1 ? std::atoi(argv[1]) : 100;
  const int repeats = argc > 2 ? std::atoi(argv[2]) : 15;
  std::printf("%-22s %9s %10s %8s %8s  %15s  %15s  %15s  %8s\n", "matrix", "rows", "entries", "MB",
              "copy", "plain loop", "vecmul", "vecmul_trans", "error");
  measure("7-point real", edge, 1, NORV_REAL_UNSYM, repeats);
  measure("7-point real sym", edge, 1, NORV_REAL_SYM, repeats);
  measure("7-point complex", edge, 1, NORV_CPX_UNSYM, repeats);
  measure("7-point complex sym", edge, 1, NORV_CPX_SYM, repeats);
  measure("27-point real", edge, 3, NORV_REAL_UNSYM, repeats);
  measure("27-point real sym", edge, 3, NORV_REAL_SYM, repeats);
  measure("27-point complex", edge, 3, NORV_CPX_UNSYM, repeats);
  return 0;
}
