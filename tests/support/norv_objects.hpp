// SPDX-License-Identifier: BSD-3-Clause
/// Owners of the iterative library's objects, and gallery matrices as its records.
#pragma once

#include <memory>

#include "gallery.hpp"
#include "smat_dense.hpp"

namespace vlm::test {

struct FreePrecon {
  void operator()(precon* M) const { precon_free(M, -1); }
};
using Precon = std::unique_ptr<precon, FreePrecon>;
struct FreeSolver {
  void operator()(solver* s) const { solver_free(s); }
};
using Solver = std::unique_ptr<solver, FreeSolver>;

/// A gallery matrix with base 0, in its own storage.
inline Smat to_smat(const Matrix& m) {
  std::vector<int> row;
  for (int i = 0; i < m.n; ++i) row.insert(row.end(), std::size_t(m.ia[i + 1] - m.ia[i]), i);
  std::vector<int> col(m.ja);
  for (int& j : col) --j;
  return Smat(smat_new_from_coord(unsigned(m.n), unsigned(m.n), unsigned(col.size()), row.data(),
                                  col.data(), m.a.data(),
                                  (m.triangle() ? 1 : 0) + (m.complex() ? 2 : 0)));
}

inline Vec filled(unsigned n, bool cpx, unsigned seed) {
  return RandomContainers(seed).vector(n, cpx);
}
inline Vec zeros(unsigned n, bool cpx) { return Vec(cpx ? vec_new_zero_cpx(n) : vec_new_zero(n)); }

/// ||b - A x|| / ||b|| from the dense picture's rows, by plain sums.
inline double residual_by_rows(const smat* A, const vec* x, const vec* b) {
  const int n = int(A->m), cpx = A->is_complex;
  std::vector<cplx> r(static_cast<std::size_t>(n));
  double norm_b = 0, norm_r = 0;
  for (int i = 0; i < n; ++i)
    norm_b += std::norm(r[std::size_t(i)] = value(b->v, cpx, std::size_t(i)));
  for (int i = 0; i < n; ++i)
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const int j = A->ja[k];
      const cplx a = value(A->a, cpx, std::size_t(k));
      r[std::size_t(i)] -= a * value(x->v, cpx, std::size_t(j));
      if (A->sym && j != i) r[std::size_t(j)] -= a * value(x->v, cpx, std::size_t(i));
    }
  for (const cplx& each : r) norm_r += std::norm(each);
  return std::sqrt(norm_r / norm_b);
}

/// An instance of a class, set up for A; a failed setup is a failure of the test.
inline Precon prepared(const char* name, smat* A) {
  Precon M(precon_new_by_name(name));
  EXPECT_NE(M, nullptr) << name;
  if (M) {
    EXPECT_EQ(precon_setup(M.get(), A), 1) << name;
  }
  return M;
}

}  // namespace vlm::test
