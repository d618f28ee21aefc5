// SPDX-License-Identifier: BSD-3-Clause
/// Backward errors from products with A and |A|; norms of the inverse from solves.
#include "solve/accuracy.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/amuxy.hpp"
#include "base/progress.hpp"
#include "base/scalar.hpp"
#include "base/status.hpp"
#include "base/values.hpp"
#include "solve/accuracy_residual.hpp"
#include "solve/row_errors.hpp"

namespace vlm {
namespace {

constexpr double unit_roundoff = 0x1p-53;
constexpr double infinity = std::numeric_limits<double>::infinity();
/// Backward errors up to which a solution is good, and usable.
constexpr double good_backward = 1e-12, usable_backward = 1e-10;
/// Bounds on the error: six digits are certain, and one.
constexpr double good_bound = 1e-6, usable_bound = 0.2;
/// Part that a step of refinement may leave for the factor to stand for A, and from which it
/// matters that it grows from step to step.
constexpr double usable_contraction = 0.3, noticeable_contraction = 0.01;
constexpr int contraction_steps = 3;
/// The factor was tried along a few vectors only.
constexpr double bound_margin = 2;
constexpr int block = accuracy_block;

template <class T>
double largest(const T* v, std::size_t n) {
  double size = 0;
  for (std::size_t i = 0; i < n; ++i) size = larger(size, std::abs(v[i]));
  return size;
}

template <class T>
double sum(const T* v, std::size_t n) {
  double total = 0;
  for (std::size_t i = 0; i < n; ++i) total += std::abs(v[i]);
  return total;
}

template <class T>
T sign(const T& v) {
  const double size = std::abs(v);
  return size > 0 ? v / size : T(1);
}

/// Entries of every row of A, or of its transpose.
void count_entries(const InputMatrix& m, const MatrixType& type, bool transpose, double* count) {
  std::fill_n(count, m.n, 0.0);
  for (int i = 1; i <= m.n; ++i) {
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p) {
      const int j = m.ja[p - 1];
      if (type.symmetric || !transpose) ++count[i - 1];
      if (type.symmetric ? j != i : transpose) ++count[j - 1];
    }
  }
}

template <class T>
class Measurement {
 public:
  explicit Measurement(const AccuracyCall& call)
      : call_(call),
        product_{call.matrix, call.options.type.mtype, call.options.transpose,
                 call.options.threads},
        n_(static_cast<std::size_t>(call.matrix.n)) {
    const std::size_t columns = n_ * static_cast<std::size_t>(std::min(call.nrhs, block));
    T* next = values_as<T>(call.work);
    residual_ = next;
    absolute_x_ = residual_ + columns;
    absolute_b_ = absolute_x_ + columns;
    row_sum_ = absolute_b_ + columns;
    double* reals = reinterpret_cast<double*>(row_sum_ + n_);
    weight_ = reals;
    rounding_ = weight_ + n_;
    product_work_ = rounding_ + n_;
    if (call.options.level < 2) return;
    constexpr std::size_t unit = alignof(Extended<T>);
    char* const place =
        reinterpret_cast<char*>(product_work_) + product_bytes(call.options, call.matrix.n);
    const auto beyond = static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(place) % unit);
    sums_ = reinterpret_cast<Extended<T>*>(place + (unit - beyond) % unit);
    probe_ = reinterpret_cast<T*>(sums_ + n_);
    probe_target_ = probe_ + n_;
    std::fill_n(probe_, 2 * n_, T(0));
  }

  static std::size_t bytes(const AccuracyOptions& options, int n, int nrhs) {
    const auto rows = static_cast<std::size_t>(n);
    return (3 * static_cast<std::size_t>(std::min(nrhs, block)) + 1) * rows * sizeof(T) +
           2 * rows * sizeof(double) + product_bytes(options, n) +
           (options.level < 2
                ? 0
                : rows * (sizeof(Extended<T>) + 2 * sizeof(T)) + alignof(Extended<T>));
  }

  int run(Accuracy& result) {
    prepare_rows();
    for (int k = 0; k < call_.nrhs; k += block) {
      pulse();
      measure_columns(k, std::min(block, call_.nrhs - k), result);
    }
    if (call_.options.level < 2) return status_ok;
    unit_vector(peak_row_);
    const double unseen = inverse_norm(1);
    // Ones, but for values whose products are without rounding errors, which are to be seen.
    for (std::size_t i = 0; i < n_; ++i) weight_[i] = 1 - 0.1 / static_cast<double>(3 + i % 7);
    std::fill_n(residual_, n_, T(1.0 / static_cast<double>(n_)));
    result.condition = norm_a_ * inverse_norm(2);
    result.contraction =
        std::isfinite(unseen) && std::isfinite(result.condition) ? contraction() : infinity;
    if (std::isnan(result.contraction)) result.contraction = infinity;
    const double q = result.contraction;
    const double growth = q < usable_contraction ? 1 / ((1 - q) * (1 - q)) : infinity;
    result.condition *= growth;
    result.bound = bound_margin * (peak_ + unseen) * growth;
    if (!(result.bound <= usable_bound)) result.bound = infinity;  // nothing is known of x
    return status_;
  }

 private:
  static std::size_t product_bytes(const AccuracyOptions& options, int n) {
    return amuxy_work_bytes(n, options.type.mtype, options.transpose, options.threads);
  }

  /// Row sums of |A|, and by how many units rounding may change a residual in relation to its
  /// terms: a sum of k terms by the root of k (Higham and Mary, A new approach to probabilistic
  /// rounding error analysis, 2019), times 0.3 for partial sums that grow evenly.
  void prepare_rows() {
    std::fill_n(absolute_x_, n_, T(1));
    amuxy_abs_velmora(product_, 1, doubles(absolute_x_), doubles(row_sum_), product_work_);
    norm_a_ = largest(row_sum_, n_);
    std::fill_n(weight_, n_, 0.0);
    count_entries(call_.matrix, call_.options.type, call_.options.transpose, rounding_);
    for (std::size_t i = 0; i < n_; ++i) rounding_[i] = 1 + 0.3 * std::sqrt(rounding_[i]);
  }

  /// Backward errors of columns first to first + count - 1; weights for the bound.
  void measure_columns(int first, int count, Accuracy& result) {
    const std::size_t at = n_ * static_cast<std::size_t>(first);
    const T* const b = values_as<T>(call_.b) + at;
    const T* const x = values_as<T>(call_.x) + at;
    amuxy_res_velmora(product_, count, doubles(x), doubles(b), doubles(residual_), product_work_);
    for (std::size_t k = 0; k < n_ * static_cast<std::size_t>(count); ++k)
      absolute_x_[k] = std::abs(x[k]);
    amuxy_abs_velmora(product_, count, doubles(absolute_x_), doubles(absolute_b_), product_work_);
    for (int k = 0; k < count; ++k) {
      const std::size_t column = n_ * static_cast<std::size_t>(k);
      measure_column(b + column, x + column, residual_ + column, absolute_b_ + column, result);
    }
    if (call_.options.level == 2) find_errors(b, x, count);
  }

  /// @param terms  |A||x|
  void measure_column(const T* b, const T* x, const T* r, const T* terms, Accuracy& result) {
    const double size_x = largest(x, n_), size_b = largest(b, n_);
    RowErrors rows(n_);
    for (std::size_t i = 0; i < n_; ++i) {
      const double size_r = std::abs(r[i]), ax = std::abs(terms[i]), bi = std::abs(b[i]);
      rows.add(size_r, ax, bi, std::abs(row_sum_[i]) * size_x);
      // A solution 0 tells nothing of A: it is judged like one of ones, with their products.
      const double change = size_x == 0 ? unit_roundoff * std::abs(row_sum_[i])
                                        : extended_roundoff * ((ax + bi) / size_x);
      weight_[i] = larger(weight_[i], rounding_[i] * change);
    }
    result.componentwise = larger(result.componentwise, rows.total());
    result.entrywise = larger(result.entrywise, rows.entrywise());
    result.normwise = larger(result.normwise, ratio(largest(r, n_), norm_a_ * size_x + size_b));
  }

  /// The errors themselves, as the factor tells them from residuals in extended precision: the
  /// largest and its row.
  void find_errors(const T* b, const T* x, int count) {
    T* const error = absolute_x_;
    double unit[block];
    for (int k = 0; k < count; ++k) {
      const std::size_t column = n_ * static_cast<std::size_t>(k);
      unit[k] = extended_residual(product_, x + column, b + column, sums_, residual_ + column);
    }
    solve(residual_, error, count);
    for (int k = 0; k < count; ++k) {
      const std::size_t column = n_ * static_cast<std::size_t>(k);
      const double size = largest(error + column, n_), size_x = largest(x + column, n_);
      if (size == 0) continue;
      add_probe(residual_ + column, error + column, size);
      const double part = unit[k] / size_x;
      for (std::size_t i = 0; i < n_; ++i) {
        const double relative = std::abs(error[column + i]) * part;
        if (!(relative <= peak_)) peak_ = larger(peak_, relative), peak_row_ = i;
        const double rounding = unit_roundoff * std::abs(residual_[column + i]) * part;
        weight_[i] = larger(weight_[i], rounding);
      }
    }
  }

  // --- norms of the inverse; the columns' arrays are free by then ---

  /// Each column within range of single precision: residuals may be as small as they like.
  void solve(const T* in, T* out, int columns = 1) {
    double unit[block];
    for (int k = 0; k < columns; ++k) {
      const std::size_t column = n_ * static_cast<std::size_t>(k);
      const double size = largest(in + column, n_);
      unit[k] = size > 0 && std::isfinite(size) ? std::exp2(std::ilogb(size)) : 1;
      for (std::size_t i = column; i < column + n_; ++i) out[i] = in[i] / unit[k];
    }
    if (status_ == status_ok) status_ = call_.solve(columns, doubles(out), doubles(out));
    for (int k = 0; k < columns; ++k) {
      const std::size_t column = n_ * static_cast<std::size_t>(k);
      for (std::size_t i = column; i < column + n_; ++i) out[i] *= unit[k];
    }
  }

  /// The solution v of size `size` for a right-hand side, as a part of what the factor is tried on;
  /// with the sign that does not cancel what the others have in common with it.
  void add_probe(const T* target, const T* v, double size) {
    if (size == 0) return;
    double common = 0;
    for (std::size_t i = 0; i < n_; ++i)
      common += std::real(maybe_conj<true>(probe_[i]) * (v[i] / size));
    const double part = common < 0 ? -size : size;
    for (std::size_t i = 0; i < n_; ++i) {
      probe_[i] += v[i] / part;
      probe_target_[i] += target[i] / part;
    }
  }

  /// v := A^-H v.
  void solve_adjoint(T* v) {
    if (call_.options.type.hermitian) return solve(v, v);
    for (std::size_t i = 0; i < n_; ++i) v[i] = maybe_conj<true>(v[i]);
    if (status_ == status_ok) status_ = call_.transpose(1, doubles(v), doubles(v));
    for (std::size_t i = 0; i < n_; ++i) v[i] = maybe_conj<true>(v[i]);
  }

  /// v := w A^-H v, the matrix whose 1-norm is sought.  @return 1-norm of v
  double apply(T* v) {
    solve_adjoint(v);
    for (std::size_t i = 0; i < n_; ++i) v[i] *= weight_[i];
    return sum(v, n_);
  }

  void unit_vector(std::size_t row) {
    std::fill_n(residual_, n_, T(0));
    residual_[row] = 1;
  }

  /// The largest row sum of |A^-1| w, with w = weight_; infinite where the factor can't tell.
  /// Starts from the vector in residual_, whose 1-norm is 1, and takes 2 rounds + 1 solves.
  double inverse_norm(int rounds) {
    const double unit = largest(weight_, n_);
    if (!std::isfinite(unit)) return unit;
    if (unit == 0) return 0;
    for (std::size_t i = 0; i < n_; ++i) weight_[i] /= unit;  // within range of single precision
    T* const v = residual_;
    T* const target = absolute_x_;
    double estimate = apply(v), top = 0;
    for (int round = 1;; ++round) {
      for (std::size_t i = 0; i < n_; ++i) target[i] = sign(v[i]) * weight_[i];
      solve(target, v);
      top = largest(v, n_);
      if (!std::isfinite(top)) return infinity;
      if (round == rounds || top <= estimate) break;
      unit_vector(static_cast<std::size_t>(
          std::max_element(v, v + n_,
                           [](const T& p, const T& q) { return std::abs(p) < std::abs(q); }) -
          v));
      estimate = std::max(top, apply(v));
    }
    add_probe(target, v, top);
    return unit * std::max(estimate, top);
  }

  /// The part q that refinement leaves of the solutions that were met, errors included: the norm
  /// |(A + E)^-1 E| along them, where A + E is what the factor solves with.  A^-1 is longer than
  /// (A + E)^-1 by 1 / (1 - q); as much again, since q may be larger elsewhere.  Some steps bring
  /// out the largest q, as in the power method: where A is singular to working precision and only E
  /// is not, it is 1.  A large q, or one that still grows, tells nothing.
  double contraction() {
    T *v = probe_, *target = probe_target_, *next = residual_;
    double q = 0, last = 0, size = largest(v, n_);
    bool grows = false;
    for (int step = 0; step < contraction_steps && size != 0; ++step) {
      amuxy_res_velmora(product_, 1, doubles(v), doubles(target), doubles(next), product_work_);
      std::swap(target, next);
      solve(target, v);
      const double left = largest(v, n_), part = left / size;
      grows = part > 2 * last && part > noticeable_contraction;
      last = part;
      q = larger(q, part);
      size = left;
    }
    return grows ? std::max(q, 1.0) : q;
  }

  static double* doubles(T* v) { return reinterpret_cast<double*>(v); }
  static const double* doubles(const T* v) { return reinterpret_cast<const double*>(v); }

  const AccuracyCall& call_;
  const SparseProduct product_;
  const std::size_t n_;
  T *residual_, *absolute_x_, *absolute_b_;  ///< [n, up to 4]; the last: |A||x|
  T* row_sum_;                               ///< of |A|  [n]
  double* weight_;                           ///< w of the norm that is estimated  [n]
  double* rounding_;                         ///< errors of a residual in units of its terms  [n]
  double* product_work_;
  Extended<T>* sums_ = nullptr;                   ///< level 2  [n]
  T *probe_ = nullptr, *probe_target_ = nullptr;  ///< sums of solutions, right-hand sides  [n]
  double norm_a_ = 0;
  double peak_ = 0;  ///< largest error
  std::size_t peak_row_ = 0;
  int status_ = status_ok;
};

AccuracyVerdict judge(const Accuracy& accuracy, int perturbed) {
  // Written so that NaN fails.
  if (!(accuracy.componentwise <= usable_backward) || !(accuracy.bound <= usable_bound))
    return verdict_useless;
  if (perturbed > 0 || accuracy.componentwise > good_backward || accuracy.bound > good_bound)
    return verdict_nearby;
  return verdict_good;
}

std::size_t rhs_length(const AccuracyOptions& options, int n, int nrhs) {
  if (!options.solution_in_b) return 0;
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(nrhs) *
         static_cast<std::size_t>(options.type.nvals());
}

}  // namespace

std::size_t accuracy_bytes(const AccuracyOptions& options, int n, int nrhs) {
  if (options.level == 0) return 0;
  return rhs_length(options, n, nrhs) * sizeof(double) +
         (options.type.complex ? Measurement<zcomplex>::bytes(options, n, nrhs)
                               : Measurement<double>::bytes(options, n, nrhs));
}

const double* keep_rhs(const AccuracyOptions& options, int n, int nrhs, const double* b,
                       double*& work) {
  if (options.level == 0 || !options.solution_in_b) return b;
  const double* const kept = work;
  work = std::copy_n(b, rhs_length(options, n, nrhs), work);
  return kept;
}

int measure_accuracy(const AccuracyCall& call, Accuracy& result) {
  result = {};
  if (call.options.level == 0) return status_ok;
  const int status = call.options.type.complex ? Measurement<zcomplex>(call).run(result)
                                               : Measurement<double>(call).run(result);
  if (status == status_ok) result.verdict = judge(result, call.perturbed);
  return status;
}

}  // namespace vlm
