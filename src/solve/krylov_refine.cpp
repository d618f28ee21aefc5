// SPDX-License-Identifier: BSD-3-Clause
/// Refinement judged by rows, see krylov_refine.hpp.
#include "solve/krylov_refine.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "base/amuxy.hpp"
#include "base/memory.hpp"
#include "base/scalar.hpp"
#include "base/status.hpp"
#include "base/values.hpp"
#include "solve/row_errors.hpp"

namespace vlm {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
/// Steps of the plain loop at most, and the part of the error that a step may leave.  So many steps
/// may leave more, since the error of a wild iterate stays near 1 for a while.
constexpr int most_steps = 50, most_failures = 2;
constexpr double contraction = 0.8;
/// Dimension of the Krylov space, and the reduction after which rows are weighed anew.
constexpr int dimension = 30;
constexpr double reduction = 1e-8;

template <class T>
T conjugated(const T& v) {
  return maybe_conj<true>(v);
}

/// Least squares of the Hessenberg matrix of a Krylov space, by rotations as it grows.
template <class T>
class Hessenberg {
 public:
  explicit Hessenberg(double beta) : rhs_(dimension + 1, T(0)) {
    column_.resize(static_cast<std::size_t>(dimension) * (dimension + 1));
    cosine_.resize(dimension);
    sine_.resize(dimension);
    rhs_[0] = beta;
  }
  /// Column j, j + 2 entries, to be filled in before rotate(j).
  T* column(int j) { return column_.data() + static_cast<std::ptrdiff_t>(j) * (dimension + 1); }

  /// @return norm of the residual with j + 1 columns
  double rotate(int j) {
    T* h = column(j);
    for (int i = 0; i < j; ++i) turn(i, h[i], h[i + 1]);
    const auto at = static_cast<std::size_t>(j);
    const double f = std::abs(h[j]), g = std::abs(h[j + 1]), size = std::hypot(f, g);
    cosine_[at] = size == 0 ? 1 : f / size;
    sine_[at] = size == 0 ? T(0) : f == 0 ? T(1) : h[j] / f * (g / size);
    turn(j, h[j], h[j + 1]);
    turn(j, rhs_[at], rhs_[at + 1]);
    return std::abs(rhs_[at + 1]);
  }

  /// Coefficients of the first `count` vectors, in place of the right-hand side.
  const T* solve(int count) {
    for (int j = count - 1; j >= 0; --j) {
      const T* h = column(j);
      T& y = rhs_[static_cast<std::size_t>(j)];
      y = h[j] == T(0) ? T(0) : y / h[j];
      for (int i = 0; i < j; ++i) rhs_[static_cast<std::size_t>(i)] -= h[i] * y;
    }
    return rhs_.data();
  }

 private:
  void turn(int i, T& upper, T& lower) const {
    const double c = cosine_[static_cast<std::size_t>(i)];
    const T s = sine_[static_cast<std::size_t>(i)], before = upper;
    upper = c * before + s * lower;
    lower = c * lower - conjugated(s) * before;
  }

  Vector<T> column_, sine_, rhs_;
  Vector<double> cosine_;
};

template <class T>
class Refiner final : public ColumnRefiner {
 public:
  Refiner(const MatrixType& type, const InputMatrix& matrix, bool transpose, int threads)
      : product_{matrix, type.mtype, transpose, threads},
        n_(static_cast<std::size_t>(matrix.n)),
        residual_(n_),
        terms_(n_),
        work_(n_),
        row_sum_(n_),
        kept_(n_),
        good_(n_),
        size_(n_),
        product_work_(amuxy_work_bytes(matrix.n, type.mtype, transpose, threads) / sizeof(double)) {
    std::ranges::fill(work_, T(1));
    amuxy_abs_velmora(product_, 1, doubles(work_), doubles(row_sum_), product_work_.data());
  }

  ColumnError error(const double* b, const double* x) override {
    return measure(values_as<T>(b), values_as<T>(x), 0).error;
  }

  ColumnError refine(const SolveStep& solve, const double* b, double* x, double target) override {
    const auto done = [&](const ColumnError& e) { return e.reaches_all(target); };
    return improve(b, x, target, most_steps, most_failures, done,
                   [&](T* iterate, const State& now) {
                     if (now.error.reaches(target)) drop_good_rows();
                     if (!solve_scaled(solve, residual_)) return false;
                     for (std::size_t i = 0; i < n_; ++i) iterate[i] += residual_[i];
                     return true;
                   });
  }

  ColumnError refine_by_krylov(const SolveStep& solve, const double* b, double* x, double target,
                               int restarts) override {
    provide_basis();
    const auto done = [&](const ColumnError& e) { return e.reaches(target); };
    return improve(b, x, target, restarts, 0, done,
                   [&](T* iterate, const State&) { return run_cycle(solve, iterate, target); });
  }

 private:
  /// An iterate as it is judged.
  struct State {
    ColumnError error;
    double left;  ///< sum of the residuals of rows above the target by their own entries

    /// A row stays at 1 while its entries of x come down, and its residual with them.
    bool contracts(const State& before) const {
      return error.componentwise <= contraction * before.error.componentwise ||
             error.entrywise <= contraction * before.error.entrywise ||
             left <= contraction * before.left;
    }
  };

  /// Of the residual only the rows that are not good yet: the others are rounding errors, whose
  /// corrections would disturb them.
  void drop_good_rows() {
    for (std::size_t i = 0; i < n_; ++i)
      if (good_[i]) residual_[i] = 0;
  }

  /// Takes steps while they contract; x becomes the best iterate.  @return its error
  template <class Done, class Step>
  ColumnError improve(const double* b_in, double* x_in, double target, int steps, int patience,
                      const Done& done, const Step& step) {
    const T* const b = values_as<T>(b_in);
    T* const x = values_as<T>(x_in);
    State before = measure(b, x, target);
    ColumnError best = before.error;
    int failures = 0;
    std::copy_n(x, n_, kept_.begin());
    for (; steps > 0 && !done(best) && failures <= patience; --steps) {
      if (!step(x, before)) break;
      const State now = measure(b, x, target);
      if (!std::isfinite(now.error.componentwise)) break;
      if (!now.contracts(before)) ++failures;
      if (now.error.better_than(best, target)) {
        best = now.error;
        std::copy_n(x, n_, kept_.begin());
      }
      before = now;
    }
    std::ranges::copy(kept_, x);
    return best;
  }

  static double* doubles(Vector<T>& v) { return reinterpret_cast<double*>(v.data()); }
  static const double* doubles(const T* v) { return reinterpret_cast<const double*>(v); }
  static double* doubles(T* v) { return reinterpret_cast<double*>(v); }

  /// The residual, the sizes of its rows, and what they say of the iterate.
  State measure(const T* b, const T* x, double target) {
    amuxy_res_velmora(product_, 1, doubles(x), doubles(b), doubles(residual_),
                      product_work_.data());
    double size_x = 0;
    for (std::size_t i = 0; i < n_; ++i) {
      const double size = std::abs(x[i]);
      work_[i] = size;
      size_x = larger(size_x, size);
    }
    amuxy_abs_velmora(product_, 1, doubles(work_), doubles(terms_), product_work_.data());
    RowErrors rows(n_);
    double left = 0;
    for (std::size_t i = 0; i < n_; ++i) {
      const double r = std::abs(residual_[i]), ax = std::abs(terms_[i]), bi = std::abs(b[i]);
      const double whole = rows.add(r, ax, bi, std::abs(row_sum_[i]) * size_x);
      size_[i] = whole > 0 ? whole : 1;
      good_[i] = r <= target * (ax + bi);
      if (!good_[i]) left += r;
    }
    const double total = rows.total();
    return {{std::isnan(total) ? infinity : total, rows.entrywise()}, left};
  }

  /// v := A^-1 v as the factor has it, within range of single precision; false where v has an
  /// entry that is no number.
  bool solve_scaled(const SolveStep& solve, Vector<T>& v) {
    double size = 0;
    for (const T& value : v) size = larger(size, std::abs(value));
    if (size == 0) return true;
    if (!std::isfinite(size)) return false;
    for (T& value : v) value /= size;
    if (solve(1, doubles(v), doubles(v)) != status_ok) return false;
    double sum = 0;
    for (T& value : v) sum += std::abs(value *= size);
    return std::isfinite(sum);
  }

  void provide_basis() {
    if (!basis_.empty()) return;
    basis_.resize(n_ * (dimension + 1));
    corrections_.resize(n_ * dimension);
    zero_.assign(n_, T(0));
  }
  T* basis(int j) { return basis_.data() + n_ * static_cast<std::size_t>(j); }
  T* correction(int j) { return corrections_.data() + n_ * static_cast<std::size_t>(j); }

  double norm(const T* v) const {
    double sum = 0;
    for (std::size_t i = 0; i < n_; ++i) sum += std::norm(v[i]);
    return std::sqrt(sum);
  }

  /// v -= (q^H v) q; adds the factor to h.
  void make_orthogonal(const T* q, T* v, T& h) const {
    T dot = 0;
    for (std::size_t i = 0; i < n_; ++i) add_product(dot, conjugated(q[i]), v[i]);
    for (std::size_t i = 0; i < n_; ++i) v[i] -= product(dot, q[i]);
    h += dot;
  }

  /// One Krylov space for the residual of the last measurement; x takes its correction.
  bool run_cycle(const SolveStep& solve, T* x, double target) {
    T* const first = basis(0);
    for (std::size_t i = 0; i < n_; ++i) first[i] = residual_[i] / size_[i];
    const double beta = norm(first);
    if (!(beta > 0) || !std::isfinite(beta)) return false;
    for (std::size_t i = 0; i < n_; ++i) first[i] /= beta;
    Hessenberg<T> h(beta);
    const double enough = std::max(0.1 * target, reduction * beta);
    int count = 0;
    for (double left = beta; count < dimension && left > enough; ++count) {
      const double length = extend(solve, h, count);
      if (!std::isfinite(length)) break;
      left = h.rotate(count);
      if (length == 0) left = 0;
    }
    if (count == 0) return false;
    const T* const y = h.solve(count);
    for (int j = 0; j < count; ++j) {
      const T* const z = correction(j);
      for (std::size_t i = 0; i < n_; ++i) add_product(x[i], y[j], z[i]);
    }
    return true;
  }

  /// The next vector of the space, and its column of h.  @return its length before it was scaled
  double extend(const SolveStep& solve, Hessenberg<T>& h, int j) {
    const T* const q = basis(j);
    for (std::size_t i = 0; i < n_; ++i) work_[i] = q[i] * size_[i];
    if (!solve_scaled(solve, work_)) return infinity;
    std::ranges::copy(work_, correction(j));
    T* const next = basis(j + 1);
    amuxy_res_velmora(product_, 1, doubles(work_), doubles(zero_), doubles(next),
                      product_work_.data());
    for (std::size_t i = 0; i < n_; ++i) next[i] /= -size_[i];
    T* const column = h.column(j);
    std::fill_n(column, dimension + 1, T(0));
    for (int pass = 0; pass < 2; ++pass)
      for (int i = 0; i <= j; ++i) make_orthogonal(basis(i), next, column[i]);
    const double length = norm(next);
    column[j + 1] = length;
    if (length > 0)
      for (std::size_t i = 0; i < n_; ++i) next[i] /= length;
    return length;
  }

  const SparseProduct product_;
  const std::size_t n_;
  Vector<T> residual_, terms_, work_, row_sum_, kept_;
  Vector<char> good_;  ///< rows within the target by their own entries
  Vector<double> size_, product_work_;
  Vector<T> basis_, corrections_, zero_;
};

}  // namespace

std::unique_ptr<ColumnRefiner> column_refiner(const MatrixType& type, const InputMatrix& matrix,
                                              bool transpose, int threads) {
  if (type.complex) return std::make_unique<Refiner<zcomplex>>(type, matrix, transpose, threads);
  return std::make_unique<Refiner<double>>(type, matrix, transpose, threads);
}

}  // namespace vlm
