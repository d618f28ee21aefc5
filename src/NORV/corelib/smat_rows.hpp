// SPDX-License-Identifier: BSD-3-Clause
/// What the smat routines share: scalars, arrays and walks over compressed rows.
///
/// A routine that acts on real and complex matrices alike is one template over the scalar T,
/// double or complex<double>; by_kind picks the instance from the record.  Rows<T> is the
/// read-only look at a record that such templates take: 0-based, row i at ia[i] .. ia[i+1]-1.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "NORV/corelib/base.hpp"
#include "norv.h"

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

// ---- arrays -----------------------------------------------------------------------------

/// Allocator that ends the process instead of throwing.
template <typename T>
struct CheckedAllocator {
  using value_type = T;
  CheckedAllocator() = default;
  template <typename U>
  CheckedAllocator(const CheckedAllocator<U>&) {}
  T* allocate(std::size_t count) { return vlm::allocate<T>(count); }
  void deallocate(T* p, std::size_t) { std::free(p); }
  friend bool operator==(CheckedAllocator, CheckedAllocator) { return true; }
};

/// Scratch that can be filled from a range and grow.
template <typename T>
using Buffer = std::vector<T, CheckedAllocator<T>>;

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

/// f(i, j, v) for every entry of the completed matrix: stored ones, and the mirror images that
/// a symmetric matrix leaves out.
template <typename T, typename F>
void for_each_entry(const Rows<T>& A, F f) {
  for (int i = 0; i < A.m; ++i) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      f(i, A.ja[k], A.a[k]);
      if (A.sym && A.ja[k] != i) f(A.ja[k], i, A.a[k]);
    }
  }
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

/// Counts in start[1..n] to row starts in start[0..n]; start[0] is 0.  The sum must fit 32 bits,
/// otherwise the process ends as for exhausted memory.
/// @return  number of entries
unsigned counts_to_starts(int* start, unsigned n);

/// Gives a record without entries its arrays for nnz of them, and sets nnz.  A bare structure
/// has no values.
void reserve_entries(smat* A, unsigned nnz, bool with_values = true);

/// Sorts every row by column, values along (A->a may be null); equal columns keep their order.
template <typename T>
void sort_rows(smat* A);

/// Gives A the arrays and the shape of B, frees A's own and the header of B.
void adopt(smat* A, smat* B);

/// A factor as Lmat_new_nnz() makes it; capacity: entries that ja and a have room for, out.
smat* new_factor(unsigned m, unsigned n, unsigned estimate, int type, std::size_t* capacity);

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
