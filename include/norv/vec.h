/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/vec.h - dense vectors, real or complex.
 */
#ifndef VELMORA_NORV_VEC_H
#define VELMORA_NORV_VEC_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Dense vector. */
struct vec {
  unsigned int n;        /* current length, in values */
  double* v;             /* n doubles, or 2 n when complex */
  unsigned int capacity; /* values allocated */
  int is_complex;        /* 0 or 1 */
};

/* ---------------------------------------------------------------------------
 * vec.  Scalars come first, then dst, then operands.
 * ------------------------------------------------------------------------- */

NORV_API vec* vec_new(unsigned int n); /* contents undefined */
NORV_API vec* vec_new_cpx(unsigned int n);
NORV_API vec* vec_new_zero(unsigned int n);
NORV_API vec* vec_new_zero_cpx(unsigned int n);
/* Wrap n values; release the header alone with free(). */
NORV_API vec* vec_new_from(unsigned int n, double* v);
NORV_API vec* vec_new_from_cpx(unsigned int n, double* v);
NORV_API void vec_release(vec* x); /* null is fine */
/* Sets the length, and reallocates only beyond the capacity. */
NORV_API vec* vec_resize(vec* x, unsigned int n);

NORV_API void vec_init(vec* x);  /* all values 0 */
NORV_API void vec_clear(vec* x); /* all values 0 */
/* All values alpha, or re + i im. */
NORV_API void vec_set(double alpha, vec* x);
NORV_API void vec_set_cpx(double re, double im, vec* x);
NORV_API void vec_rand(vec* x); /* rand() 2^-31, imaginary 0 */

/* dst = src, dst = the n values at v, dst = alpha src. */
NORV_API vec* vec_copy(vec* dst, const vec* src);
NORV_API vec* vec_copy_from(vec* dst, unsigned int n, const double* v);
NORV_API vec* vec_copy_scaled(double alpha, vec* dst, const vec* src);
NORV_API vec* vec_copy_scaled_cpx(double re, double im, vec* dst, const vec* src);

NORV_API void vec_scale(double alpha, vec* x);             /* x = alpha x */
NORV_API void vec_scale_vec(vec* x, const vec* s);         /* x(i) *= s(i) */
NORV_API void vec_scale_vec_squared(vec* x, const vec* s); /* x(i) *= s(i)^2 */
NORV_API void vec_scale_vec_recip(vec* x, const vec* s);   /* x(i) /= s(i) */
/* As vec_scale_vec and vec_scale_vec_squared, into dst. */
NORV_API vec* vec_copy_scale_vec(vec* dst, const vec* src, const vec* s);
NORV_API vec* vec_copy_scale_vec_squared(vec* dst, const vec* src, const vec* s);
NORV_API void vec_recip(vec* x);                           /* x(i) = 1/x(i) */
NORV_API void vec_sqrt(vec* x);                            /* x(i) = sqrt(x(i)) */
NORV_API void vec_apply_func(vec* x, double (*f)(double)); /* x(i) = f(x(i)) */

/* Inner product of real vectors. */
NORV_API double vec_dot(const vec* x, const vec* y);
/* sum x(i) y(i), no conjugation. */
NORV_API void vec_dot_cpx(const vec* x, const vec* y, double* re, double* im);
NORV_API double vec_1_norm(const vec* x);
NORV_API double vec_euclid_norm(const vec* x); /* real and complex */
NORV_API double vec_euclid_norm_cpx(const vec* x);
NORV_API double vec_inf_norm(const vec* x);
NORV_API double vec_min_norm(const vec* x); /* smallest |x(i)| */

/* dst = a + b, dst = a - b; below, sums with real or complex (_cpx) factors. */
NORV_API vec* vec_add(vec* dst, const vec* a, const vec* b);
NORV_API vec* vec_sub(vec* dst, const vec* a, const vec* b);
NORV_API vec* vec_mul(vec* dst, const vec* a, const vec* b);                /* elementwise */
NORV_API vec* vec_axpy(double alpha, vec* dst, const vec* x, const vec* y); /* alpha x + y */
NORV_API vec* vec_axpby(double alpha, double beta, vec* dst, const vec* x, const vec* y);
NORV_API vec* vec_axpy_cpx(double re, double im, vec* dst, const vec* x, const vec* y);
NORV_API vec* vec_axpby_cpx(double re, double im, double beta, vec* dst, const vec* x,
                            const vec* y);

/* Permutations of the places of a vector, by p and by its inverse. */
NORV_API vec* vec_copy_permute(vec* dst, const vec* src, const perm* p); /* dst[p[i]] = src[i] */
NORV_API vec* vec_copy_permute_inverse(vec* dst, const vec* src,
                                       const perm* p);    /* dst[i] = src[p[i]] */
NORV_API void vec_permute(vec* x, const perm* p);         /* in place */
NORV_API void vec_permute_inverse(vec* x, const perm* p); /* in place */
/* The same for blocks of bs values; p has n/bs places. */
NORV_API vec* vec_copy_block_permute(vec* dst, const vec* src, const perm* p, unsigned int bs);
NORV_API vec* vec_copy_block_permute_inverse(vec* dst, const vec* src, const perm* p,
                                             unsigned int bs);
NORV_API vec* vec_concat(vec* dst, const vec* a, const vec* b); /* a, then b */

/* Comparisons: 1 when they hold, else 0; vec_equal is exact. */
NORV_API int vec_equal_up_to(const vec* a, const vec* b, double tol); /* |a(i)-b(i)| <= tol */
NORV_API int vec_equal(const vec* a, const vec* b);
NORV_API int vec_check_positive(const vec* x);            /* all >= 0 */
NORV_API int vec_check_bound(const vec* x, double bound); /* all |x(i)| <= bound */

/* "Inf_Norm of Vector %e", then all values below 27 of them, otherwise the
 * first 13, " ... " and the last 13; through the log. */
NORV_API void vec_print(const vec* x);
NORV_API void vec_print_named(const vec* x, const char* name);
NORV_API void vec_print_full(const vec* x);

/* Writes one value per line, "%24.16e"; for complex all real parts, the line
 * " complex values ", all imaginary parts.  Error message and assertion when the file can't be
 * written. */
NORV_API void vec_save_debug(const vec* x, const char* filename, int is_complex);

/* Principal square root of re + i im. */
NORV_API void norv_cpx_sqrt(double re, double im, double* out_re, double* out_im);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_VEC_H */
