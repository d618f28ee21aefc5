// SPDX-License-Identifier: BSD-3-Clause
/// What the smat routines share: scalars and walks over compressed rows.
///
/// A routine that acts on real and complex matrices alike is one template over the scalar T,
/// double or complex<double>; by_kind picks the instance from the record.  Rows<T> is the
/// read-only look at a record that such templates take: 0-based, row i at ia[i] .. ia[i+1]-1.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include "NORV/corelib/base.hpp"

namespace vlm::norv {

// ---- scalars ----------------------------------------------------------------------------

/// Quotient after R. Smith, "Algorithm 116: Complex division", 1962: the larger part of the
/// divisor decides which part is divided by.
inline double quotient(double a, double b) { return a / b; }
inline zcomplex quotient(zcomplex a, zcomplex b) {
  if (std::fabs(b.real()) >= std::fabs(b.imag())) {
    const double r = b.imag() / b.real(), den = b.real() + r * b.imag();
    return {(a.real() + a.imag() * r) / den, (a.imag() - a.real() * r) / den};
  }
  const double r = b.real() / b.imag(), den = b.imag() + r * b.real();
  return {(a.real() * r + a.imag()) / den, (a.imag() * r - a.real()) / den};
}

inline double modulus(double a) { return std::fabs(a); }
inline double modulus(zcomplex a) { return std::abs(a); }
inline double squared(double a) { return a * a; }
inline double squared(zcomplex a) { return a.real() * a.real() + a.imag() * a.imag(); }
inline double real_part(double a) { return a; }
inline double real_part(zcomplex a) { return a.real(); }
inline double imag_part(double) { return 0.0; }
inline double imag_part(zcomplex a) { return a.imag(); }

// ---- rows -------------------------------------------------------------------------------

template <typename T>
struct Rows {
  int m, n;       ///< rows, columns
  bool sym;       ///< upper triangle stored
  const int* ia;  ///< row starts [m+1]
  const int* ja;  ///< columns
  const T* a;     ///< values; null in a bare structure
};

template <typename T>
Rows<T> rows(const smat* A) {
  return {static_cast<int>(A->m), static_cast<int>(A->n), A->sym != 0, A->ia, A->ja,
          values_as<T>(A->a)};
}

inline unsigned size(const perm* p) { return static_cast<unsigned>(p->n); }

/// Type number of the constructors.
inline int type_of(int sym, int is_complex) { return (sym ? 1 : 0) + (is_complex ? 2 : 0); }
inline int type_of(const smat* A) { return type_of(A->sym, A->is_complex); }

/// f(i, j, k) for every entry (i, j) of the completed matrix, an smat or Rows: stored ones, and
/// the mirror images that a symmetric matrix leaves out.  k is the place in ja and a.
template <typename Matrix, typename F>
void for_each_place(const Matrix& A, F f) {
  const int m = static_cast<int>(A.m);
  for (int i = 0; i < m; ++i) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      f(i, A.ja[k], k);
      if (A.sym && A.ja[k] != i) f(A.ja[k], i, k);
    }
  }
}

/// The same with the value: f(i, j, v).
template <typename T, typename F>
void for_each_entry(const Rows<T>& A, F f) {
  for_each_place(A, [&](int i, int j, int k) { f(i, j, A.a[k]); });
}

/// Drops in place the entries for which keep(i, j, v) is false.  The arrays keep their room, so
/// that a wrapped matrix stays with its caller's arrays.
template <typename T, typename F>
void keep_entries(smat* A, F keep) {
  T* a = values_as<T>(A->a);
  int put = 0, begin = A->ia[0];
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    const int end = A->ia[i + 1];
    for (int k = begin; k < end; ++k) {
      if (!keep(i, A->ja[k], a ? a[k] : T{})) continue;
      A->ja[put] = A->ja[k];
      if (a) a[put] = a[k];
      ++put;
    }
    begin = end;
    A->ia[i + 1] = put;
  }
  A->nnz = static_cast<unsigned>(put);
}

/// Place of entry (i, j) in ja and a, or -1.  The row's columns rise; O(log of its length).
int find_entry(const smat* A, int i, int j);

/// f(i, k) for the diagonal entries (i, i), k their place or -1.
template <typename F>
void for_each_diagonal(const smat* A, F f) {
  const int n = static_cast<int>(std::min(A->m, A->n));
  for (int i = 0; i < n; ++i) f(i, find_entry(A, i, i));
}

/// The moduli of the diagonal, 0 where nothing is stored, to d[0..min(m,n)-1].
template <typename T>
void diagonal_moduli(const smat* A, double* d) {
  for_each_diagonal(A, [&](int i, int k) { d[i] = k < 0 ? 0.0 : modulus(values_as<T>(A->a)[k]); });
}

/// New matrix of A's shape and type with the diagonal as its pattern; values are undefined.
smat* new_diagonal(const smat* A);

/// f(values of x as T) with T A's kind of values: beside a complex A a real x is widened.
template <typename F>
void with_values_of_kind(const smat* A, const vec* x, F f) {
  if (A->is_complex == x->is_complex)
    return by_kind(A->is_complex, [&](auto zero) { f(values_as<decltype(zero)>(x->v)); });
  const Buffer<zcomplex> widened(x->v, x->v + x->n);
  f(widened.data());
}

/// Gives a record without entries its arrays for nnz of them, and sets nnz.  A bare structure
/// has no values.
void reserve_entries(smat* A, unsigned nnz, bool with_values = true);

/// Sorts every row by column, values along (A->a may be null); equal columns keep their order.
template <typename T>
void sort_rows(smat* A);

/// Gives A the arrays and the shape of B, frees A's own and the header of B.
void adopt(smat* A, smat* B);

/// Changes m and n, in the embedded operator too; the arrays must fit.
void set_shape(smat* A, unsigned m, unsigned n);

/// Fills B, a record without entries, from A: entry (i, j) goes to the row and column that
/// target(i, j) names.  The entries of a row of B come in the order in which A stores them.
template <typename T, typename Target>
void scatter_entries(const Rows<T>& A, smat* B, Target target) {
  for (int i = 0; i < A.m; ++i) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) ++B->ia[target(i, A.ja[k]).first + 1];
  }
  reserve_entries(B, counts_to_starts(B->ia, B->m), A.a != nullptr);
  Buffer<int> next(B->ia, B->ia + B->m);
  T* b = A.a ? values_as<T>(B->a) : nullptr;
  for (int i = 0; i < A.m; ++i) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      const auto [p, q] = target(i, A.ja[k]);
      const int at = next[p]++;
      B->ja[at] = q;
      if (b) b[at] = A.a[k];
    }
  }
}

/// New transpose of the stored entries, whatever `sym` says; rows come out sorted.
template <typename T>
smat* transpose_stored(const smat* A);

/// New matrix of the given type with both patterns merged; rows of both must be sorted.
/// op(a, b) gives the value from pointers to the entries, one of which may be null.
template <typename T, typename Op>
smat* merge(const smat* A, const smat* B, int type, Op op) {
  const Rows<T> P = rows<T>(A), Q = rows<T>(B);
  // f(i, j, p, q) for each place of the union, -1 for the side that lacks it.
  const auto each = [&](auto f) {
    for (int i = 0; i < P.m; ++i) {
      int p = P.ia[i], q = Q.ia[i];
      while (p < P.ia[i + 1] || q < Q.ia[i + 1]) {
        const int jp = p < P.ia[i + 1] ? P.ja[p] : std::numeric_limits<int>::max();
        const int jq = q < Q.ia[i + 1] ? Q.ja[q] : std::numeric_limits<int>::max();
        const bool at_p = jp <= jq, at_q = jq <= jp;
        f(i, at_p ? jp : jq, at_p ? p : -1, at_q ? q : -1);
        p += at_p;
        q += at_q;
      }
    }
  };
  smat* C = smat_new(A->m, A->n, type);
  each([&](int i, int, int, int) { ++C->ia[i + 1]; });
  reserve_entries(C, counts_to_starts(C->ia, C->m));
  int put = 0;
  T* c = values_as<T>(C->a);
  each([&](int, int j, int p, int q) {
    C->ja[put] = j;
    c[put++] = op(p < 0 ? nullptr : P.a + p, q < 0 ? nullptr : Q.a + q);
  });
  return C;
}

}  // namespace vlm::norv
