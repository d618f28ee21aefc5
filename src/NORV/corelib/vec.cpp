// SPDX-License-Identifier: BSD-3-Clause
/// Dense vectors: making, filling, copying, permuting, comparing and printing them.
///
/// The arithmetic stands in vec_math.cpp.  A complex vector holds pairs of doubles, so what
/// treats real and imaginary parts alike runs over twice the number of doubles.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "NORV/corelib/vec_common.hpp"

using vlm::require;

namespace {

/// Values that vec_print() shows at each end of a long vector, and the length that is long.
constexpr unsigned printed_at_each_end = 13;
constexpr unsigned printed_in_full_below = 27;

vec* new_header(unsigned n, double* v, int is_complex) {
  vec* x = vlm::allocate<vec>(1);
  *x = {n, v, n, is_complex};
  return x;
}

double* new_array(unsigned n, int is_complex) {
  return vlm::allocate<double>(n * vlm::doubles_per_value(is_complex));
}

/// Moves blocks of bs values between place i and place p[i]: dst[p[i]] = src[i] when
/// scattering, dst[i] = src[p[i]] when gathering.
vec* copy_permuted(vec* dst, const vec* src, const perm* p, unsigned bs, bool scatter) {
  require(src);
  NORV_ASSERT(p != 0);
  NORV_ASSERT(dst != src);
  NORV_ASSERT(bs > 0);
  const auto places = static_cast<unsigned>(p->n);
  NORV_ASSERT(static_cast<std::uint64_t>(places) * bs == src->n);
  dst = vlm::destination(dst, src->n, src->is_complex);
  const std::size_t width = bs * vlm::doubles_per_value(src->is_complex);
  for (std::size_t i = 0; i < places; ++i) {
    const std::size_t target = static_cast<unsigned>(p->p[i]);
    NORV_ASSERT_TEXT(target < places, "p->p[i] < p->n");
    const std::size_t from = scatter ? i : target, to = scatter ? target : i;
    std::copy_n(src->v + from * width, width, dst->v + to * width);
  }
  return dst;
}

void permute_in_place(vec* x, const perm* p, bool scatter) {
  require(x);
  vlm::Buffer<double> copy(vlm::doubles(x));
  std::copy_n(x->v, vlm::doubles(x), copy.data());
  const vec old{x->n, copy.data(), x->n, x->is_complex};
  copy_permuted(x, &old, p, 1, scatter);
}

void add_values(vlm::MessageText& text, const vec* x, unsigned from, unsigned to) {
  for (unsigned i = from; i < to; ++i) {
    if (x->is_complex)
      text.add("%15.8f%+.8fi ", x->v[2 * std::size_t{i}], x->v[2 * std::size_t{i} + 1]);
    else
      text.add("%15.8f ", x->v[i]);
  }
}

void print(const vec* x, bool in_full) {
  require(x);
  _norv_print_stat_msg("Inf_Norm of Vector %e", vec_inf_norm(x));
  vlm::MessageText text;
  if (in_full || x->n < printed_in_full_below) {
    add_values(text, x, 0, x->n);
  } else {
    add_values(text, x, 0, printed_at_each_end);
    text.add(" ... ");
    add_values(text, x, x->n - printed_at_each_end, x->n);
  }
  _norv_print_stat_msg("%s", text.c_str());
}

/// Whether near(a_i, b_i) holds for every value; false for different shapes.
template <class F>
int equal(const vec* a, const vec* b, F&& near) {
  require(a);
  require(b);
  if (a->n != b->n || a->is_complex != b->is_complex) return 0;
  return vlm::by_kind(a->is_complex, [&](auto kind) {
    using T = decltype(kind);
    return std::equal(vlm::values<T>(a), vlm::values<T>(a) + a->n, vlm::values<T>(b), near);
  });
}

}  // namespace

vec* vec_new(unsigned int n) { return new_header(n, new_array(n, 0), 0); }

vec* vec_new_cpx(unsigned int n) { return new_header(n, new_array(n, 1), 1); }

vec* vec_new_zero(unsigned int n) { return new_header(n, vlm::allocate_cleared<double>(n), 0); }

vec* vec_new_zero_cpx(unsigned int n) {
  return new_header(n, vlm::allocate_cleared<double>(2 * std::uint64_t{n}), 1);
}

vec* vec_new_from(unsigned int n, double* v) {
  NORV_ASSERT(v != 0 || n == 0);
  return new_header(n, v, 0);
}

vec* vec_new_from_cpx(unsigned int n, double* v) {
  NORV_ASSERT(v != 0 || n == 0);
  return new_header(n, v, 1);
}

void vec_release(vec* x) {
  if (!x) return;
  vlm::release_block(x->v);
  vlm::release_block(x);
}

vec* vec_resize(vec* x, unsigned int n) {
  require(x);
  if (n > x->capacity) {
    x->v = vlm::reallocate(x->v, n * vlm::doubles_per_value(x->is_complex));
    x->capacity = n;
  }
  x->n = n;
  return x;
}

void vec_init(vec* x) { vec_clear(x); }

void vec_clear(vec* x) {
  require(x);
  std::fill_n(x->v, vlm::doubles(x), 0.0);
}

void vec_set(double alpha, vec* x) {
  require(x);
  vlm::by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    std::fill_n(vlm::values<T>(x), x->n, T(alpha));
  });
}

void vec_set_cpx(double re, double im, vec* x) {
  require(x);
  NORV_ASSERT(x->is_complex);
  std::fill_n(vlm::values<vlm::zcomplex>(x), x->n, vlm::zcomplex(re, im));
}

void vec_rand(vec* x) {
  require(x);
  vlm::by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    T* const v = vlm::values<T>(x);
    for (unsigned i = 0; i < x->n; ++i) v[i] = T(std::ldexp(std::rand(), -31));
  });
}

vec* vec_copy(vec* dst, const vec* src) {
  require(src);
  dst = vlm::destination(dst, src->n, src->is_complex);
  if (dst != src) std::copy_n(src->v, vlm::doubles(src), dst->v);
  return dst;
}

vec* vec_copy_from(vec* dst, unsigned int n, const double* v) {
  NORV_ASSERT(v != 0 || n == 0);
  dst = vlm::destination(dst, n, dst ? dst->is_complex : 0);
  std::copy_n(v, vlm::doubles(dst), dst->v);
  return dst;
}

vec* vec_copy_permute(vec* dst, const vec* src, const perm* p) {
  return copy_permuted(dst, src, p, 1, true);
}

vec* vec_copy_permute_inverse(vec* dst, const vec* src, const perm* p) {
  return copy_permuted(dst, src, p, 1, false);
}

void vec_permute(vec* x, const perm* p) { permute_in_place(x, p, true); }

void vec_permute_inverse(vec* x, const perm* p) { permute_in_place(x, p, false); }

vec* vec_copy_block_permute(vec* dst, const vec* src, const perm* p, unsigned int bs) {
  return copy_permuted(dst, src, p, bs, true);
}

vec* vec_copy_block_permute_inverse(vec* dst, const vec* src, const perm* p, unsigned int bs) {
  return copy_permuted(dst, src, p, bs, false);
}

vec* vec_concat(vec* dst, const vec* a, const vec* b) {
  require(a);
  require(b);
  NORV_ASSERT(a->is_complex == b->is_complex);
  NORV_ASSERT(dst == 0 || (dst != a && dst != b));
  NORV_ASSERT(a->n + b->n >= a->n);
  dst = vlm::destination(dst, a->n + b->n, a->is_complex);
  std::copy_n(b->v, vlm::doubles(b), std::copy_n(a->v, vlm::doubles(a), dst->v));
  return dst;
}

int vec_equal_up_to(const vec* a, const vec* b, double tol) {
  return equal(a, b, [tol](auto x, auto y) { return std::abs(x - y) <= tol; });
}

int vec_equal(const vec* a, const vec* b) {
  return equal(a, b, [](auto x, auto y) { return x == y; });
}

void vec_print(const vec* x) { print(x, false); }

void vec_print_named(const vec* x, const char* name) {
  NORV_ASSERT(name != 0);
  _norv_print_stat_msg("%s:", name);
  print(x, false);
}

void vec_print_full(const vec* x) { print(x, true); }

void vec_save_debug(const vec* x, const char* filename, int is_complex) {
  require(x);
  NORV_ASSERT(filename != 0);
  NORV_ASSERT(x->is_complex || !is_complex);
  std::FILE* const file = std::fopen(filename, "w");
  if (file == nullptr) _norv_print_error_msg("Could not open %s. \n", filename);
  NORV_ASSERT(file != 0);
  const std::size_t step = is_complex ? 2 : 1;
  const std::size_t count = is_complex ? 2 * std::size_t{x->n} : vlm::doubles(x);
  for (std::size_t k = 0; k < count; k += step) std::fprintf(file, "%24.16e\n", x->v[k]);
  if (is_complex) {
    std::fputs(" complex values \n", file);
    for (std::size_t k = 1; k < count; k += 2) std::fprintf(file, "%24.16e\n", x->v[k]);
  }
  const bool written = std::ferror(file) == 0;
  const bool closed = std::fclose(file) == 0 && written;
  if (!closed) _norv_print_error_msg("Could not close %s.", filename);
  NORV_ASSERT(closed);
}
