// SPDX-License-Identifier: BSD-3-Clause
/// Dense vectors: scaling, sums, products, norms and bounds.
///
/// Elementwise routines may write over an operand.  Sums run in several partial sums that the
/// compiler spreads over vector registers, so they need not agree to the last bit with a sum
/// from front to back.
#include <algorithm>
#include <cmath>

#include "NORV/corelib/vec_common.hpp"

using vlm::by_kind;
using vlm::require;
using vlm::values;
using vlm::zcomplex;

namespace {

/// dst_k = f(x_k) over the doubles of a vector, real and imaginary parts alike.
template <class F>
vec* combine(vec* dst, const vec* x, F&& f) {
  require(x);
  dst = vlm::destination(dst, x->n, x->is_complex);
  const std::size_t count = vlm::doubles(x);
  const double* const a = x->v;
  double* const d = dst->v;
  vlm::for_parts(count, [&](std::size_t first, std::size_t last) {
#pragma omp simd
    for (std::size_t k = first; k < last; ++k) d[k] = f(a[k]);
  });
  return dst;
}

/// dst_k = f(x_k, y_k) over the doubles of two vectors of one shape.
template <class F>
vec* combine(vec* dst, const vec* x, const vec* y, F&& f) {
  require(x);
  require(y);
  NORV_ASSERT(x->n == y->n);
  NORV_ASSERT(x->is_complex == y->is_complex);
  dst = vlm::destination(dst, x->n, x->is_complex);
  const std::size_t count = vlm::doubles(x);
  const double *const a = x->v, *const b = y->v;
  double* const d = dst->v;
  vlm::for_parts(count, [&](std::size_t first, std::size_t last) {
#pragma omp simd
    for (std::size_t k = first; k < last; ++k) d[k] = f(a[k], b[k]);
  });
  return dst;
}

/// dst_i = f(src_i, s_i); s may be real beside a complex src.
template <class F>
vec* scale_by(vec* dst, const vec* src, const vec* s, F&& f) {
  require(src);
  require(s);
  NORV_ASSERT(src->n == s->n);
  NORV_ASSERT(src->is_complex || !s->is_complex);
  dst = vlm::destination(dst, src->n, src->is_complex);
  const auto loop = [&](auto* to, const auto* from, const auto* factor) {
    vlm::for_parts(src->n, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) to[i] = f(from[i], factor[i]);
    });
  };
  if (!src->is_complex)
    loop(dst->v, src->v, s->v);
  else if (s->is_complex)
    loop(values<zcomplex>(dst), values<zcomplex>(src), values<zcomplex>(s));
  else
    loop(values<zcomplex>(dst), values<zcomplex>(src), values<double>(s));
  return dst;
}

constexpr auto times = [](auto x, auto s) { return vlm::product(x, s); };
constexpr auto times_squared = [](auto x, auto s) { return vlm::product(x, vlm::product(s, s)); };

/// x_i = f(x_i) over values.
template <class F>
void transform(vec* x, F&& f) {
  require(x);
  by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    std::transform(values<T>(x), values<T>(x) + x->n, values<T>(x), f);
  });
}

/// dst = alpha x + beta y with a complex alpha, for complex vectors.
vec* combine_complex(zcomplex alpha, double beta, vec* dst, const vec* x, const vec* y) {
  require(x);
  require(y);
  NORV_ASSERT(x->is_complex && y->is_complex);
  NORV_ASSERT(x->n == y->n);
  dst = vlm::destination(dst, x->n, 1);
  const zcomplex *const a = values<zcomplex>(x), *const b = values<zcomplex>(y);
  zcomplex* const d = values<zcomplex>(dst);
  for (std::size_t i = 0; i < x->n; ++i)
    d[i] = vlm::product(alpha, a[i]) + vlm::product(beta, b[i]);
  return dst;
}

/// Folds the magnitudes of a vector that is not empty: the one that `better` prefers, or not a
/// number when there is one among them.
template <class F>
double extreme_magnitude(const vec* x, F&& better) {
  return by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T* const v = values<T>(x);
    double found = std::abs(v[0]);
    for (std::size_t i = 1; i < x->n; ++i) {
      const double magnitude = std::abs(v[i]);
      if (better(magnitude, found) || std::isnan(magnitude)) found = magnitude;
    }
    return found;
  });
}

/// Square root of the sum of (a_k / scale)^2, times the scale.
double scaled_norm(const double* a, std::size_t count, double scale) {
  double sum = 0.0;
  for (std::size_t k = 0; k < count; ++k) sum += (a[k] / scale) * (a[k] / scale);
  return scale * std::sqrt(sum);
}

double euclid_norm(const vec* x) {
  const std::size_t count = vlm::doubles(x);
  const double* const a = x->v;
  const double sum = vlm::sum_of_parts(count, [=](std::size_t first, std::size_t last) {
    double part = 0.0;
#pragma omp simd reduction(+ : part)
    for (std::size_t k = first; k < last; ++k) part += a[k] * a[k];
    return part;
  });
  // Between these bounds no square that matters has left the range of doubles.
  if (sum > 1e-280 && std::isfinite(sum)) return std::sqrt(sum);
  const double largest = vec_inf_norm(x);
  if (largest == 0.0 || !std::isfinite(largest)) return largest;
  return scaled_norm(a, count, largest);
}

}  // namespace

vec* vec_copy_scaled(double alpha, vec* dst, const vec* src) {
  return combine(dst, src, [alpha](double x) { return alpha * x; });
}

vec* vec_copy_scaled_cpx(double re, double im, vec* dst, const vec* src) {
  require(src);
  NORV_ASSERT(src->is_complex);
  dst = vlm::destination(dst, src->n, 1);
  const zcomplex alpha(re, im), *const a = values<zcomplex>(src);
  zcomplex* const d = values<zcomplex>(dst);
  for (std::size_t i = 0; i < src->n; ++i) d[i] = vlm::product(alpha, a[i]);
  return dst;
}

void vec_scale(double alpha, vec* x) { vec_copy_scaled(alpha, x, x); }

void vec_scale_vec(vec* x, const vec* s) { scale_by(x, x, s, times); }

void vec_scale_vec_squared(vec* x, const vec* s) { scale_by(x, x, s, times_squared); }

void vec_scale_vec_recip(vec* x, const vec* s) {
  scale_by(x, x, s, [](auto value, auto divisor) { return value / divisor; });
}

vec* vec_copy_scale_vec(vec* dst, const vec* src, const vec* s) {
  return scale_by(dst, src, s, times);
}

vec* vec_copy_scale_vec_squared(vec* dst, const vec* src, const vec* s) {
  return scale_by(dst, src, s, times_squared);
}

void vec_recip(vec* x) {
  transform(x, [](auto value) { return 1.0 / value; });
}

void vec_sqrt(vec* x) {
  transform(x, [](auto value) { return std::sqrt(value); });
}

void vec_apply_func(vec* x, double (*f)(double)) {
  require(x);
  NORV_ASSERT(f != 0);
  NORV_ASSERT(!x->is_complex);
  std::transform(x->v, x->v + x->n, x->v, f);
}

double vec_dot(const vec* x, const vec* y) {
  require(x);
  require(y);
  NORV_ASSERT(x->n == y->n);
  NORV_ASSERT(!x->is_complex && !y->is_complex);
  const double *const a = x->v, *const b = y->v;
  const std::size_t count = x->n;
  return vlm::sum_of_parts(count, [=](std::size_t first, std::size_t last) {
    double part = 0.0;
#pragma omp simd reduction(+ : part)
    for (std::size_t k = first; k < last; ++k) part += a[k] * b[k];
    return part;
  });
}

void vec_dot_cpx(const vec* x, const vec* y, double* re, double* im) {
  require(x);
  require(y);
  NORV_ASSERT(re != 0 && im != 0);
  NORV_ASSERT(x->n == y->n);
  NORV_ASSERT(x->is_complex && y->is_complex);
  const double *const a = x->v, *const b = y->v;
  const std::size_t count = x->n;
  const zcomplex sum = vlm::sum_of_parts(count, [=](std::size_t first, std::size_t last) {
    double sum_re = 0.0, sum_im = 0.0;
#pragma omp simd reduction(+ : sum_re, sum_im)
    for (std::size_t k = first; k < last; ++k) {
      sum_re += a[2 * k] * b[2 * k] - a[2 * k + 1] * b[2 * k + 1];
      sum_im += a[2 * k] * b[2 * k + 1] + a[2 * k + 1] * b[2 * k];
    }
    return zcomplex(sum_re, sum_im);
  });
  *re = sum.real();
  *im = sum.imag();
}

double vec_1_norm(const vec* x) {
  require(x);
  return by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T* const v = values<T>(x);
    const std::size_t count = x->n;
    double sum = 0.0;
#pragma omp simd reduction(+ : sum)
    for (std::size_t i = 0; i < count; ++i) sum += std::abs(v[i]);
    return sum;
  });
}

double vec_euclid_norm(const vec* x) {
  require(x);
  return euclid_norm(x);
}

double vec_euclid_norm_cpx(const vec* x) {
  require(x);
  NORV_ASSERT(x->is_complex);
  return euclid_norm(x);
}

double vec_inf_norm(const vec* x) {
  require(x);
  return x->n == 0 ? 0.0 : extreme_magnitude(x, [](double a, double b) { return a > b; });
}

double vec_min_norm(const vec* x) {
  require(x);
  return x->n == 0 ? 0.0 : extreme_magnitude(x, [](double a, double b) { return a < b; });
}

vec* vec_add(vec* dst, const vec* a, const vec* b) {
  return combine(dst, a, b, [](double x, double y) { return x + y; });
}

vec* vec_sub(vec* dst, const vec* a, const vec* b) {
  return combine(dst, a, b, [](double x, double y) { return x - y; });
}

vec* vec_mul(vec* dst, const vec* a, const vec* b) {
  require(a);
  require(b);
  NORV_ASSERT(a->is_complex == b->is_complex);
  return scale_by(dst, a, b, times);
}

vec* vec_axpy(double alpha, vec* dst, const vec* x, const vec* y) {
  return combine(dst, x, y, [alpha](double a, double b) { return alpha * a + b; });
}

vec* vec_axpby(double alpha, double beta, vec* dst, const vec* x, const vec* y) {
  return combine(dst, x, y, [alpha, beta](double a, double b) { return alpha * a + beta * b; });
}

vec* vec_axpy_cpx(double re, double im, vec* dst, const vec* x, const vec* y) {
  return combine_complex({re, im}, 1.0, dst, x, y);
}

vec* vec_axpby_cpx(double re, double im, double beta, vec* dst, const vec* x, const vec* y) {
  return combine_complex({re, im}, beta, dst, x, y);
}

int vec_check_positive(const vec* x) {
  require(x);
  NORV_ASSERT(!x->is_complex);
  return std::all_of(x->v, x->v + x->n, [](double value) { return value >= 0.0; });
}

int vec_check_bound(const vec* x, double bound) {
  require(x);
  return by_kind(x->is_complex, [&](auto kind) -> int {
    using T = decltype(kind);
    return std::all_of(values<T>(x), values<T>(x) + x->n,
                       [bound](T value) { return std::abs(value) <= bound; });
  });
}

void norv_cpx_sqrt(double re, double im, double* out_re, double* out_im) {
  NORV_ASSERT(out_re != 0 && out_im != 0);
  const zcomplex root = std::sqrt(zcomplex(re, im));
  *out_re = root.real();
  *out_im = root.imag();
}
