// SPDX-License-Identifier: BSD-3-Clause
/// The product of a sparse matrix in compressed rows with dense vectors: y = alpha A x + beta z.
///
/// One kernel serves full storage by rows, the transpose by columns, and the stored triangle
/// whose entries count on both sides, conjugated on one of them for Hermitian matrices; real and
/// complex values, either index base, one or several vectors, which lie column after column.
///
/// A pass reads the matrix once for up to four vectors.  With threads the rows are shared out by
/// their entries; where rows scatter into foreign places each thread but the first adds into a
/// private vector of the work area, and the vectors are summed afterwards.  A result depends on
/// the number of threads only; one thread opens no parallel region.
#pragma once

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "base/scalar.hpp"
#include "base/thread_guard.hpp"
#include "base/values.hpp"
#include "base/vector_primitives.hpp"

namespace vlm::sparse {

/// How a stored entry a(i,j) enters the product.
enum class Access {
  rows,                 ///< y(i) += a x(j)
  columns,              ///< y(j) += a x(i)
  triangle,             ///< both
  hermitian,            ///< both, y(j) with the conjugate
  hermitian_transpose,  ///< both, y(i) with the conjugate
};

constexpr bool gathers(Access access) { return access != Access::columns; }
constexpr bool scatters(Access access) { return access != Access::rows; }
constexpr bool mirrors(Access access) { return gathers(access) && scatters(access); }

/// Which entries of a stored triangle stand on its diagonal and count once.
enum class Diagonal {
  anywhere,  ///< those whose column says so
  leading,   ///< the same, and none stands behind an entry off the diagonal
  first,     ///< the first entry of each row, whatever its column; no other one
};

/// What the owner of a kind of matrices promises and wants.
struct Format {
  int base;           ///< the first index: 0 or 1
  Diagonal diagonal;  ///< of a stored triangle
  /// Products with several vectors occur.  Each row is then summed up from left to right, so that
  /// a column of the result does not depend on how many there are; otherwise in partial sums that
  /// do not wait for one another.
  bool several;
  bool absolute = false;  ///< entries enter by their absolute values, with several only
};

/// A matrix in compressed rows.  Start is the integer type of the row starts.
template <Format format, class Start, class T>
struct Rows {
  int m, n;            ///< rows, columns
  const Start* start;  ///< [m+1]
  const int* column;   ///< [nnz]
  const T* value;      ///< [nnz]

  std::ptrdiff_t nnz() const { return start[m] - start[0]; }
};

/// y = alpha A x + beta z.  y may be z, but must not overlap x.  With beta 0 z is not read.
template <class T>
struct Operands {
  double alpha;
  const T* x;
  double beta;
  const T* z;
  T* y;
  bool summed = false;  ///< the sum of absolute values of the doubles of y is wanted
};

/// Lengths of the vectors.
struct Lengths {
  std::ptrdiff_t x, y;
};
template <Access access, Format format, class Start, class T>
Lengths lengths(const Rows<format, Start, T>& A) {
  return access == Access::columns ? Lengths{A.m, A.n} : Lengths{A.n, A.m};
}

template <class T>
Operands<T> from_column(Operands<T> op, const Lengths& length, std::ptrdiff_t k) {
  op.x += k * length.x;
  op.y += k * length.y;
  op.z += k * length.y;
  return op;
}

inline double abs_sum(double v) { return std::abs(v); }
inline double abs_sum(const zcomplex& v) { return std::abs(v.real()) + std::abs(v.imag()); }

/// Sum of a(k) x(column(k)) over `count` entries, four at a time.
template <int base>
[[gnu::always_inline]] inline double gather(const double* a, const int* column,
                                            std::ptrdiff_t count, const double* x) {
  double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  std::ptrdiff_t k = 0;
  for (; k + 4 <= count; k += 4) {
    s0 += a[k] * x[column[k] - base];
    s1 += a[k + 1] * x[column[k + 1] - base];
    s2 += a[k + 2] * x[column[k + 2] - base];
    s3 += a[k + 3] * x[column[k + 3] - base];
  }
  for (; k < count; ++k) s0 += a[k] * x[column[k] - base];
  return (s0 + s1) + (s2 + s3);
}

/// The same for complex values, which the vector unit takes as pairs: a is summed up times the
/// real and times the imaginary part of x, and the two sums are joined at the end.
template <int base>
[[gnu::always_inline]] inline zcomplex gather(const zcomplex* a, const int* column,
                                              std::ptrdiff_t count, const zcomplex* x) {
  using Pair = double __attribute__((vector_size(16)));
  Pair re0{}, im0{}, re1{}, im1{};
  const auto add = [&](Pair& re, Pair& im, std::ptrdiff_t k) {
    const Pair pair{a[k].real(), a[k].imag()};
    const zcomplex& factor = x[column[k] - base];
    re += pair * factor.real();
    im += pair * factor.imag();
  };
  std::ptrdiff_t k = 0;
  for (; k + 2 <= count; k += 2) {
    add(re0, im0, k);
    add(re1, im1, k + 1);
  }
  if (k < count) add(re0, im0, k);
  re0 += re1;
  im0 += im1;
  return {re0[0] - im0[1], re0[1] + im0[0]};
}

/// A stored value as it enters the product.
template <Format format, bool conjugate, class T>
[[gnu::always_inline]] inline T entering(const T& v) {
  if constexpr (format.absolute)
    return T(std::abs(v));
  else
    return maybe_conj<conjugate>(v);
}

/// What the entries of row i give: terms of y(i) go to sum, those of other places are added there.
template <Access access, int width, Format format, class Start, class T>
[[gnu::always_inline]] inline void walk_row(const Rows<format, Start, T>& A, std::ptrdiff_t i,
                                            double alpha, const T* __restrict x,
                                            T* __restrict scattered, T (&sum)[width]) {
  constexpr auto here = [](const T& v) {
    return entering<format, access == Access::hermitian_transpose>(v);
  };
  constexpr auto mirrored = [](const T& v) {
    return entering<format, access == Access::hermitian>(v);
  };
  const auto [ldx, ldy] = lengths<access>(A);
  const int* __restrict const column = A.column;
  const T* __restrict const a = A.value;
  const Start begin = A.start[i] - format.base, end = A.start[i + 1] - format.base;
  if constexpr (access == Access::rows && !format.several) {
    sum[0] = gather<format.base>(a + begin, column + begin, end - begin, x);
    return;
  }
  Start p = begin;
  if constexpr (mirrors(access)) {
    constexpr bool by_place = format.diagonal == Diagonal::first;
    for (; p < end && (by_place ? p == begin : column[p] - format.base == i); ++p) {
      for (int k = 0; k < width; ++k) add_product(sum[k], here(a[p]), x[i + k * ldx]);
    }
  }
  T xi[width];
  if constexpr (scatters(access))
    for (int k = 0; k < width; ++k) xi[k] = alpha * x[i + k * ldx];
  for (; p < end; ++p) {
    const std::ptrdiff_t j = column[p] - format.base;
    if constexpr (gathers(access))
      for (int k = 0; k < width; ++k) add_product(sum[k], here(a[p]), x[j + k * ldx]);
    if constexpr (scatters(access))
      if (!mirrors(access) || format.diagonal != Diagonal::anywhere || j != i)
        for (int k = 0; k < width; ++k) add_product(scattered[j + k * ldy], mirrored(a[p]), xi[k]);
  }
}

/// Rows first to last-1 of `width` columns.  Scattering forms add to a y that has been set up.
/// @return sum of absolute values of the finished entries, when it is wanted and the rows
///         finish them
template <Access access, int width, Format format, class Start, class T>
double multiply_rows(const Rows<format, Start, T>& A, const Operands<T>& op, int first, int last) {
  const Operands<T> local = op;  // out of reach of what is stored through y
  const std::ptrdiff_t ld = lengths<access>(A).y;
  double total = 0;
  for (std::ptrdiff_t i = first; i < last; ++i) {
    T sum[width] = {};
    walk_row<access, width>(A, i, local.alpha, local.x, local.y, sum);
    if constexpr (gathers(access)) {
      for (int k = 0; k < width; ++k) {
        T& y = local.y[i + k * ld];
        const T term = local.alpha * sum[k];
        if constexpr (scatters(access))
          y += term;
        else
          y = local.beta != 0 ? local.beta * local.z[i + k * ld] + term : term;
        if (local.summed) total += abs_sum(y);
      }
    }
  }
  return total;
}

/// The same for any number of columns, four at a time.
template <Access access, Format format, class Start, class T>
double multiply_columns(const Rows<format, Start, T>& A, const Operands<T>& op, int ncolumns,
                        int first, int last) {
  if constexpr (!format.several) {
    return multiply_rows<access, 1>(A, op, first, last);
  } else {
    double total = 0;
    int k = 0;
    for (; k + 4 <= ncolumns; k += 4)
      total += multiply_rows<access, 4>(A, from_column(op, lengths<access>(A), k), first, last);
    const Operands<T> rest = from_column(op, lengths<access>(A), k);
    switch (ncolumns - k) {
      case 1:
        return total + multiply_rows<access, 1>(A, rest, first, last);
      case 2:
        return total + multiply_rows<access, 2>(A, rest, first, last);
      case 3:
        return total + multiply_rows<access, 3>(A, rest, first, last);
      default:
        return total;
    }
  }
}

/// Entries first to last-1 of y = beta z, what the scattered terms are added to.
template <class T>
void set_up(const Operands<T>& op, std::ptrdiff_t first, std::ptrdiff_t last) {
  if (op.beta == 0)
    std::fill(op.y + first, op.y + last, T{});
  else if (op.beta != 1.0)
    for (std::ptrdiff_t i = first; i < last; ++i) op.y[i] = op.beta * op.z[i];
  else if (op.y != op.z)
    std::copy(op.z + first, op.z + last, op.y + first);
}

/// Whole columns on the calling thread.
template <Access access, Format format, class Start, class T>
double multiply_serial(const Rows<format, Start, T>& A, const Operands<T>& op, int ncolumns) {
  const std::ptrdiff_t length = lengths<access>(A).y * ncolumns;
  if constexpr (scatters(access)) set_up(op, 0, length);
  const double total = multiply_columns<access>(A, op, ncolumns, 0, A.m);
  // Transposed rows finish their entries only at the end.
  return access == Access::columns && op.summed
             ? interleaved_sum(0, static_cast<std::size_t>(length),
                               [&](std::size_t k) { return abs_sum(op.y[k]); })
             : total;
}

/// First row of a thread's share, such that all shares have about the same number of entries.
template <Format format, class Start, class T>
int share_begin(const Rows<format, Start, T>& A, int thread, int nthreads) {
  if (thread >= nthreads) return A.m;
  const std::ptrdiff_t target = A.start[0] + A.nnz() * thread / nthreads;
  return static_cast<int>(std::lower_bound(A.start, A.start + A.m, target) - A.start);
}

/// Waits for the team of the innermost region; one thread alone may run outside of any.
inline void wait_for_team(int team) {
  if (team > 1) {
#pragma omp barrier
  }
}

/// One column, by all threads of the team; each but the first scatters into a private vector.
template <Access access, Format format, class Start, class T>
double multiply_shared(const Rows<format, Start, T>& A, const Operands<T>& op, int thread, int team,
                       T* work) {
  const std::ptrdiff_t n = lengths<access>(A).y;
  const std::ptrdiff_t first = n * thread / team, last = n * (thread + 1) / team;
  Operands<T> local = op;
  local.summed = false;
  if (thread > 0) {
    local.y = work + n * (thread - 1);
    std::fill(local.y, local.y + n, T{});
  }
  set_up(op, first, last);
  wait_for_team(team);
  multiply_rows<access, 1>(A, local, share_begin(A, thread, team),
                           share_begin(A, thread + 1, team));
  wait_for_team(team);
  double total = 0;
  for (std::ptrdiff_t i = first; i < last; ++i) {
    T sum = op.y[i];
    for (int other = 1; other < team; ++other) sum += work[n * (other - 1) + i];
    op.y[i] = sum;
    total += abs_sum(sum);
  }
  wait_for_team(team);
  return total;
}

template <Access access, Format format, class Start, class T>
double multiply_parallel(const Rows<format, Start, T>& A, const Operands<T>& op, int ncolumns,
                         int nthreads, T* work) {
  return sum_over_team(nthreads, [&](int thread, int team) {
    if constexpr (!scatters(access)) {
      return multiply_columns<access>(A, op, ncolumns, share_begin(A, thread, team),
                                      share_begin(A, thread + 1, team));
    } else if (ncolumns >= team) {
      const auto column = [&](int t) { return static_cast<int>(1LL * ncolumns * t / team); };
      return multiply_serial<access>(A, from_column(op, lengths<access>(A), column(thread)),
                                     column(thread + 1) - column(thread));
    } else {
      double total = 0;
      for (int k = 0; k < ncolumns; ++k)
        total +=
            multiply_shared<access>(A, from_column(op, lengths<access>(A), k), thread, team, work);
      return total;
    }
  });
}

/// Below this many multiplications, some 0.2 ms, a product is not worth a thread team.
constexpr std::ptrdiff_t worth_a_team = 400000;

/// Values of the work area.
template <Access access>
std::size_t work_length(std::ptrdiff_t length_of_y, int nthreads) {
  if (nthreads <= 1 || !scatters(access)) return 0;
  return static_cast<std::size_t>(length_of_y) * static_cast<std::size_t>(nthreads - 1);
}

/// The product for `ncolumns` vectors, one for a format without several.
/// @param work  work_length() values
/// @return sum of absolute values of the doubles of y when it is wanted
template <Access access, Format format, class Start, class T>
double multiply(const Rows<format, Start, T>& A, const Operands<T>& op, int ncolumns, int nthreads,
                T* work) {
  if (nthreads <= 1 || A.nnz() * ncolumns < worth_a_team)
    return multiply_serial<access>(A, op, ncolumns);
  return multiply_parallel<access>(A, op, ncolumns, nthreads, work);
}

/// Threads for callers that name no number: as many as OpenMP offers, one inside a parallel region.
inline int threads_offered() { return omp_in_parallel() ? 1 : count_threads(); }

/// The product of one vector for callers that name no number of threads.  The private vectors
/// take no more memory than the values of the matrix; where there is none for them, one thread
/// does it all.
template <Access access, Format format, class Start, class T>
void multiply(const Rows<format, Start, T>& A, const Operands<T>& op) {
  if (A.nnz() < worth_a_team) return void(multiply_serial<access>(A, op, 1));
  const std::ptrdiff_t length = lengths<access>(A).y;
  int nthreads = threads_offered();
  if (scatters(access))
    nthreads = static_cast<int>(std::min<std::ptrdiff_t>(nthreads, 1 + A.nnz() / length));
  const std::size_t count = work_length<access>(length, nthreads);
  const std::unique_ptr<T, decltype(&std::free)> work(
      count ? static_cast<T*>(std::malloc(count * sizeof(T))) : nullptr, &std::free);
  multiply<access>(A, op, 1, count && !work ? 1 : nthreads, work.get());
}

}  // namespace vlm::sparse
