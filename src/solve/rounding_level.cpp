// SPDX-License-Identifier: BSD-3-Clause
/// The residual and |A||x| + |b| in one pass.
#include "solve/rounding_level.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>

#include "base/matrix_types.hpp"
#include "base/progress.hpp"
#include "base/sparse_product.hpp"

namespace vlm {
namespace {

using sparse::Access;

/// Right-hand sides that share a pass.
constexpr int group = 4;

double size_of(double v) { return std::abs(v); }
double size_of(const zcomplex& v) { return std::abs(v.real()) + std::abs(v.imag()); }

/// The product of two sizes exceeds the modulus of a complex product by at most this factor.
template <class T>
constexpr double excess = sizeof(T) == sizeof(double) ? 1 : 2;

/// What is gathered of one row, the right-hand sides next to each other.
template <class T, int width>
struct Row {
  T residual[width];
  double scale[width];  ///< |A||x|
};

/// Of some rows of one right-hand side.
struct Found {
  bool good = true;
  double residual = 0, scale = 0;
  Found& operator+=(const Found& other) {
    good = good && other.good;
    residual += other.residual;
    scale += other.scale;
    return *this;
  }
  bool passes() const { return good && residual <= whole_residual * scale; }
};

/// Entries of the matrix are asked for so many ahead: its arrays lie in small pages, at whose ends
/// the processor's own prefetching stops.
constexpr int ahead = 64;

/// Subtracts rows first to last-1 of the matrix times x from the residuals, adds their sizes.
/// @param x  [n * width], the values of one unknown next to each other
template <Access access, int width, class T>
void take_rows(const InputMatrix& m, const T* __restrict x, Row<T, width>* __restrict out,
               int first, int last) {
  const T* const values = values_as<T>(m.a);
  for (std::ptrdiff_t i = first; i < last; ++i) {
    T sum[width] = {}, own[width];
    double scale[width] = {}, own_size[width];
    for (int k = 0; k < width; ++k) {
      own[k] = x[i * width + k];
      own_size[k] = size_of(own[k]);
    }
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      __builtin_prefetch(values + p + ahead);
      __builtin_prefetch(m.ja + p + ahead);
      const std::ptrdiff_t j = m.ja[p] - 1;
      const T a = values[p];
      const double a_size = size_of(a);
      if constexpr (sparse::gathers(access)) {
        const T here = maybe_conj<access == Access::hermitian_transpose>(a);
        for (int k = 0; k < width; ++k) add_product(sum[k], here, x[j * width + k]);
        for (int k = 0; k < width; ++k) scale[k] += a_size * size_of(x[j * width + k]);
      }
      if constexpr (sparse::scatters(access)) {
        if (sparse::mirrors(access) && j == i) continue;
        const T there = -maybe_conj<access == Access::hermitian>(a);
        Row<T, width>& row = out[j];
        for (int k = 0; k < width; ++k) add_product(row.residual[k], there, own[k]);
        for (int k = 0; k < width; ++k) row.scale[k] += a_size * own_size[k];
      }
    }
    if constexpr (sparse::gathers(access)) {
      for (int k = 0; k < width; ++k) {
        out[i].residual[k] -= sum[k];
        out[i].scale[k] += scale[k];
      }
    }
  }
}

/// What a row's residual may be of its |A||x| + |b|.  The largest among many rows is larger.
double allowed_part(int n) { return worst_row * std::max(1.0, std::sqrt(n / many_rows)); }

/// Judges one row of one right-hand side.
template <class T>
void judge(const T& r, double scale, const T& b, double allowed, Found& found) {
  const double residual = size_of(r), whole = (scale + size_of(b)) / excess<T>;
  if (!(residual <= allowed * whole)) found.good = false;
  found.residual += residual;
  found.scale += whole;
}

/// One right-hand side, by a team.
template <Access access, class T>
bool single(const SparseProduct& product, const T* x, const T* b, double* room) {
  const InputMatrix& m = product.matrix;
  const std::int64_t n = m.n;
  // Threads that add into foreign rows have all rows to themselves.
  constexpr bool apart = sparse::scatters(access);
  auto* const rows = reinterpret_cast<Row<T, 1>*>(room);
  const sparse::Rows<sparse::Format{1, sparse::Diagonal::anywhere, true}, int, T> A{
      m.n, m.n, m.ia, m.ja, values_as<T>(m.a)};
  const int threads = A.nnz() < sparse::worth_a_team ? 1 : product.nthreads;
  const double allowed = allowed_part(m.n);
  return sum_over_team(threads,
                       [&](int thread, int team) {
                         Row<T, 1>* const own = rows + (apart ? n * thread : 0);
                         const int from = sparse::share_begin(A, thread, team);
                         const int to = sparse::share_begin(A, thread + 1, team);
                         for (int i = apart ? 0 : from; i < (apart ? m.n : to); ++i)
                           own[i] = {{apart && thread > 0 ? T(0) : b[i]}, {0}};
                         take_rows<access, 1>(m, x, own, from, to);
                         if (apart) sparse::wait_for_team(team);
                         Found found;
                         for (int i = from; i < to; ++i) {
                           Row<T, 1> row = rows[i];
                           for (int other = 1; apart && other < team; ++other) {
                             const Row<T, 1>& part = rows[n * other + i];
                             row.residual[0] += part.residual[0];
                             row.scale[0] += part.scale[0];
                           }
                           judge(row.residual[0], row.scale[0], b[i], allowed, found);
                         }
                         return found;
                       })
      .passes();
}

/// Four right-hand sides, by one thread.
template <Access access, class T>
bool together(const SparseProduct& product, const T* x, const T* b, double* room) {
  const InputMatrix& m = product.matrix;
  const std::ptrdiff_t n = m.n;
  auto* const rows = reinterpret_cast<Row<T, group>*>(room);
  T* const mixed = reinterpret_cast<T*>(rows + n);
  const double allowed = allowed_part(m.n);
  for (std::ptrdiff_t i = 0; i < n; ++i)
    for (int k = 0; k < group; ++k) {
      mixed[i * group + k] = x[i + k * n];
      rows[i].residual[k] = b[i + k * n];
      rows[i].scale[k] = 0;
    }
  take_rows<access, group>(m, mixed, rows, 0, m.n);
  Found found[group];
  for (std::ptrdiff_t i = 0; i < n; ++i)
    for (int k = 0; k < group; ++k)
      judge(rows[i].residual[k], rows[i].scale[k], b[i + k * n], allowed, found[k]);
  return std::ranges::all_of(found, &Found::passes);
}

/// Doubles that one right-hand side takes on one thread, and a group of them.
std::size_t single_room(int n, int nvals) {
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(nvals + 1);
}
std::size_t group_room(int n, int nvals) {
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(group * (2 * nvals + 1));
}

/// Teams of one that share many right-hand sides.
int sharers(int nrhs, int nthreads) { return std::max(1, std::min(nthreads, nrhs / group)); }

template <Access access, class T>
bool all_columns(const SparseProduct& product, int nrhs, const T* x, const T* b, double* room) {
  const std::ptrdiff_t n = product.matrix.n;
  if (nrhs < group) {
    for (int k = 0; k < nrhs; ++k)
      if (!single<access>(product, x + k * n, b + k * n, room)) return false;
    return true;
  }
  // The last group reaches back over columns of the one before it.
  const int groups = (nrhs + group - 1) / group;
  const std::ptrdiff_t entries = product.matrix.ia[n] - 1;
  const bool worth_it = entries * nrhs >= sparse::worth_a_team;
  const int threads = worth_it ? sharers(nrhs, product.nthreads) : 1;
  const std::size_t own = group_room(product.matrix.n, sizeof(T) / sizeof(double));
  std::atomic<bool> good = true;
  const auto take = [&](int g, int thread) {
    if (!good.load(std::memory_order_relaxed)) return;
    const std::ptrdiff_t at = n * std::min(g * group, nrhs - group);
    if (!together<access>(product, x + at, b + at, room + static_cast<std::size_t>(thread) * own))
      good.store(false, std::memory_order_relaxed);
  };
  if (threads == 1) {
    for (int g = 0; g < groups; ++g) {
      pulse();
      take(g, 0);
    }
  } else {
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
    for (int g = 0; g < groups; ++g) take(g, omp_get_thread_num());
  }
  return good;
}

template <class T>
bool by_type(const SparseProduct& product, int nrhs, const double* x, const double* b,
             double* room) {
  const auto go = [&]<Access access>() {
    return all_columns<access>(product, nrhs, values_as<T>(x), values_as<T>(b), room);
  };
  const MatrixType& type = matrix_type(product.mtype);
  if (type.hermitian)
    return product.transpose ? go.template operator()<Access::hermitian_transpose>()
                             : go.template operator()<Access::hermitian>();
  if (type.symmetric) return go.template operator()<Access::triangle>();
  return product.transpose ? go.template operator()<Access::columns>()
                           : go.template operator()<Access::rows>();
}

}  // namespace

std::size_t rounding_room(int n, int nvals, int nrhs, int nthreads) {
  if (nrhs < group) return single_room(n, nvals) * static_cast<std::size_t>(std::max(1, nthreads));
  return group_room(n, nvals) * static_cast<std::size_t>(sharers(nrhs, nthreads));
}

bool at_rounding_level(const SparseProduct& product, int nrhs, const double* x, const double* b,
                       double* room) {
  return matrix_type(product.mtype).complex ? by_type<zcomplex>(product, nrhs, x, b, room)
                                            : by_type<double>(product, nrhs, x, b, room);
}

}  // namespace vlm
