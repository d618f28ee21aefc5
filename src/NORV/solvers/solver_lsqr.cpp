// SPDX-License-Identifier: BSD-3-Clause
/// LSQR: the bidiagonalization of G. Golub and W. Kahan, and a QR factorization of what it gives
/// (C. C. Paige and M. A. Saunders, LSQR: an algorithm for sparse linear equations and sparse least
/// squares, 1982).  Three vectors beside x.
#include <cmath>
#include <cstdio>
#include <limits>

#include "NORV/corelib/smat_rows.hpp"
#include "NORV/solvers/krylov.hpp"

namespace vlm {
namespace {

/// A matrix, whole or some rows of it, with its adjoint.
struct Operator {
  const smat* A;
  const rs_info* rs;  ///< null: the whole matrix
  bool trans;

  int rows() const { return rs != nullptr ? rs->row_lst->n : static_cast<int>(A->m); }
  int columns() const { return rs != nullptr ? rs->col_cnt : static_cast<int>(A->n); }
  void multiply(bool transposed, const vec* x, vec* y) const {
    if (rs == nullptr)
      transposed ? smat_vecmul_trans(y, A, x) : smat_vecmul(y, A, x);
    else
      transposed ? smat_gemv_trans_rs(A, rs, x, y) : smat_gemv_rs(A, rs, x, y);
  }
};

struct Limits {
  double damp, atol, btol, conlim;
  int itnlim;
};

void conjugate(vec* x) {
  if (x->is_complex)
    for (unsigned i = 0; i < x->n; ++i) x->v[2 * i + 1] = -x->v[2 * i + 1];
}

class Lsqr {
 public:
  Lsqr(const Operator& op, const Limits& limits, vec* x, const vec* b)
      : A(op),
        by(limits),
        x_(x),
        u(scratch_like(b)),
        v(scratch_like(x)),
        w(scratch_like(x)),
        image_u(scratch_like(b)),
        image_v(scratch_like(x)),
        prints(norv_debug_get_level() >= 1) {
    vec_copy(u.get(), b);
  }

  int solve() {
    print_header();
    vec_clear(x_);
    beta = vec_euclid_norm(u.get());
    if (beta > 0) {
      vec_scale(1 / beta, u.get());
      adjoint(v.get());
      alpha = vec_euclid_norm(v.get());
    }
    arnorm = alpha * beta;
    rnorm = r1norm = bnorm = beta;
    if (arnorm > 0) {
      vec_scale(1 / alpha, v.get());
      vec_copy(w.get(), v.get());
      rhobar = alpha;
      phibar = beta;
      print_step(1, alpha / beta);
      while (istop == 0) step();
    }
    print_end();
    return istop;
  }

 private:
  template <class... Arguments>
  void print(const char* format, Arguments... arguments) const {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    if (prints) std::printf(format, arguments...);
#pragma GCC diagnostic pop
  }

  void print_header() const {
    print(A.trans ? "LSQR            Least-squares solution of  A'x = b\n"
                  : "LSQR            Least-squares solution of  Ax = b\n");
    print("The matrix A has %8d rows  and %8d cols\n", A.rows(), A.columns());
    print("damp = %20.14e    wantvar = %8d\n", by.damp, 0);
    print("atol = %8.2e                 conlim = %8.2e\n", by.atol, by.conlim);
    print("btol = %8.2e                 itnlim = %8d\n", by.btol, by.itnlim);
    print("   Itn      x(1)       r1norm     r2norm  Compatible   LS      Norm A   Cond A \n");
  }
  void print_step(double test1, double test2) const {
    print("%6d %12.5e", itn, x_->n > 0 ? x_->v[0] : 0.0);
    print(" %10.3e %10.3e", r1norm, rnorm);
    print("  %8.1e %8.1e ", test1, test2);
    print(" %8.1e %8.1e\n", anorm, acond);
  }
  void print_end() const {
    print("LSQR finished\n");
    print("istop =%8d   r1norm =%8.1e    anorm =%8.1e   arnorm =%8.1e\n", istop, r1norm, anorm,
          arnorm);
    print("itn   =%8d   r2norm =%8.1e    acond =%8.1e   xnorm  =%8.1e\n", itn, rnorm, acond, xnorm);
  }

  /// to = A* u.
  void adjoint(vec* to) {
    conjugate(u.get());
    A.multiply(!A.trans, u.get(), to);
    conjugate(u.get());
    conjugate(to);
  }

  /// The next vectors u and v with their norms beta and alpha.
  void bidiagonalize() {
    A.multiply(A.trans, v.get(), image_u.get());
    vec_axpby(1.0, -alpha, u.get(), image_u.get(), u.get());
    beta = vec_euclid_norm(u.get());
    anorm = std::hypot(std::hypot(anorm, alpha), std::hypot(beta, by.damp));
    if (beta == 0) return;
    vec_scale(1 / beta, u.get());
    adjoint(image_v.get());
    vec_axpby(1.0, -beta, v.get(), image_v.get(), v.get());
    alpha = vec_euclid_norm(v.get());
    if (alpha > 0) vec_scale(1 / alpha, v.get());
  }

  /// The estimate of the norm of x, by a rotation from the right.
  void estimate_norm(double rho, double theta, double phi) {
    const double delta = sn2 * rho, gambar = -cs2 * rho, rhs = phi - delta * z;
    xnorm = std::hypot(std::sqrt(xxnorm), rhs / gambar);
    const double gamma = std::hypot(gambar, theta);
    cs2 = gambar / gamma;
    sn2 = theta / gamma;
    z = rhs / gamma;
    xxnorm += square(z);
  }

  void step() {
    ++itn;
    bidiagonalize();
    const double rhobar1 = std::hypot(rhobar, by.damp), psi = by.damp / rhobar1 * phibar;
    phibar *= rhobar / rhobar1;
    const double rho = std::hypot(rhobar1, beta), cs = rhobar1 / rho, sn = beta / rho;
    const double theta = sn * alpha, phi = cs * phibar;
    rhobar = -cs * alpha;
    phibar *= sn;
    vec_axpy(phi / rho, x_, w.get(), x_);
    ddnorm += square(vec_euclid_norm(w.get()) / rho);
    vec_axpby(1.0, -theta / rho, w.get(), v.get(), w.get());
    estimate_norm(rho, theta, phi);
    acond = anorm * std::sqrt(ddnorm);
    res2 += square(psi);
    rnorm = std::sqrt(square(phibar) + res2);
    arnorm = alpha * std::abs(sn * phi);
    r1norm = std::sqrt(std::abs(square(rnorm) - square(by.damp) * xxnorm));
    test();
  }

  void test() {
    const auto ratio = [](double a, double b) { return b > 0 ? a / b : 0.0; };
    const double test1 = rnorm / bnorm, test2 = ratio(arnorm, anorm * rnorm);
    const double test3 = ratio(1.0, acond), t1 = test1 / (1 + anorm * xnorm / bnorm);
    const double rtol = by.btol + by.atol * anorm * xnorm / bnorm;
    print_step(test1, test2);
    const double ctol = by.conlim > 0 ? 1 / by.conlim : 0.0;
    constexpr double eps = std::numeric_limits<double>::epsilon();
    if (itn >= by.itnlim) istop = 7;
    if (test3 <= eps) istop = 6;
    if (test2 <= eps) istop = 5;
    if (t1 <= eps) istop = 4;
    if (test3 <= ctol) istop = 3;
    if (test2 <= by.atol) istop = 2;
    if (test1 <= rtol) istop = 1;
    if (!std::isfinite(rnorm)) istop = 6;
  }

  const Operator A;
  const Limits by;
  vec* const x_;
  ScratchVec u, v, w, image_u, image_v;
  const bool prints;
  int istop = 0, itn = 0;
  double alpha = 0, beta = 0, rhobar = 0, phibar = 0;
  double anorm = 0, acond = 0, ddnorm = 0, res2 = 0, xnorm = 0, xxnorm = 0, z = 0, cs2 = -1,
         sn2 = 0;
  double bnorm = 0, rnorm = 0, r1norm = 0, arnorm = 0;
};

int run(const Operator& op, vec* x, const vec* b, const Limits& limits) {
  const int rows = op.trans ? op.columns() : op.rows(),
            columns = op.trans ? op.rows() : op.columns();
  NORV_ASSERT(static_cast<unsigned>(columns) == x->n);
  NORV_ASSERT(static_cast<unsigned>(rows) == b->n);
  NORV_ASSERT(op.A->is_complex == x->is_complex);
  NORV_ASSERT(op.A->is_complex == b->is_complex);
  return Lsqr(op, limits, x, b).solve();
}

/// f(i, j, value) for the entries of the rows, in their own numbers.
template <class T, class F>
void for_each_entry(const smat* A, const rs_info* rs, F f) {
  const norv::Rows<T> rows = norv::rows<T>(A);
  for (int i = 0; i < rs->row_lst->n; ++i) {
    const int row = rs->row_lst->p[i];
    for (int k = rows.ia[row]; k < rows.ia[row + 1]; ++k)
      f(i, rs->col_place[rows.ja[k]], rows.a[k]);
  }
}

}  // namespace
}  // namespace vlm

int lsqr(const smat* A, vec* x, const vec* b, int trans, double damp, double atol, double btol,
         double conlim, int itnlim) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  return vlm::run({A, nullptr, trans != 0}, x, b, {damp, atol, btol, conlim, itnlim});
}

int lsqr_rs(const smat* A, const rs_info* rs, vec* x, const vec* b, int trans, double damp,
            double atol, double btol, double conlim, int itnlim) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(rs != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  return vlm::run({A, rs, trans != 0}, x, b, {damp, atol, btol, conlim, itnlim});
}

rs_info* rs_info_new(const smat* A) {
  NORV_ASSERT(A != 0);
  auto* const rs = vlm::allocate_cleared<rs_info>(1);
  rs->col_place = vlm::allocate<int>(A->n);
  rs->col_lst = vlm::allocate<int>(A->n);
  for (unsigned j = 0; j < A->n; ++j) rs->col_place[j] = -1;
  rs->row_lst = perm_new(static_cast<int>(A->m));
  rs->row_lst->n = 0;
  return rs;
}

void rs_info_setup(rs_info* rs, const smat* A, int count, const int* rows) {
  NORV_ASSERT(rs != 0);
  NORV_ASSERT(A != 0);
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(count >= 0 && static_cast<unsigned>(count) <= A->m);
  for (int k = 0; k < rs->col_cnt; ++k) rs->col_place[rs->col_lst[k]] = -1;
  rs->col_cnt = 0;
  rs->row_lst->n = count;
  for (int i = 0; i < count; ++i) {
    const int row = rs->row_lst->p[i] = rows[i];
    for (int k = A->ia[row]; k < A->ia[row + 1]; ++k) {
      const int column = A->ja[k];
      if (rs->col_place[column] >= 0) continue;
      rs->col_place[column] = rs->col_cnt;
      rs->col_lst[rs->col_cnt++] = column;
    }
  }
}

void rs_info_free(rs_info* rs) {
  if (rs == nullptr) return;
  perm_free(rs->row_lst);
  vlm::release_block(rs->col_lst);
  vlm::release_block(rs->col_place);
  vlm::release_block(rs);
}

void smat_gemv_rs(const smat* A, const rs_info* rs, const vec* x, vec* y) {
  NORV_ASSERT_TEXT(static_cast<unsigned>(rs->col_cnt) == x->n, "rs->col_cnt == x->n");
  NORV_ASSERT_TEXT(static_cast<unsigned>(rs->row_lst->n) == y->n, "rs->row_lst->n == y->n");
  vec_clear(y);
  vlm::by_kind(A->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T* const from = vlm::values<T>(x);
    T* const to = vlm::values<T>(y);
    vlm::for_each_entry<T>(A, rs, [&](int i, int j, T a) { to[i] += vlm::product(a, from[j]); });
  });
}

void smat_gemv_trans_rs(const smat* A, const rs_info* rs, const vec* x, vec* y) {
  NORV_ASSERT_TEXT(static_cast<unsigned>(rs->row_lst->n) == x->n, "rs->row_lst->n == x->n");
  NORV_ASSERT_TEXT(static_cast<unsigned>(rs->col_cnt) == y->n, "rs->col_cnt == y->n");
  vec_clear(y);
  vlm::by_kind(A->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T* const from = vlm::values<T>(x);
    T* const to = vlm::values<T>(y);
    vlm::for_each_entry<T>(A, rs, [&](int i, int j, T a) { to[j] += vlm::product(a, from[i]); });
  });
}
