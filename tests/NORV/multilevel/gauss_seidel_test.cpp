// SPDX-License-Identifier: BSD-3-Clause
/// Gauss-Seidel sweeps: against plain ones, and what they promise of residual and transpose.
#include "NORV/multilevel/gauss_seidel.hpp"

#include "multigrid_support.hpp"

namespace vlm::test {
namespace {

using norv::GaussSeidel;

/// Sweeps of one part on a matrix of the given type against the formula.
template <class T>
void compare_with_plain(const Smat& A, bool symmetric, RandomContainers& random) {
  const GaussSeidel<T> sweeps(norv::rows<T>(A.get()), symmetric);
  const Vec b = random.vector(A->m, A->is_complex), x = random.vector(A->m, A->is_complex);
  const Vec r(smat_calc_residual(nullptr, A.get(), x.get(), b.get())),
      work = zeros(A->m, A->is_complex);
  const Picture M = picture(A);
  const auto at = [&](const Vec& v, int i) { return value(v->v, v->is_complex, std::size_t(i)); };
  std::vector<cplx> plain;
  for (int i = 0; i < M.m; ++i) plain.push_back(at(x, i));
  const auto relax = [&](int i) {
    if (M(i, i) == 0.0) return;
    cplx rest = at(b, i);
    for (int j = 0; j < M.n; ++j) rest -= M(i, j) * plain[std::size_t(j)];
    plain[std::size_t(i)] += rest / M(i, i);
  };
  const auto same = [&] {
    for (int i = 0; i < M.m; ++i)
      ASSERT_LT(std::abs(at(x, i) - plain[std::size_t(i)]),
                1e-9 * (1 + std::abs(plain[std::size_t(i)])));
  };
  sweeps.correct(vlm::values<T>(x.get()), vlm::values<T>(r.get()), vlm::values<T>(work.get()),
                 false);
  for (int i = 0; i < M.m; ++i) relax(i);
  same();
  const Vec left(smat_calc_residual(nullptr, A.get(), x.get(), b.get()));
  EXPECT_LT(distance(picture(r), picture(left)), 1e-9);
  sweeps.backward(vlm::values<T>(b.get()), vlm::values<T>(x.get()), vlm::values<T>(work.get()));
  for (int i = M.m; i-- > 0;) relax(i);
  same();
}

TEST(GaussSeidel, SweepsAsThePlainOne) {
  RandomContainers random(5);
  for (const int type : {NORV_REAL_SYM, NORV_CPX_SYM, NORV_REAL_UNSYM, NORV_CPX_UNSYM}) {
    const bool sym = type & 1;
    Smat A = random.matrix(40, 40, type, 0.15, true);
    smat_add_diag(A.get(), 4.0);
    if (sym) smat_to_full_structure(A.get());
    // A zero on the diagonal leaves its unknown alone.
    for (int k = A->ia[7]; k < A->ia[8]; ++k)
      if (A->ja[k] == 7) std::fill_n(A->a + (k << A->is_complex), 1 + A->is_complex, 0.0);
    by_kind(A->is_complex, [&](auto kind) { compare_with_plain<decltype(kind)>(A, sym, random); });
  }
}

// Two parts: the residual still belongs to x, the backward sweep is the transpose of the forward
// one, and neither depends on the threads that run them.
TEST(GaussSeidel, PartsKeepResidualAndTranspose) {
  RandomContainers random(6);
  for (const Matrix& m : {poisson3d(34), convection_diffusion(34, 3.0, 1)}) {
    SCOPED_TRACE(m.name);
    const Smat A = full(m);
    const bool symmetric = m.triangle();
    const Threads two(2);
    const GaussSeidel<double> sweeps(norv::rows<double>(A.get()), symmetric);
    const Vec u = random.vector(A->m, 0), v = random.vector(A->m, 0), work = zeros(A->m, 0);
    const Vec x = zeros(A->m, 0), y = zeros(A->m, 0), r(vec_copy(nullptr, u.get()));
    sweeps.correct(x->v, r->v, work->v, true);
    const Vec left(smat_calc_residual(nullptr, A.get(), x.get(), u.get()));
    vec_sub(left.get(), left.get(), r.get());
    EXPECT_LT(vec_inf_norm(left.get()), 1e-12);
    // x = M^-1 u and y = M^-T v, where the transpose is that of A.
    if (symmetric) {
      sweeps.backward(v->v, y->v, work->v);
      EXPECT_NEAR(vec_dot(x.get(), v.get()), vec_dot(u.get(), y.get()),
                  1e-10 * vec_euclid_norm(u.get()) * vec_euclid_norm(v.get()));
    }
    const Threads one(1);
    const Vec again = zeros(A->m, 0), rest(vec_copy(nullptr, u.get()));
    sweeps.correct(again->v, rest->v, work->v, true);
    EXPECT_TRUE(vec_equal(again.get(), x.get()));
    EXPECT_TRUE(vec_equal(rest.get(), r.get()));
  }
}

}  // namespace
}  // namespace vlm::test
