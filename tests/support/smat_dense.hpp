// SPDX-License-Identifier: BSD-3-Clause
/// Random sparse matrices of the containers, and their dense pictures.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "norv.h"

namespace vlm::test {

using cplx = std::complex<double>;

/// Dense m by n, row-major; always complex.
struct Picture {
  int m = 0, n = 0;
  std::vector<cplx> v;

  Picture(int rows, int columns) : m(rows), n(columns), v(std::size_t(rows) * columns) {}
  cplx& operator()(int i, int j) { return v[std::size_t(i) * n + j]; }
  cplx operator()(int i, int j) const { return v[std::size_t(i) * n + j]; }
};

struct FreeSmat {
  void operator()(smat* A) const { smat_free(A); }
};
struct FreeVec {
  void operator()(vec* x) const { vec_release(x); }
};
struct FreePerm {
  void operator()(perm* p) const { perm_free(p); }
};
using Smat = std::unique_ptr<smat, FreeSmat>;
using Vec = std::unique_ptr<vec, FreeVec>;
using Perm = std::unique_ptr<perm, FreePerm>;

inline cplx value(const double* v, int is_complex, std::size_t k) {
  return is_complex ? cplx(v[2 * k], v[2 * k + 1]) : cplx(v[k]);
}

/// The completed matrix; entries that stand twice add up.
inline Picture picture(const smat* A) {
  Picture P(int(A->m), int(A->n));
  for (int i = 0; i < P.m; ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      P(i, A->ja[k]) += value(A->a, A->is_complex, std::size_t(k));
      if (A->sym && A->ja[k] != i) P(A->ja[k], i) += value(A->a, A->is_complex, std::size_t(k));
    }
  }
  return P;
}
inline Picture picture(const Smat& A) { return picture(A.get()); }

/// A vector as one column.
inline Picture picture(const vec* x) {
  Picture P(int(x->n), 1);
  for (int i = 0; i < P.m; ++i) P(i, 0) = value(x->v, x->is_complex, std::size_t(i));
  return P;
}
inline Picture picture(const Vec& x) { return picture(x.get()); }

inline Picture transposed(const Picture& A) {
  Picture T(A.n, A.m);
  for (int i = 0; i < A.m; ++i)
    for (int j = 0; j < A.n; ++j) T(j, i) = A(i, j);
  return T;
}

inline Picture operator*(const Picture& A, const Picture& B) {
  Picture C(A.m, B.n);
  for (int i = 0; i < A.m; ++i)
    for (int k = 0; k < A.n; ++k)
      for (int j = 0; j < B.n; ++j) C(i, j) += A(i, k) * B(k, j);
  return C;
}

/// alpha A + beta B.
inline Picture combined(cplx alpha, const Picture& A, cplx beta, const Picture& B) {
  Picture C(A.m, A.n);
  for (std::size_t k = 0; k < C.v.size(); ++k) C.v[k] = alpha * A.v[k] + beta * B.v[k];
  return C;
}

inline Picture diagonal(const vec* d) {
  Picture D(int(d->n), int(d->n));
  for (int i = 0; i < D.m; ++i) D(i, i) = value(d->v, d->is_complex, std::size_t(i));
  return D;
}

/// f(i, j, v) at every place.
template <typename F>
Picture mapped(Picture A, F f) {
  for (int i = 0; i < A.m; ++i)
    for (int j = 0; j < A.n; ++j) A(i, j) = f(i, j, A(i, j));
  return A;
}

inline Picture window(const Picture& A, int r0, int r1, int c0, int c1) {
  Picture W(r1 - r0, c1 - c0);
  for (int i = r0; i < r1; ++i)
    for (int j = c0; j < c1; ++j) W(i - r0, j - c0) = A(i, j);
  return W;
}

/// Largest difference; infinity for other shapes and for NaN.
inline double distance(const Picture& A, const Picture& B) {
  if (A.m != B.m || A.n != B.n) return INFINITY;
  double worst = 0.0;
  for (std::size_t k = 0; k < A.v.size(); ++k) {
    const double d = std::abs(A.v[k] - B.v[k]);
    if (!(d <= worst)) worst = std::isnan(d) ? INFINITY : d;
  }
  return worst;
}

#define EXPECT_NEAR_PICTURE(A, B) EXPECT_LT(::vlm::test::distance((A), (B)), 1e-12)

/// Random containers; the type number says whether they are symmetric and complex.
class RandomContainers {
 public:
  explicit RandomContainers(unsigned seed) : engine_(seed) {}

  double number() { return std::uniform_real_distribution<>(-1.0, 1.0)(engine_); }
  int below(int n) { return std::uniform_int_distribution<>(0, n - 1)(engine_); }

  Vec vector(unsigned n, int is_complex) {
    Vec x(is_complex ? vec_new_cpx(n) : vec_new(n));
    for (unsigned k = 0; k < (n << is_complex); ++k) x->v[k] = number();
    return x;
  }

  Perm permutation(int n) {
    Perm p(perm_new(n));
    perm_ident(p.get());
    std::shuffle(p->p, p->p + n, engine_);
    return p;
  }

  /// Each place is stored with the given probability; with full_diagonal the diagonal always.
  Smat matrix(unsigned m, unsigned n, int type, double density, bool full_diagonal = false) {
    std::vector<int> row, col;
    std::vector<double> a;
    for (int i = 0; i < int(m); ++i) {
      for (int j = type & 1 ? i : 0; j < int(n); ++j) {
        if (!(full_diagonal && i == j) && number() * 0.5 + 0.5 >= density) continue;
        row.push_back(i);
        col.push_back(j);
        for (int part = 0; part <= type >> 1; ++part) a.push_back(number());
      }
    }
    // In any order, as coordinates come.
    std::vector<std::size_t> order(row.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::shuffle(order.begin(), order.end(), engine_);
    const std::size_t width = type >> 1 ? 2 : 1;
    std::vector<int> r, c;
    std::vector<double> v;
    for (std::size_t k : order) {
      r.push_back(row[k]);
      c.push_back(col[k]);
      v.insert(v.end(), a.begin() + long(k * width), a.begin() + long((k + 1) * width));
    }
    return Smat(smat_new_from_coord(m, n, unsigned(r.size()), r.data(), c.data(), v.data(), type));
  }

 private:
  std::mt19937 engine_;
};

/// Rows rise strictly and stay inside; unlike the library's check, rows may be empty.
inline bool well_formed(const smat* A) {
  if (A->ia[0] != 0 || A->ia[A->m] != int(A->nnz) || A->op.data != A || A->op.m != int(A->m) ||
      A->op.n != int(A->n)) {
    return false;
  }
  for (int i = 0; i < int(A->m); ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      if (A->ja[k] < (A->sym ? i : 0) || A->ja[k] >= int(A->n)) return false;
      if (k > A->ia[i] && A->ja[k - 1] >= A->ja[k]) return false;
    }
  }
  return true;
}
inline bool well_formed(const Smat& A) { return well_formed(A.get()); }

}  // namespace vlm::test
