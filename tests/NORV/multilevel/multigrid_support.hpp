// SPDX-License-Identifier: BSD-3-Clause
/// What the tests of the multigrid hierarchies share.
#pragma once

#include <omp.h>
#include <stdlib.h>

#include "NORV/multilevel/record.hpp"
#include "gallery.hpp"
#include "smat_dense.hpp"

namespace vlm::test {

struct FreePrecon {
  void operator()(precon* M) const { precon_free(M, -1); }
};
using Precon = std::unique_ptr<precon, FreePrecon>;

struct FreeHierarchy {
  void operator()(aml* h) const { aml_free(h); }
};
using OwnAml = std::unique_ptr<aml, FreeHierarchy>;

/// A matrix of the gallery with both triangles stored.
inline Smat full(const Matrix& matrix) {
  const Matrix m = matrix.triangle() ? expanded(matrix) : matrix;
  std::vector<int> row, column;
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      row.push_back(i);
      column.push_back(m.ja[k] - 1);
    }
  return Smat(smat_new_from_coord(unsigned(m.n), unsigned(m.n), unsigned(row.size()), row.data(),
                                  column.data(), m.a.data(),
                                  m.complex() ? NORV_CPX_UNSYM : NORV_REAL_UNSYM));
}

/// Relative residual, by an independent product.
inline double relative_residual(const Smat& A, const Vec& x, const Vec& b) {
  double norm_r = 0, norm_b = 0;
  for (int i = 0; i < int(A->m); ++i) {
    cplx r = value(b->v, b->is_complex, std::size_t(i));
    norm_b += std::norm(r);
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k)
      r -= value(A->a, A->is_complex, std::size_t(k)) *
           value(x->v, x->is_complex, std::size_t(A->ja[k]));
    norm_r += std::norm(r);
  }
  return std::sqrt(norm_r / norm_b);
}

/// sum x(i) y(i).
inline cplx dot(const Vec& x, const Vec& y) {
  cplx sum = 0;
  for (std::size_t i = 0; i < x->n; ++i)
    sum += value(x->v, x->is_complex, i) * value(y->v, y->is_complex, i);
  return sum;
}

inline Vec zero(unsigned n, int is_complex) {
  return Vec(is_complex ? vec_new_zero_cpx(n) : vec_new_zero(n));
}

/// Threads of OpenMP for the time of a scope.
class Threads {
 public:
  explicit Threads(int count) : before_(omp_get_max_threads()) { omp_set_num_threads(count); }
  ~Threads() { omp_set_num_threads(before_); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

 private:
  int before_;
};

/// Iterations of conjugate gradients (with bilinear products) to 1e-8; 200 when they don't get
/// there.
inline int conjugate_gradients(const Smat& A, precon* M, const Vec& b) {
  const int cpx = A->is_complex;
  Vec x = zero(b->n, cpx), z = zero(b->n, cpx), p = zero(b->n, cpx), q = zero(b->n, cpx);
  Vec r(vec_copy(nullptr, b.get()));
  cplx rho = 1;
  for (int k = 0; k < 200; ++k) {
    if (relative_residual(A, x, b) < 1e-8) return k;
    precon_solve(z.get(), M, r.get());
    const cplx before = std::exchange(rho, dot(r, z));
    const cplx beta = k == 0 ? 0 : rho / before;
    const auto update = [&](const Vec& y, cplx alpha, const Vec& u,
                            cplx gamma) {  // y = alpha u + gamma y
      for (std::size_t i = 0; i < y->n; ++i) {
        const cplx v = alpha * value(u->v, cpx, i) + gamma * value(y->v, cpx, i);
        if (cpx)
          y->v[2 * i] = v.real(), y->v[2 * i + 1] = v.imag();
        else
          y->v[i] = v.real();
      }
    };
    update(p, 1, z, beta);
    smat_vecmul(q.get(), A.get(), p.get());
    const cplx alpha = rho / dot(p, q);
    update(x, alpha, p, 1);
    update(r, -alpha, q, 1);
  }
  return 200;
}

}  // namespace vlm::test
