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
#include "base/team.hpp"

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
  Row& operator+=(const Row& other) {
    for (int k = 0; k < width; ++k) {
      residual[k] += other.residual[k];
      scale[k] += other.scale[k];
    }
    return *this;
  }
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

/// Rows first to last-1 of -A x and |A||x|.
/// @param x    [n * width], the values of one unknown next to each other
/// @param out  [n], gets what the entries bring to the rows of their columns
/// @param own  own(i, row), what row i itself brings; rows of a triangle get nothing from rows behind
///             them, and are complete with it
template <Access access, int width, class T, class Own>
void take_rows(const InputMatrix& m, const T* __restrict x, Row<T, width>* __restrict out,
               int first, int last, const Own& own) {
  const T* const values = values_as<T>(m.a);
  for (std::ptrdiff_t i = first; i < last; ++i) {
    Row<T, width> sum{};
    T x_own[width];
    double x_size[width];
    for (int k = 0; k < width; ++k) {
      x_own[k] = x[i * width + k];
      x_size[k] = size_of(x_own[k]);
    }
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      __builtin_prefetch(values + p + ahead);
      __builtin_prefetch(m.ja + p + ahead);
      const std::ptrdiff_t j = m.ja[p] - 1;
      const T a = values[p];
      const double a_size = size_of(a);
      if constexpr (sparse::gathers(access)) {
        const T here = -maybe_conj<access == Access::hermitian_transpose>(a);
        for (int k = 0; k < width; ++k) add_product(sum.residual[k], here, x[j * width + k]);
        for (int k = 0; k < width; ++k) sum.scale[k] += a_size * size_of(x[j * width + k]);
      }
      if constexpr (sparse::scatters(access)) {
        if (sparse::mirrors(access) && j == i) continue;
        const T there = -maybe_conj<access == Access::hermitian>(a);
        Row<T, width>& row = out[j];
        for (int k = 0; k < width; ++k) add_product(row.residual[k], there, x_own[k]);
        for (int k = 0; k < width; ++k) row.scale[k] += a_size * x_size[k];
      }
    }
    if constexpr (sparse::gathers(access)) own(i, sum);
  }
}

/// What a row's residual may be of its |A||x| + |b|.  The largest among many rows is larger.
double allowed_part(int n) { return worst_row * std::max(1.0, std::sqrt(n / many_rows)); }

/// Judges one row of each right-hand side.
/// @param b       values of the row, one for each, `stride` apart
/// @param allowed allowed_part()
template <class T, int width>
void judge(const Row<T, width>& row, const T* b, std::ptrdiff_t stride, double allowed,
           Found* found) {
  for (int k = 0; k < width; ++k) {
    const T right = b[k * stride];
    const double residual = size_of(right + row.residual[k]);
    const double whole = (row.scale[k] + size_of(right)) / excess<T>;
    if (!(residual <= allowed * whole)) found[k].good = false;
    found[k].residual += residual;
    found[k].scale += whole;
  }
}

/// One right-hand side, by a team.
template <Access access, class T>
bool single(const SparseProduct& product, const T* x, const T* b, double* room) {
  const InputMatrix& m = product.matrix;
  const std::int64_t n = m.n;
  // Threads that add into foreign rows have all rows to themselves.
  constexpr bool apart = sparse::scatters(access);
  using One = Row<T, 1>;
  auto* const rows = reinterpret_cast<One*>(room);
  const sparse::Rows<sparse::Format{1, sparse::Diagonal::anywhere, true}, int, T> A{
      m.n, m.n, m.ia, m.ja, values_as<T>(m.a)};
  const int threads = A.nnz() < sparse::worth_a_team ? 1 : product.nthreads;
  const double allowed = allowed_part(m.n);
  return sum_over_team(
             threads,
             [&](int thread, int team) {
               One* const mine = rows + n * thread;
               const int from = sparse::share_begin(A, thread, team);
               const int to = sparse::share_begin(A, thread + 1, team);
               Found found;
               if constexpr (apart) {
                 std::fill_n(mine, n, One{});
                 take_rows<access, 1>(m, x, mine, from, to,
                                      [&](std::ptrdiff_t i, const One& own) { mine[i] += own; });
                 sparse::wait_for_team(team);
                 for (int i = from; i < to; ++i) {
                   One row = rows[i];
                   for (int other = 1; other < team; ++other) row += rows[n * other + i];
                   judge(row, b + i, 0, allowed, &found);
                 }
               } else {
                 take_rows<access, 1>(m, x, mine, from, to, [&](std::ptrdiff_t i, const One& own) {
                   judge(own, b + i, 0, allowed, &found);
                 });
               }
               return found;
             })
      .passes();
}

/// Four right-hand sides, by one thread.
/// @param rows   [n] zeros, which they are again afterwards
/// @param mixed  [group * n] scratch
template <Access access, class T>
bool together(const InputMatrix& m, const T* x, const T* b, Row<T, group>* rows, T* mixed) {
  const std::ptrdiff_t n = m.n;
  const double allowed = allowed_part(m.n);
  for (std::ptrdiff_t i = 0; i < n; ++i)
    for (int k = 0; k < group; ++k) mixed[i * group + k] = x[i + k * n];
  Found found[group];
  const auto finish = [&](std::ptrdiff_t i, Row<T, group>& row) {
    judge(row, b + i, n, allowed, found);
    row = {};
  };
  take_rows<access, group>(m, mixed, rows, 0, m.n, [&](std::ptrdiff_t i, Row<T, group>& own) {
    if constexpr (sparse::scatters(access)) {
      rows[i] += own;
      finish(i, rows[i]);
    } else {
      finish(i, own);
    }
  });
  if constexpr (!sparse::gathers(access))
    for (std::ptrdiff_t i = 0; i < n; ++i) finish(i, rows[i]);
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
  TeamFailure failure;
#pragma omp parallel num_threads(threads)
  {
    double* const mine = room + static_cast<std::size_t>(omp_get_thread_num()) * own;
    auto* const rows = reinterpret_cast<Row<T, group>*>(mine);
    std::fill_n(rows, n, Row<T, group>{});
#pragma omp for schedule(dynamic, 1)
    for (int g = 0; g < groups; ++g)
      failure.guard([&] {
        pulse();
        if (!good.load(std::memory_order_relaxed)) return;
        const std::ptrdiff_t at = n * std::min(g * group, nrhs - group);
        if (!together<access>(product.matrix, x + at, b + at, rows, reinterpret_cast<T*>(rows + n)))
          good.store(false, std::memory_order_relaxed);
      });
  }
  failure.rethrow();
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
