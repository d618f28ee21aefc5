// SPDX-License-Identifier: BSD-3-Clause
/// What MINRES and SYMMLQ share: the preconditioned Lanczos process on A - shift I with its tests,
/// and how they end (C. C. Paige and M. A. Saunders, Solution of sparse indefinite systems of
/// linear equations, 1975).
///
/// Norms of residuals are those that the preconditioner defines, sqrt(r' M^-1 r): without one the
/// Euclidean norm.
#pragma once

#include <cmath>

#include "NORV/solvers/krylov.hpp"

namespace vlm {

/// How they end; numbers and texts are those that are told.
enum class LanczosEnd {
  running = -2,
  one_vector = -1,
  zero = 0,
  accurate = 1,
  as_rounding_allows = 2,
  eigenvector = 3,
  ill_conditioned = 4,
  limit = 5,
  unsymmetric_matrix = 6,
  unsymmetric_precon = 7,
  indefinite_precon = 8,
};

/// A = V T V' with the vectors v(k) orthonormal for M^-1; T is tridiagonal with alpha and beta.
template <class T>
class Lanczos {
 public:
  Lanczos(const KrylovProblem& problem, double shift)
      : p(problem),
        shift_(shift),
        r1_(scratch_like(problem.b)),
        r2_(scratch_like(problem.b)),
        y_(scratch_like(problem.b)),
        v_(scratch_like(problem.b)),
        w_(scratch_like(problem.b)) {}

  /// Begins at the residual of x, and tests what the process presumes.
  LanczosEnd begin() {
    precon_solve(y_.get(), p.M, p.b);
    const double bb = real_part_of(inner<T>(p.b, y_.get()));
    norm_b = bb > 0 ? std::sqrt(bb) : 0.0;
    smat_calc_residual(r1_.get(), p.A, p.x, p.b);
    add_scaled<T>(shift_, p.x, r1_.get());
    precon_solve(y_.get(), p.M, r1_.get());
    const double square_of_beta = real_part_of(inner<T>(r1_.get(), y_.get()));
    if (square_of_beta < 0 || bb < 0) {  // which has no norms to tell the residual by
      norm_b = vec_euclid_norm(p.b);
      beta = vec_euclid_norm(r1_.get());
      return LanczosEnd::indefinite_precon;
    }
    beta = std::sqrt(square_of_beta);
    if (beta == 0) return LanczosEnd::zero;
    if (!symmetric_precon()) return LanczosEnd::unsymmetric_precon;
    if (!symmetric_matrix()) return LanczosEnd::unsymmetric_matrix;
    vec_copy(r2_.get(), r1_.get());
    return LanczosEnd::running;
  }

  /// The next vector v(k), alpha(k), and beta(k+1), from beta(k).
  LanczosEnd advance() {
    ++k_;
    vec_copy_scaled(1 / beta, v_.get(), y_.get());
    multiply(v_.get(), y_.get());
    if (k_ > 1) add_scaled<T>(-beta / beta_before, r1_.get(), y_.get());
    alpha = real_part_of(inner<T>(v_.get(), y_.get()));
    add_scaled<T>(-alpha / beta, r2_.get(), y_.get());
    r1_.swap(r2_);  // r1 = r2, r2 = y
    vec_copy(r2_.get(), y_.get());
    precon_solve(y_.get(), p.M, r2_.get());
    beta_before = beta;
    const double square_of_beta = real_part_of(inner<T>(r2_.get(), y_.get()));
    // Rounding may turn a tiny square negative.
    const double rounding = eps * square(std::abs(alpha) + beta_before) * eps;
    if (square_of_beta < -1e6 * rounding) return LanczosEnd::indefinite_precon;
    beta = square_of_beta > 0 ? std::sqrt(square_of_beta) : 0.0;
    return LanczosEnd::running;
  }

  const vec* v() const { return v_.get(); }

  static constexpr double eps = std::numeric_limits<double>::epsilon();
  const KrylovProblem p;
  double norm_b = 0, alpha = 0, beta = 0, beta_before = 0;

 private:
  /// to = (A - shift I) from.
  void multiply(const vec* from, vec* to) const {
    smat_vecmul(to, p.A, from);
    if (shift_ != 0) add_scaled<T>(-shift_, from, to);
  }
  /// Whether (op y, op y) and (y, op op y) are one number.
  static bool agree(const vec* image, const vec* from, const vec* image_of_image) {
    const double s = std::abs(inner<T>(image, image));
    const T t = inner<T>(from, image_of_image);
    return std::abs(T(s) - t) <= (s + eps) * std::cbrt(eps);
  }
  bool symmetric_precon() {
    if (p.M == nullptr) return true;
    precon_solve(v_.get(), p.M, y_.get());
    return agree(y_.get(), r1_.get(), v_.get());
  }
  bool symmetric_matrix() {
    multiply(y_.get(), w_.get());
    multiply(w_.get(), v_.get());
    return agree(w_.get(), y_.get(), v_.get());
  }

  const double shift_;
  int k_ = 0;
  ScratchVec r1_, r2_, y_, v_, w_;
};

/// What is told at the end.
struct LanczosNorms {
  double A, condition, r, y;
};

/// Ends the solve of MINRES or SYMMLQ: text of the end, norms, record.  @return iterations
int finish_lanczos(const char* name, LanczosEnd end, KrylovRun& run, int iterations,
                   const LanczosNorms& norms);

}  // namespace vlm
