// SPDX-License-Identifier: BSD-3-Clause
/// Block compressed rows: making, products, scaling, access, comparison, checks and printing.
///
/// A symmetric matrix stores the blocks with column >= row, those on the diagonal in full.  The
/// way from and to smat stands in bmat_convert.cpp.
#include <cmath>

#include "NORV/corelib/bmat_common.hpp"

using vlm::block;
using vlm::require;

namespace vlm {

bmat* new_bmat_header(unsigned m, unsigned n, unsigned bn, int sym) {
  NORV_ASSERT(bn > 0 && bn < 65536);
  NORV_ASSERT(!sym || m == n);
  bmat* B = allocate_cleared<bmat>(1);
  B->m = m;
  B->n = n;
  B->bn = bn;
  B->bdim = bn * bn;
  B->sym = sym ? 1 : 0;
  B->op = {
      NORV_LINOP_TAG, static_cast<int>(rows(B)), static_cast<int>(columns(B)), B, "B", bmat_gemv,
      bmat_gemv_trans};
  return B;
}

}  // namespace vlm

namespace {

/// y := alpha op(B) x + beta y.  A stored block acts as it is, as its transpose, or, off the
/// diagonal of a symmetric matrix, as both.
void gemv(double alpha, double beta, const bmat* B, const vec* x, vec* y, bool trans) {
  require(B);
  vlm::require_real(x, trans ? vlm::rows(B) : vlm::columns(B));
  vlm::require_real(y, trans ? vlm::columns(B) : vlm::rows(B));
  NORV_ASSERT(x != y);
  const std::size_t bn = B->bn;
  vlm::scale_or_clear(beta, y->v, y->n);
  vlm::Buffer<double> sum(bn), scaled_x(bn);
  for (std::size_t i = 0; i < B->m; ++i) {
    std::fill_n(sum.data(), bn, 0.0);
    if (trans || B->sym)
      for (std::size_t r = 0; r < bn; ++r) scaled_x[r] = alpha * x->v[i * bn + r];
    for (int k = B->ia[i]; k < B->ia[i + 1]; ++k) {
      const auto j = static_cast<std::size_t>(B->ja[k]);
      const double* const a = block(B, static_cast<std::size_t>(k));
      const bool both = B->sym && j != i;
      if (!trans || both) vlm::add_block_product(B->bn, sum.data(), a, x->v + j * bn);
      if (trans || both) vlm::add_block_product_trans(B->bn, y->v + j * bn, a, scaled_x.data());
    }
    if (!trans || B->sym)
      for (std::size_t r = 0; r < bn; ++r) y->v[i * bn + r] += alpha * sum[r];
  }
}

/// Runs a check of the block structure on a header of the sparse kind.
int check_structure(const bmat* B, int (*check)(const smat*)) {
  require(B);
  smat* structure = bmat_fake_smat(B);
  const int sound = check(structure);
  vlm::release_block(structure);
  return sound;
}

void add_block(vlm::MessageText& text, const bmat* B, const double* a) {
  for (std::size_t r = 0; r < B->bn; ++r) {
    text.add("\n");
    for (std::size_t c = 0; c < B->bn; ++c) text.add("%15.8f ", a[r * B->bn + c]);
  }
}

}  // namespace

bmat* bmat_new(unsigned int m, unsigned int n, unsigned int bn, int sym) {
  bmat* B = vlm::new_bmat_header(m, n, bn, sym);
  B->ia = vlm::allocate_cleared<int>(std::uint64_t{m} + 1);
  return B;
}

bmat* bmat_new_nzb(unsigned int m, unsigned int n, unsigned int nzb, unsigned int bn, int sym) {
  bmat* B = bmat_new(m, n, bn, sym);
  bmat_realloc(B, nzb);
  std::fill_n(B->ja, nzb, 0);
  std::fill_n(B->a, std::size_t{nzb} * B->bdim, 0.0);
  return B;
}

bmat* bmat_new_from(unsigned int m, unsigned int n, unsigned int bn, int* ia, int* ja, double* a,
                    int sym) {
  NORV_ASSERT(ia != 0);
  bmat* B = vlm::new_bmat_header(m, n, bn, sym);
  B->nzb = static_cast<unsigned>(ia[m]);
  B->ia = ia;
  B->ja = ja;
  B->a = a;
  return B;
}

void bmat_realloc(bmat* B, unsigned int nzb) {
  require(B);
  B->nzb = nzb;
  B->ja = vlm::reallocate(B->ja, nzb);
  B->a = vlm::reallocate(B->a, std::uint64_t{nzb} * B->bdim);
}

void bmat_free(bmat* B) {
  if (!B) return;
  vlm::release_block(B->ia);
  vlm::release_block(B->ja);
  vlm::release_block(B->a);
  vlm::release_block(B);
}

void bmat_gemv(double alpha, double beta, const void* B, const vec* x, vec* y) {
  gemv(alpha, beta, static_cast<const bmat*>(B), x, y, false);
}

void bmat_gemv_trans(double alpha, double beta, const void* B, const vec* x, vec* y) {
  gemv(alpha, beta, static_cast<const bmat*>(B), x, y, true);
}

vec* bmat_get_diag_scaling(vec* dst, const bmat* B) {
  require(B);
  NORV_ASSERT(B->m == B->n);
  const auto n = static_cast<unsigned>(vlm::rows(B));
  if (!dst) dst = vec_new(n);
  vlm::require_real(dst, n);
  vec_set(1.0, dst);
  vlm::for_each_block(B, [&](unsigned i, unsigned j, std::size_t k) {
    if (i != j) return;
    for (std::size_t r = 0; r < B->bn; ++r) {
      const double pivot = std::abs(block(B, k)[r * B->bn + r]);
      if (pivot != 0.0) dst->v[i * std::size_t{B->bn} + r] = 1.0 / std::sqrt(pivot);
    }
  });
  return dst;
}

void bmat_scale(bmat* B, const vec* left, const vec* right) {
  require(B);
  vlm::require_real(left, vlm::rows(B));
  vlm::require_real(right, vlm::columns(B));
  const std::size_t bn = B->bn;
  vlm::for_each_block(B, [&](unsigned i, unsigned j, std::size_t k) {
    const double *const l = left->v + i * bn, *const r = right->v + j * bn;
    double* const a = block(B, k);
    for (std::size_t row = 0; row < bn; ++row)
      for (std::size_t column = 0; column < bn; ++column)
        a[row * bn + column] *= l[row] * r[column];
  });
}

double bmat_get_ij_elem(const bmat* B, unsigned int i, unsigned int j) {
  require(B);
  NORV_ASSERT(i < vlm::rows(B) && j < vlm::columns(B));
  if (B->sym && i / B->bn > j / B->bn) std::swap(i, j);
  const double* const a = bmat_get_ij_block(B, i / B->bn, j / B->bn);
  return a ? a[i % B->bn * B->bn + j % B->bn] : 0.0;
}

double* bmat_get_ij_block(const bmat* B, unsigned int i, unsigned int j) {
  require(B);
  NORV_ASSERT(i < B->m && j < B->n);
  const int *const first = B->ja + B->ia[i], *const behind = B->ja + B->ia[i + 1];
  const int* const place = std::lower_bound(first, behind, static_cast<int>(j));
  if (place == behind || *place != static_cast<int>(j)) return nullptr;
  return block(B, static_cast<std::size_t>(place - B->ja));
}

void bmat_print_ij(const bmat* B, unsigned int i, unsigned int j) {
  vlm::MessageText text;
  text.add("block (%u, %u)", i, j);
  if (const double* a = bmat_get_ij_block(B, i, j))
    add_block(text, B, a);
  else
    text.add(" is not stored");
  _norv_print_stat_msg("%s", text.c_str());
}

void bmat_print(const bmat* B) {
  require(B);
  vlm::MessageText text;
  text.add("bmat of %u x %u blocks of size %u, %u stored%s", B->m, B->n, B->bn, B->nzb,
           B->sym ? ", symmetric" : "");
  vlm::for_each_block(B, [&](unsigned i, unsigned j, std::size_t k) {
    text.add("\nblock (%u, %u)", i, j);
    add_block(text, B, block(B, k));
  });
  _norv_print_stat_msg("%s", text.c_str());
}

void bmat_print_raw(const bmat* B) {
  require(B);
  vlm::MessageText text;
  text.add("*B     = { %u, %u, %u, %u, %s };\nia     = {", B->m, B->n, B->nzb, B->bn,
           B->sym ? "symmetric" : "non-symmetric");
  for (std::size_t i = 0; i <= B->m; ++i) text.add(" %d", B->ia[i]);
  text.add(" };\nja     = {");
  for (std::size_t k = 0; k < B->nzb; ++k) text.add(" %d", B->ja[k]);
  text.add(" };\na      = {");
  for (std::size_t k = 0; k < std::size_t{B->nzb} * B->bdim; ++k) text.add(" %.16e", B->a[k]);
  text.add(" };");
  _norv_print_stat_msg("%s", text.c_str());
}

int bmat_equal(const bmat* A, const bmat* B) {
  require(A);
  require(B);
  return A->m == B->m && A->n == B->n && A->nzb == B->nzb && A->bn == B->bn && A->sym == B->sym &&
         std::equal(A->ia, A->ia + A->m + 1, B->ia) && std::equal(A->ja, A->ja + A->nzb, B->ja) &&
         std::equal(A->a, A->a + std::size_t{A->nzb} * A->bdim, B->a);
}

int bmat_check_ia(const bmat* B) {
  const int rising = check_structure(B, smat_check_ia);
  if (B->ia[B->m] >= 0 && static_cast<unsigned>(B->ia[B->m]) == B->nzb) return rising;
  _norv_print_error_msg("Matrix nzb not consistent! ia[%u]=%d, nzb=%u.", B->m, B->ia[B->m], B->nzb);
  return 0;
}

int bmat_check_ja(const bmat* B) { return check_structure(B, smat_check_ja); }

int bmat_check_structural_symmetry(const bmat* B) {
  return check_structure(B, smat_check_structural_symmetry);
}
