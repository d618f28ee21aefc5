// SPDX-License-Identifier: BSD-3-Clause
/// The residual and |A||x| + |b| in one pass.
#include "solve/rounding_level.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "base/matrix_types.hpp"
#include "base/progress.hpp"
#include "base/sparse_product.hpp"
#include "base/team.hpp"
#include "kernels/choice.hpp"

namespace vlm {
namespace {

using sparse::Access;

/// Right-hand sides that share a pass.
constexpr int group = residual_group;
/// Right-hand sides from which a group is worth it, the last one standing in for those that lack.
constexpr int worth_a_group = 3;

double size_of(double v) { return std::abs(v); }
double size_of(const zcomplex& v) { return std::abs(v.real()) + std::abs(v.imag()); }

/// The product of two sizes exceeds the modulus of a complex product by at most this factor.
template <class T>
constexpr double excess = sizeof(T) == sizeof(double) ? 1 : 2;

/// What is gathered of one row of a right-hand side.
template <class T>
struct Row {
  T residual;
  double scale;  ///< |A||x|
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
template <Access access, class T>
void take_rows(const InputMatrix& m, const T* __restrict x, Row<T>* __restrict out, int first,
               int last) {
  const T* const values = values_as<T>(m.a);
  for (std::ptrdiff_t i = first; i < last; ++i) {
    T sum{};
    double scale = 0;
    const T own = x[i];
    const double own_size = size_of(own);
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      __builtin_prefetch(values + p + ahead);
      __builtin_prefetch(m.ja + p + ahead);
      const std::ptrdiff_t j = m.ja[p] - 1;
      const T a = values[p];
      const double a_size = size_of(a);
      if constexpr (sparse::gathers(access)) {
        add_product(sum, maybe_conj<access == Access::hermitian_transpose>(a), x[j]);
        scale += a_size * size_of(x[j]);
      }
      if constexpr (sparse::scatters(access)) {
        if (sparse::mirrors(access) && j == i) continue;
        add_product(out[j].residual, -maybe_conj<access == Access::hermitian>(a), own);
        out[j].scale += a_size * own_size;
      }
    }
    if constexpr (sparse::gathers(access)) {
      out[i].residual -= sum;
      out[i].scale += scale;
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
/// @param left  its residual, where that is wanted
template <Access access, class T>
Found single(const SparseProduct& product, const T* x, const T* b, double* room, T* left) {
  const InputMatrix& m = product.matrix;
  const std::int64_t n = m.n;
  // Threads that add into foreign rows have all rows to themselves.
  constexpr bool apart = sparse::scatters(access);
  auto* const rows = reinterpret_cast<Row<T>*>(room);
  const sparse::Rows<sparse::Format{1, sparse::Diagonal::anywhere, true}, int, T> A{
      m.n, m.n, m.ia, m.ja, values_as<T>(m.a)};
  const int threads = A.nnz() < sparse::worth_a_team ? 1 : product.nthreads;
  const double allowed = allowed_part(m.n);
  return sum_over_team(threads, [&](int thread, int team) {
    Row<T>* const own = rows + (apart ? n * thread : 0);
    const int from = sparse::share_begin(A, thread, team);
    const int to = sparse::share_begin(A, thread + 1, team);
    for (int i = apart ? 0 : from; i < (apart ? m.n : to); ++i)
      own[i] = {apart && thread > 0 ? T(0) : b[i], 0};
    take_rows<access>(m, x, own, from, to);
    if (apart) sparse::wait_for_team(team);
    Found found;
    for (int i = from; i < to; ++i) {
      Row<T> row = rows[i];
      for (int other = 1; apart && other < team; ++other) {
        const Row<T>& part = rows[n * other + i];
        row.residual += part.residual;
        row.scale += part.scale;
      }
      judge(row.residual, row.scale, b[i], allowed, found);
      if (left != nullptr) left[i] = row.residual;
    }
    return found;
  });
}

/// The real parts of a group's values, then the imaginary ones.
void put_parts(double* to, double v) { to[0] = v; }
void put_parts(double* to, const zcomplex& v) {
  to[0] = v.real();
  to[group] = v.imag();
}
template <class T>
T from_parts(const double* from) {
  if constexpr (std::is_same_v<T, double>)
    return from[0];
  else
    return {from[0], from[group]};
}

/// Calls f(begin, end) for pieces of n rows, whose residuals stay in the second-level cache.  The
/// listener may end the call between them.
template <class F>
void by_pieces(int n, const F& f) {
  constexpr int piece = 2048;
  for (int begin = 0; begin < n; begin += std::min(piece, n - begin)) {
    pulse();
    f(begin, begin + std::min(piece, n - begin));
  }
}

/// Right-hand sides `first` to `last` - 1, at most a group, and what is wanted of them.
struct Group {
  int first, last;
  const LeftOver& left;
  bool failing;  ///< another group has failed the test
};

/// Rows begin to end-1 of a group's residuals to their columns.
template <class T>
void hand_out(const Group& g, std::ptrdiff_t n, const double* residual, int begin, int end) {
  constexpr std::ptrdiff_t width = group * sizeof(T) / sizeof(double);
  constexpr int strip = 8;  // rows that stay in the first-level cache
  for (std::ptrdiff_t i = begin; i < end; i += strip)
    for (int k = g.first; k < g.last; ++k) {
      T* const to = values_as<T>(g.left.residual) + n * k;
      const double* const from = residual + k - g.first;
      for (std::ptrdiff_t row = i; row < std::min<std::ptrdiff_t>(i + strip, end); ++row)
        to[row] = from_parts<T>(from + row * width);
    }
}

/// A group of right-hand sides, by one thread.  @return whether all of them pass
template <Access access, class T>
bool together(const SparseProduct& product, const Group& g, const T* x, const T* b, double* room) {
  const InputMatrix& m = product.matrix;
  const std::ptrdiff_t n = m.n, width = group * sizeof(T) / sizeof(double);
  double* const mixed = room;
  double* const residual = mixed + n * width;
  double* const scale = residual + n * width;
  std::ptrdiff_t column[group];
  for (int k = 0; k < group; ++k) column[k] = n * std::min(g.first + k, g.last - 1);
  by_pieces(m.n, [&](int begin, int end) {
    for (std::ptrdiff_t i = begin; i < end; ++i)
      for (int k = 0; k < group; ++k) {
        put_parts(mixed + i * width + k, x[i + column[k]]);
        put_parts(residual + i * width + k, b[i + column[k]]);
        scale[i * group + k] = size_of(b[i + column[k]]);
      }
  });
  const double allowed = allowed_part(m.n);
  Found found[group];
  const auto judge_rows = [&](int begin, int end) {
    for (std::ptrdiff_t i = begin; i < end; ++i)
      for (int k = 0; k < group; ++k)
        judge(from_parts<T>(residual + i * width + k), scale[i * group + k], T(0), allowed,
              found[k]);
    if (g.failing) hand_out<T>(g, n, residual, begin, end);
  };
  by_pieces(m.n, [&](int begin, int end) {
    kernels<T>().residual_rows({.first = begin,
                                .last = end,
                                .ia = m.ia,
                                .ja = m.ja,
                                .a = values_as<T>(m.a),
                                .gathers = sparse::gathers(access),
                                .scatters = sparse::scatters(access),
                                .conjugate_here = access == Access::hermitian_transpose,
                                .conjugate_there = access == Access::hermitian,
                                .x = mixed,
                                .residual = residual,
                                .scale = scale});
    // Rows of a stored triangle get nothing from those behind them.
    if (sparse::gathers(access)) judge_rows(begin, end);
  });
  if (!sparse::gathers(access)) by_pieces(m.n, judge_rows);
  const bool passes = std::ranges::all_of(found, &Found::passes);
  if (g.left.residual == nullptr) return passes;
  if (passes && !g.failing) return true;
  if (!g.failing)
    by_pieces(m.n, [&](int begin, int end) { hand_out<T>(g, n, residual, begin, end); });
  for (int k = g.first; k < g.last; ++k) g.left.norm[k] = found[k - g.first].residual;
  return passes;
}

/// Doubles that one right-hand side takes on one thread, and a group of them.
std::size_t single_room(int n, int nvals) {
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(nvals + 1);
}
std::size_t group_room(int n, int nvals) {
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(group * (2 * nvals + 1));
}

int groups_of(int nrhs) { return (nrhs + group - 1) / group; }

/// Teams of one that share many right-hand sides.
int sharers(int nrhs, int nthreads) { return std::max(1, std::min(nthreads, groups_of(nrhs))); }

/// One after the other.
template <Access access, class T>
bool one_by_one(const SparseProduct& product, int nrhs, const T* x, const T* b, double* room,
                const LeftOver& left) {
  const std::ptrdiff_t n = product.matrix.n;
  const bool wanted = left.residual != nullptr;
  bool good = true;
  for (int k = 0; k < nrhs && (good || wanted); ++k) {
    const Found found = single<access>(product, x + k * n, b + k * n, room,
                                       wanted ? values_as<T>(left.residual) + k * n : nullptr);
    if (!found.passes()) good = false;
    if (wanted) left.norm[k] = found.residual;
  }
  return good;
}

/// Calls take(g, thread) for all groups.
template <class Take>
void share_groups(int groups, int threads, const Take& take) {
  if (threads == 1) {
    for (int g = 0; g < groups; ++g) {
      pulse();
      take(g, 0);
    }
    return;
  }
  TeamFailure failure;
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
  for (int g = 0; g < groups; ++g)
    failure.guard([&] {
      pulse();
      take(g, omp_get_thread_num());
    });
  failure.rethrow();
}

template <Access access, class T>
bool all_columns(const SparseProduct& product, int nrhs, const T* x, const T* b, double* room,
                 const LeftOver& left) {
  if (nrhs < worth_a_group) return one_by_one<access>(product, nrhs, x, b, room, left);
  const int groups = groups_of(nrhs);
  const std::ptrdiff_t entries = product.matrix.ia[product.matrix.n] - 1;
  const bool worth_it = entries * nrhs >= sparse::worth_a_team;
  const int threads = worth_it ? sharers(nrhs, product.nthreads) : 1;
  const std::size_t own = group_room(product.matrix.n, sizeof(T) / sizeof(double));
  const bool wanted = left.residual != nullptr;
  std::atomic<bool> good = true;
  constexpr double none = -1;  // no residuals yet
  if (wanted) std::fill_n(left.norm, nrhs, none);
  const auto take = [&](int g, int thread) {
    const bool failing = !good.load(std::memory_order_relaxed);
    if (failing && (!wanted || left.norm[g * group] != none)) return;
    const Group those{.first = g * group,
                      .last = std::min(nrhs, (g + 1) * group),
                      .left = left,
                      .failing = failing && wanted};
    if (!together<access>(product, those, x, b, room + static_cast<std::size_t>(thread) * own))
      good.store(false, std::memory_order_relaxed);
  };
  share_groups(groups, threads, take);
  // Groups that passed before another one failed have kept their residuals to themselves.
  if (!good && wanted) share_groups(groups, threads, take);
  return good;
}

template <class T>
bool by_type(const SparseProduct& product, int nrhs, const double* x, const double* b, double* room,
             const LeftOver& left) {
  const auto go = [&]<Access access>() {
    return all_columns<access>(product, nrhs, values_as<T>(x), values_as<T>(b), room, left);
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
  if (nrhs < worth_a_group)
    return single_room(n, nvals) * static_cast<std::size_t>(std::max(1, nthreads));
  return group_room(n, nvals) * static_cast<std::size_t>(sharers(nrhs, nthreads));
}

bool at_rounding_level(const SparseProduct& product, int nrhs, const double* x, const double* b,
                       double* room, const LeftOver& left) {
  return matrix_type(product.mtype).complex ? by_type<zcomplex>(product, nrhs, x, b, room, left)
                                            : by_type<double>(product, nrhs, x, b, room, left);
}

}  // namespace vlm
