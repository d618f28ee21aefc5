// SPDX-License-Identifier: BSD-3-Clause
/// The iteration of stabilised solves, see stabilised.hpp.
///
/// Columns that still iterate stand side by side at the front of every work vector; x and b keep
/// the caller's order.
#include "solve/stabilised.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "base/amuxy.hpp"
#include "base/memory.hpp"
#include "base/scalar.hpp"
#include "base/status.hpp"
#include "base/values.hpp"
#include "base/vector_primitives.hpp"

namespace vlm {
namespace {

/// Residuals that grow to this multiple of the first one diverge.
constexpr double divergence = 1e4;
/// Part of |A||x| + |b| that rounding leaves of a residual, and how much more of it may come to one
/// that the recurrence has carried along.
constexpr double rounding_level = 0x1p-46, rounding_drift = 1;
/// Steps that tell the pace.
constexpr int pace_steps = 3;
/// Where steps of no more solves than this are worth it the first solve may tell that they won't
/// do: it promises this multiple of them.
constexpr double few_solves = 16, hopeless = 3;
/// Ratios of the scalars beyond which a recurrence has broken down.
constexpr double largest_growth = 1e15, least_beta = 1e-45, least_alpha = 1e-10;

/// Work vectors.  CG has the first three.
enum VectorName { v_residual, v_direction, v_product, v_shadow, v_auxiliary, v_image, all_vectors };
constexpr int vectors_of_cg = 3;

template <class T>
class Iteration {
 public:
  Iteration(const StabiliseCall& call, const IterationLimits& limits)
      : call_(call),
        limits_(limits),
        product_{call.matrix, call.options.type.mtype, call.options.transpose,
                 call.options.threads},
        n_(static_cast<std::size_t>(call.matrix.n)),
        columns_(static_cast<std::size_t>(call.nrhs)) {
    T* next = values_as<T>(call.work);
    const int count = vector_count(call.options);
    for (int k = 0; k < count; ++k, next += n_ * columns_.size()) vectors_[k] = next;
    product_work_ = reinterpret_cast<double*>(next);
    for (std::size_t k = 0; k < columns_.size(); ++k) columns_[k].index = k;
  }

  static int vector_count(const StabiliseOptions& options) {
    return options.conjugate_gradients ? vectors_of_cg : all_vectors;
  }

  IterationResult run() {
    result_.count = 1;
    settle(0, 0);
    if (result_.status != status_ok) return failed(iteration_solve_failed);
    if (active() == 0) return result_;
    if (!std::isfinite(largest_ratio())) return failed(iteration_diverged);
    if (is_hopeless()) return failed(iteration_slow);
    double best = 1e30;
    do {
      const int code = call_.options.conjugate_gradients ? step_cg() : step_cgs();
      if (code != iteration_converged) return failed(code);
      ++result_.count;
      confirm();
      if (active() == 0) return result_;
      const double ratio = largest_ratio();
      if (!(ratio <= divergence)) return failed(iteration_diverged);
      best = std::min(ratio, best);
      const bool late = result_.count >= limits_.judged_from;
      if ((late && best > std::sqrt(call_.options.tolerance)) || is_too_dear())
        return failed(iteration_slow);
    } while (result_.count < limits_.most);
    return failed(iteration_exhausted);
  }

 private:
  struct Column {
    std::size_t index = 0;        ///< in x and b
    double unit = 0;              ///< of the residual; a power of two
    double first = 0;             ///< norm of the first residual
    double norm = 0;              ///< of the residual
    double level = 0;             ///< norm that is good enough
    double best[pace_steps + 1];  ///< least norms: until now, until the step before, ...
    T rho{}, alpha{};

    double goal(double tolerance) const { return std::max(tolerance * first, level); }
  };

  std::size_t active() const { return columns_.size(); }
  T* vector(VectorName name, std::size_t k) const { return vectors_[name] + n_ * k; }
  static double* doubles(T* v) { return reinterpret_cast<double*>(v); }
  static const double* doubles(const T* v) { return reinterpret_cast<const double*>(v); }
  const T* rhs(const Column& c) const { return values_as<T>(call_.b) + n_ * c.index; }
  T* solution(const Column& c) const { return values_as<T>(call_.x) + n_ * c.index; }

  template <class Term>
  auto sum(const Term& term) const {
    return parallel_sum(n_, call_.options.threads, term);
  }
  template <class Body>
  void each(const Body& body) const {
    sum([&](std::size_t k) {
      body(k);
      return 0.0;
    });
  }
  /// Euclidean norm of the vector whose entry k is entry(k).
  template <class Entry>
  double norm(const Entry& entry) const {
    return std::sqrt(sum([&](std::size_t k) { return std::norm(entry(k)); }));
  }
  /// u^H v
  T dot(const T* u, const T* v) const {
    return sum([=](std::size_t k) { return product(maybe_conj<true>(u[k]), v[k]); });
  }
  /// The product in which A and the factor are symmetric: u^H v, real where both are Hermitian
  /// forms of one vector; u^T v for complex symmetric matrices.
  T form(const T* u, const T* v) const {
    const MatrixType& type = call_.options.type;
    if (!type.complex || type.hermitian) return T(std::real(dot(u, v)));
    return sum([=](std::size_t k) { return product(u[k], v[k]); });
  }
  bool is_positive() const { return call_.options.type.family == Family::cholesky; }

  IterationResult failed(int code) {
    result_.code = code;
    return result_;
  }

  bool solve(VectorName in, VectorName out) {
    result_.status =
        call_.solve(static_cast<int>(active()), doubles(vectors_[in]), doubles(vectors_[out]));
    return result_.status == status_ok;
  }

  void multiply(VectorName in, VectorName out) {
    amuxy_velmora(product_, static_cast<int>(active()), doubles(vectors_[in]),
                  doubles(vectors_[out]), product_work_);
  }

  // --- true residuals ---

  /// Measures the residuals of the columns from `from` on, ends those that are good enough, and
  /// begins the recurrences of the others from there.
  /// @param drift  levels by which a residual may miss its goal
  void settle(std::size_t from, double drift) {
    const T *x = solution(columns_[from]), *b = rhs(columns_[from]);
    if (!stand_together(from)) {
      x = copy_solutions(from);
      b = vector(v_direction, from);
      for (std::size_t k = from; k < active(); ++k)
        std::copy_n(rhs(columns_[k]), n_, vector(v_direction, k));
    }
    amuxy_res_velmora(product_, count_from(from), doubles(x), doubles(b),
                      doubles(vector(v_residual, from)), product_work_);
    for (std::size_t k = from; k < active(); ++k) measure(k);
    dismiss(from, 0);
    if (from == active()) return;
    if (call_.options.corrected && result_.count == 1) {
      if (!correct()) return;
      dismiss(0, 0);
      if (active() == 0) return;
    }
    measure_levels(from);
    dismiss(from, drift);
    for (std::size_t k = from; k < active(); ++k) begin(k);
  }

  /// A step of refinement, for the columns whose residual it makes smaller.
  bool correct() {
    if (!solve(v_residual, v_product)) return false;
    multiply(v_product, v_direction);
    ++result_.count;
    for (std::size_t k = 0; k < active(); ++k) {
      Column& c = columns_[k];
      T *const r = vector(v_residual, k), *const x = solution(c);
      const T *const z = vector(v_product, k), *const image = vector(v_direction, k);
      const double left = norm([=](std::size_t i) { return r[i] - image[i]; });
      if (!(left < c.norm)) continue;
      c.norm = left;
      each([=, unit = c.unit](std::size_t i) {
        x[i] += unit * z[i];
        r[i] -= image[i];
      });
    }
    return true;
  }

  int count_from(std::size_t from) const { return static_cast<int>(active() - from); }

  /// Whether the columns from `from` on are neighbours in x and b.
  bool stand_together(std::size_t from) const {
    for (std::size_t k = from; k < active(); ++k)
      if (columns_[k].index != columns_[from].index + (k - from)) return false;
    return true;
  }

  T* copy_solutions(std::size_t from) {
    for (std::size_t k = from; k < active(); ++k)
      std::copy_n(solution(columns_[k]), n_, vector(v_product, k));
    return vector(v_product, from);
  }

  /// The norm of a residual.
  void measure(std::size_t k) {
    Column& c = columns_[k];
    T* const r = vector(v_residual, k);
    const bool first = c.unit == 0;
    if (first) {
      double size = 0;
      for (std::size_t i = 0; i < n_; ++i) size = std::max(size, std::abs(r[i]));
      c.unit = size > 0 && std::isfinite(size)
                   ? std::ldexp(1.0, std::clamp(std::ilogb(size), -1000, 1000))
                   : 1.0;
    }
    const T* const b = rhs(c);
    const double part = 1 / c.unit, sufficient = call_.options.sufficient;
    c.norm = norm([=](std::size_t i) { return r[i] *= part; });
    c.level = sufficient > 0 ? sufficient * norm([=](std::size_t i) { return b[i] * part; }) : 0;
    if (!std::isfinite(c.level)) c.level = 0;
    if (!first) return;
    // Without the guess the factor would have left that much more.
    c.first = c.norm * (call_.gain != nullptr ? call_.gain[c.index] : 1.0);
    std::fill(std::begin(c.best), std::end(c.best), c.norm);
  }

  /// Raises the levels to what rounding leaves of a residual.
  void measure_levels(std::size_t from) {
    T* const sizes = copy_solutions(from);
    for (std::size_t k = from; k < active(); ++k)
      each([x = vector(v_product, k)](std::size_t i) { x[i] = std::abs(x[i]); });
    amuxy_abs_velmora(product_, count_from(from), doubles(sizes),
                      doubles(vector(v_direction, from)), product_work_);
    for (std::size_t k = from; k < active(); ++k) {
      Column& c = columns_[k];
      const T *const bound = vector(v_direction, k), *const b = rhs(c);
      const double level = rounding_level * norm([=, part = 1 / c.unit](std::size_t i) {
                             return (std::abs(bound[i]) + std::abs(b[i])) * part;
                           });
      if (std::isfinite(level)) c.level = std::max(c.level, level);
    }
  }

  void begin(std::size_t k) {
    Column& c = columns_[k];
    c.rho = c.norm * c.norm;
    std::fill_n(vector(v_direction, k), n_, T{});
    if (call_.options.conjugate_gradients) return;
    std::copy_n(vector(v_residual, k), n_, vector(v_shadow, k));
    for (const VectorName name : {v_auxiliary, v_product, v_image})
      std::fill_n(vector(name, k), n_, T{});
  }

  /// Ends the columns from `from` on whose measured residual is at the goal, or above it by less
  /// than `drift` times their level.
  void dismiss(std::size_t from, double drift) {
    for (std::size_t k = active(); k-- > from;) {
      const Column& c = columns_[k];
      if (!(c.norm <= c.goal(call_.options.tolerance) + drift * c.level)) continue;
      exchange(k, active() - 1);
      columns_.pop_back();
    }
  }

  /// Takes the columns at their goal out, where their true residuals are there as well.
  void confirm() {
    std::size_t from = active();
    for (std::size_t k = active(); k-- > 0;)
      if (columns_[k].norm <= columns_[k].goal(call_.options.tolerance)) exchange(k, --from);
    if (from < active()) settle(from, rounding_drift);
  }

  void exchange(std::size_t k, std::size_t l) {
    if (k == l) return;
    std::swap(columns_[k], columns_[l]);
    for (int name = 0; name < vector_count(call_.options); ++name) {
      T* const at = vectors_[name];
      std::swap_ranges(at + n_ * k, at + n_ * (k + 1), at + n_ * l);
    }
  }

  // --- progress ---

  double largest_ratio() const {
    double ratio = 0;  // stays NaN where one is
    for (const Column& c : columns_) {
      const double of_column = c.norm / c.first;
      if (of_column > ratio || std::isnan(of_column)) ratio = of_column;
    }
    return ratio;
  }

  /// Whether the first solve has done so little that the few steps which are worth it need not be
  /// tried: measured by the part of b, of the best length, that it left.
  bool is_hopeless() const {
    const double affordable = limits_.affordable * call_.options.solves_per_step();
    if (affordable > few_solves || call_.gain != nullptr) return false;
    double left = 0;
    for (std::size_t k = 0; k < active(); ++k) {
      const Column& c = columns_[k];
      const T *const b = rhs(c), *const r = vector(v_residual, k);
      const auto of_b = [=, part = 1 / c.unit](std::size_t i) { return b[i] * part; };
      const auto image = [=](std::size_t i) { return of_b(i) - r[i]; };
      const double size = norm(of_b);
      const double cosine = std::abs(sum([=](std::size_t i) {
                              return product(maybe_conj<true>(of_b(i)), image(i));
                            })) /
                            (size * norm(image));
      const double pace = std::log1p(-cosine * cosine) / 2;
      const double way = std::log(c.goal(call_.options.tolerance) / size);
      left = std::max(left, way / pace);
    }
    return left > hopeless * affordable;
  }

  /// Whether the pace of the last steps promises more steps than are worth it.
  bool is_too_dear() {
    const int steps = result_.count - 1, behind = std::min(steps, pace_steps);
    double left = 0;
    for (Column& c : columns_) {
      std::shift_right(std::begin(c.best), std::end(c.best), 1);
      c.best[0] = std::min(c.best[1], c.norm);
      const double way = std::log(c.goal(call_.options.tolerance) / c.best[0]);
      const double pace = std::log(c.best[0] / c.best[behind]) / behind;
      if (way < 0)
        left = std::max(left, pace < 0 ? way / pace : std::numeric_limits<double>::infinity());
    }
    return steps >= limits_.affordable / 8 && left > limits_.affordable;
  }

  // --- the steps ---

  /// x += alpha d and r -= alpha v, with the new norm.
  void advance(Column& c, const T* d, const T* v, T* r) {
    T* const x = solution(c);
    const T alpha = c.alpha, step = alpha * c.unit;
    c.norm = norm([=](std::size_t k) {
      add_product(x[k], step, d[k]);
      return r[k] -= product(alpha, v[k]);
    });
  }

  int step_cg() {
    if (!solve(v_residual, v_product)) return iteration_solve_failed;
    for (std::size_t k = 0; k < active(); ++k)
      if (const int code = cgstep1(k)) return code;
    multiply(v_direction, v_product);
    for (std::size_t k = 0; k < active(); ++k)
      if (const int code = cgstep2(k)) return code;
    return iteration_converged;
  }

  /// The new direction; fails where the residual has no length in the factor's form.
  int cgstep1(std::size_t k) {
    Column& c = columns_[k];
    const T* const z = vector(v_product, k);
    T* const p = vector(v_direction, k);
    const T rho = form(vector(v_residual, k), z);
    if (!std::isfinite(std::abs(rho)) || (is_positive() && !(std::real(rho) > 0)))
      return iteration_diverged;
    const T beta = rho / c.rho;
    if (!(std::abs(beta) >= least_beta)) return cgs_stagnation;
    c.rho = rho;
    each([=](std::size_t i) { p[i] = z[i] + product(beta, p[i]); });
    return iteration_converged;
  }

  /// The new solution and residual; fails where the direction has no length in the form of A.
  int cgstep2(std::size_t k) {
    Column& c = columns_[k];
    const T *const p = vector(v_direction, k), *const q = vector(v_product, k);
    const T curvature = form(p, q);
    if (is_positive() && !(std::real(curvature) > 0)) return iteration_diverged;
    if (!(std::abs(c.rho) <= std::abs(curvature) * largest_growth)) return cgs_breakdown;
    c.alpha = c.rho / curvature;
    advance(c, p, q, vector(v_residual, k));
    return iteration_converged;
  }

  int step_cgs() {
    for (std::size_t k = 0; k < active(); ++k)
      if (const int code = cgs_a(k)) return code;
    if (!solve(v_direction, v_auxiliary)) return iteration_solve_failed;
    multiply(v_auxiliary, v_product);
    for (std::size_t k = 0; k < active(); ++k)
      if (const int code = cgs_b(k)) return code;
    confirm();
    if (active() == 0 || result_.status != status_ok) return iteration_converged;
    if (!solve(v_auxiliary, v_direction)) return iteration_solve_failed;
    multiply(v_direction, v_product);
    for (std::size_t k = 0; k < active(); ++k)
      advance(columns_[k], vector(v_direction, k), vector(v_product, k), vector(v_residual, k));
    return iteration_converged;
  }

  /// u = r + beta q, and what v = A M^-1 p has of earlier steps, p = u + beta (q + beta p).
  int cgs_a(std::size_t k) {
    Column& c = columns_[k];
    const T *const r = vector(v_residual, k), *const q = vector(v_auxiliary, k);
    const T* const image_of_q = vector(v_product, k);
    T *const u = vector(v_direction, k), *const v = vector(v_image, k);
    const T rho = dot(vector(v_shadow, k), r);
    if (!(std::abs(rho) <= std::abs(c.rho) * largest_growth)) return cgs_growth;
    const T beta = rho / c.rho;
    if (!(std::abs(beta) >= least_beta)) return cgs_stagnation;
    c.rho = rho;
    each([=](std::size_t i) {
      u[i] = r[i] + product(beta, q[i]);
      v[i] = product(beta, image_of_q[i] + product(beta, v[i]));
    });
    return iteration_converged;
  }

  /// The first half of the step, along M^-1 u; q = u - alpha v takes the place of M^-1 u.
  int cgs_b(std::size_t k) {
    Column& c = columns_[k];
    const T *const u = vector(v_direction, k), *const image_of_u = vector(v_product, k);
    const T* const shadow = vector(v_shadow, k);
    T *const q = vector(v_auxiliary, k), *const v = vector(v_image, k);
    const T sigma = sum([=](std::size_t i) {
      v[i] += image_of_u[i];
      return product(maybe_conj<true>(shadow[i]), v[i]);
    });
    if (!(std::abs(c.rho) <= std::abs(sigma) * largest_growth)) return cgs_breakdown;
    const T alpha = c.alpha = c.rho / sigma;
    if (!(std::abs(alpha) >= least_alpha)) return cgs_standstill;
    advance(c, q, image_of_u, vector(v_residual, k));
    each([=](std::size_t i) { q[i] = u[i] - product(alpha, v[i]); });
    return iteration_converged;
  }

  const StabiliseCall& call_;
  const IterationLimits& limits_;
  const SparseProduct product_;
  const std::size_t n_;
  T* vectors_[all_vectors] = {};  ///< each [n, nrhs]
  double* product_work_ = nullptr;
  Vector<Column> columns_;  ///< those that still iterate
  IterationResult result_;
};

}  // namespace

std::size_t stabilised_bytes(const StabiliseOptions& options, int n, int nrhs) {
  const auto columns = static_cast<std::size_t>(Iteration<double>::vector_count(options)) *
                       static_cast<std::size_t>(nrhs);
  return columns * static_cast<std::size_t>(n) * static_cast<std::size_t>(options.type.nvals()) *
             sizeof(double) +
         amuxy_work_bytes(n, options.type.mtype, options.transpose, options.threads);
}

IterationResult stabilise(const StabiliseCall& call, const IterationLimits& limits) {
  return call.options.type.complex ? Iteration<zcomplex>(call, limits).run()
                                   : Iteration<double>(call, limits).run();
}

}  // namespace vlm
