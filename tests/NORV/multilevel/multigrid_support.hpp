// SPDX-License-Identifier: BSD-3-Clause
/// What the tests of the multigrid hierarchies share.
#pragma once

#include <omp.h>
#include <stdlib.h>

#include "NORV/multilevel/record.hpp"
#include "norv_objects.hpp"

namespace vlm::test {

struct FreeHierarchy {
  void operator()(aml* h) const { aml_free(h); }
};
using OwnAml = std::unique_ptr<aml, FreeHierarchy>;

/// A matrix of the gallery with both triangles stored.
inline Smat full(const Matrix& m) { return to_smat(m.triangle() ? expanded(m) : m); }

/// Relative residual, by an independent product.
inline double relative_residual(const Smat& A, const Vec& x, const Vec& b) {
  return residual_by_rows(A.get(), x.get(), b.get());
}

/// sum x(i) y(i).
inline cplx dot(const Vec& x, const Vec& y) {
  cplx sum = 0;
  for (std::size_t i = 0; i < x->n; ++i)
    sum += value(x->v, x->is_complex, i) * value(y->v, y->is_complex, i);
  return sum;
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
  Vec x = zeros(b->n, cpx), z = zeros(b->n, cpx), p = zeros(b->n, cpx), q = zeros(b->n, cpx);
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
