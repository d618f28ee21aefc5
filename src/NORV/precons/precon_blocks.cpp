// SPDX-License-Identifier: BSD-3-Clause
/// Preconditioners of diagonal blocks of consecutive rows: a block incomplete LU (BLOCKLU), and
/// sweeps over the blocks with a preconditioner for each (BLOCKGS).
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/precons.hpp"
#include "NORV/precons/scalars.hpp"
#include "norv/bmat.h"
#include "norv/classes.h"

namespace {

// Places of the parameters.
enum { lu_blocks = 0, lu_sizes = 1, gs_blocks = 0, gs_inner = 1, gs_variant = 2, gs_sizes = 3 };
constexpr int most_sizes = NORV_PRECON_IPARAMS - gs_sizes;

/// The blocks, and for each diagonal one, as it was made, what stands for its inverse.
struct Blocks {
  sbmat* S;
  smat* D[NORV_PRECON_IPARAMS];  ///< null: the block of S
  precon* inverse[NORV_PRECON_IPARAMS];
};

Blocks& blocks_of(const precon* M) { return *static_cast<Blocks*>(M->data); }

void forget(Blocks& b) {
  for (int i = 0; i < NORV_PRECON_IPARAMS; ++i) {
    precon_free(b.inverse[i], -1);
    if (b.D[i] != nullptr) smat_free(b.D[i]);
    b.inverse[i] = nullptr;
    b.D[i] = nullptr;
  }
  sbmat_free(b.S);
  b.S = nullptr;
}

smat* block(const Blocks& b, unsigned i, unsigned j) {
  return b.S->blocks[static_cast<std::size_t>(i) * b.S->nb + j];
}

/// Cuts A; sizes that are all 0 are equal ones.
void cut(Blocks& b, const smat* A, int count, const int* sizes) {
  if (count < 1 || static_cast<unsigned>(count) > A->m)
    vlm::bad_options(1, "%d blocks of %u rows.", count, A->m);
  const auto nb = static_cast<unsigned>(count);
  if (std::all_of(sizes, sizes + std::min(count, most_sizes), [](int size) { return size == 0; })) {
    int* const equal = smat_find_blocks(A, nb);
    b.S = sbmat_new(A, nb, equal);
    vlm::release_block(equal);
  } else {
    b.S = sbmat_new(A, nb, sizes);
  }
}

/// The values of block i of x.
vec* part_of(const Blocks& b, const vec* x, unsigned i) {
  std::size_t first = 0;
  for (unsigned k = 0; k < i; ++k) first += static_cast<std::size_t>(b.S->sizes[k]);
  const auto size = static_cast<unsigned>(b.S->sizes[i]);
  vec* const part = x->is_complex ? vec_new_cpx(size) : vec_new(size);
  const std::size_t width = vlm::doubles_per_value(x->is_complex);
  std::copy_n(x->v + first * width, size * width, part->v);
  return part;
}

/// y := D(i)^-1 y, or D(i)^-T y.
template <bool transposed>
void solve_block(const Blocks& b, unsigned i, vec* y) {
  transposed ? precon_solve_trans(y, b.inverse[i], y) : precon_solve(y, b.inverse[i], y);
}

/// rest -= sum of A(i, j) y(j) for j from `first` to before `last`, of A or its transpose.
template <bool transposed>
void subtract(const Blocks& b, unsigned i, unsigned first, unsigned last, vec* const* y,
              vec* rest) {
  for (unsigned j = first; j < last; ++j) {
    vec* const image = transposed ? smat_vecmul_trans(nullptr, block(b, j, i), y[j])
                                  : smat_vecmul(nullptr, block(b, i, j), y[j]);
    vec_sub(rest, rest, image);
    vec_release(image);
  }
}

void collect(vec* result, vec** parts, unsigned count) {
  double* to = result->v;
  for (unsigned i = 0; i < count; ++i) {
    const std::size_t doubles = vlm::doubles(parts[i]);
    to = std::copy_n(parts[i]->v, doubles, to);
    vec_release(parts[i]);
  }
}

void free_blocks(precon* M, int) {
  forget(blocks_of(M));
  vlm::release_block(M->data);
  vlm::release_precon(M);
}

/// Sets up what stands for the inverse of diagonal block i.  @return false: it failed
bool invert(precon* M, Blocks& b, unsigned i, precon* inverse) {
  b.inverse[i] = inverse;
  if (precon_setup(inverse, b.D[i] != nullptr ? b.D[i] : block(b, i, i)) == 0) return false;
  M->nnz += inverse->nnz;
  M->nperturbed += inverse->nperturbed;
  return true;
}

// ---- BLOCKLU ----------------------------------------------------------------------------

/// The diagonal matrix of the reciprocals of D's diagonal; 1 for 0.
smat* reciprocal_diagonal(const smat* D) {
  smat* const R = smat_new_nnz(D->m, D->m, D->m, D->is_complex ? NORV_CPX_UNSYM : NORV_REAL_UNSYM);
  vec* const d = smat_get_diag(nullptr, D);
  vlm::by_kind(D->is_complex, [&](auto kind) {
    using T = decltype(kind);
    for (unsigned i = 0; i < D->m; ++i) {
      const T entry = vlm::values<T>(d)[i];
      vlm::values_as<T>(R->a)[i] = entry == T{} ? T(1) : vlm::norv::divide(T(1), entry);
      R->ja[i] = static_cast<int>(i);
      R->ia[i + 1] = static_cast<int>(i) + 1;
    }
  });
  vec_release(d);
  return R;
}

/// A(i,i) less A(i,j) diag(D(j))^-1 A(j,i) for the blocks before.
smat* complement(const Blocks& b, unsigned i) {
  smat* D = smat_copy(block(b, i, i));
  for (unsigned j = 0; j < i; ++j) {
    smat* const R = reciprocal_diagonal(b.D[j]);
    smat* const update = smat_matmul3(block(b, i, j), R, block(b, j, i));
    smat* const less = smat_sub(D, update);
    for (smat* each : {D, R, update}) smat_free(each);
    D = less;
  }
  return D;
}

int fill_blocklu(precon* M, smat* A) {
  const int num_blocks = M->iparam[lu_blocks];
  NORV_ASSERT(num_blocks < 5);
  NORV_ASSERT(!A->sym);
  _norv_print_stat_msg("Setting up Block-LU preconditioner ...");
  Blocks& b = blocks_of(M);
  forget(b);
  M->nnz = M->nperturbed = 0;
  M->is_complex = A->is_complex;
  cut(b, A, num_blocks, M->iparam + lu_sizes);
  for (unsigned i = 0; i < b.S->nb; ++i) {
    b.D[i] = complement(b, i);
    if (!invert(M, b, i, precon_lu_create())) return 0;
  }
  return 1;
}

int blocklu_setup(precon* M, smat* A) {
  return vlm::fill(blocks_of(M), [&] { return fill_blocklu(M, A); });
}

/// With the complements D and the parts of A below and above them M is (D + L) D^-1 (D + U), and so
/// is its transpose with those of A's.
template <bool transposed>
vec* blocklu_apply(vec* result, precon* M, const vec* x) {
  const Blocks& b = blocks_of(M);
  NORV_ASSERT(b.S != 0);
  NORV_ASSERT(x->n == b.S->n);
  vec* y[NORV_PRECON_IPARAMS] = {};
  const unsigned nb = b.S->nb;
  for (unsigned i = 0; i < nb; ++i) {
    y[i] = part_of(b, x, i);
    subtract<transposed>(b, i, 0, i, y, y[i]);
    solve_block<transposed>(b, i, y[i]);
  }
  for (unsigned i = nb - 1; i-- > 0;) {
    vec* const rest = vec_copy(nullptr, y[i]);
    vec_clear(rest);
    subtract<transposed>(b, i, i + 1, nb, y, rest);
    solve_block<transposed>(b, i, rest);
    vec_add(y[i], y[i], rest);
    vec_release(rest);
  }
  collect(result, y, nb);
  return result;
}

// ---- BLOCKGS ----------------------------------------------------------------------------

constexpr const char* variant_names[] = {"JAC", "GS", "SGS", "SOR"};

/// The class of a row of the table that can stand for a block; null for others.
precon* inner_class(int row) {
  constexpr int row_ilut = 7, row_lu = 10, ilut_fill = 50;
  if (row == row_lu) return precon_lu_create();
  if (row == row_ilut) return precon_ilut_create_param(1e-4, ilut_fill);
  return nullptr;
}

int fill_block_gs(precon* M, smat* A) {
  NORV_ASSERT(!A->sym);
  Blocks& b = blocks_of(M);
  forget(b);
  M->nnz = M->nperturbed = 0;
  M->is_complex = A->is_complex;
  const int variant = M->iparam[gs_variant], inner = M->iparam[gs_inner];
  if (variant < NORV_BLOCK_JACOBI || variant > NORV_BLOCK_SOR) {
    _norv_print_error_msg("Unknown method.");
    return 0;
  }
  if (M->iparam[gs_blocks] > most_sizes)
    vlm::bad_options(1, "%d blocks, more than %d.", M->iparam[gs_blocks], most_sizes);
  cut(b, A, M->iparam[gs_blocks], M->iparam + gs_sizes);
  for (unsigned i = 0; i < b.S->nb; ++i) {
    precon* const made = inner_class(inner);
    if (made == nullptr) {
      char row[24];
      std::snprintf(row, sizeof row, "%d", inner);
      _norv_print_error_msg("Preconditioner %s not supported.", row);
      return 0;
    }
    if (i == 0)
      _norv_print_stat_msg("Setting up BLOCK GS preconditioner (%d, %s, %f)", M->iparam[gs_blocks],
                           made->name, M->dparam[0]);
    if (!invert(M, b, i, made)) return 0;
  }
  return 1;
}

int block_gs_setup(precon* M, smat* A) {
  return vlm::fill(blocks_of(M), [&] { return fill_block_gs(M, A); });
}

/// The sweep of the transpose goes from the last block to the first; forward and backward, it is
/// that of A's transpose.
template <bool transposed>
vec* block_gs_apply(vec* result, precon* M, const vec* x) {
  const Blocks& b = blocks_of(M);
  NORV_ASSERT(b.S != 0);
  NORV_ASSERT(x->n == b.S->n);
  vec* y[NORV_PRECON_IPARAMS];
  const unsigned nb = b.S->nb;
  const int variant = M->iparam[gs_variant];
  const bool from_last = transposed && variant != NORV_BLOCK_SGS;
  for (unsigned k = 0; k < nb; ++k) {
    const unsigned i = from_last ? nb - 1 - k : k;
    y[i] = part_of(b, x, i);
    if (variant != NORV_BLOCK_JACOBI)
      subtract<transposed>(b, i, from_last ? i + 1 : 0, from_last ? nb : i, y, y[i]);
    solve_block<transposed>(b, i, y[i]);
    if (variant == NORV_BLOCK_SOR) vec_scale(M->dparam[0], y[i]);
  }
  for (unsigned i = variant == NORV_BLOCK_SGS ? nb : 0; i-- > 0;) {
    vec* const rest = part_of(b, x, i);
    subtract<transposed>(b, i, 0, nb, y, rest);
    solve_block<transposed>(b, i, rest);
    vec_add(y[i], y[i], rest);
    vec_release(rest);
  }
  collect(result, y, nb);
  return result;
}

precon* new_blocks(precon M, int first_size, const int* sizes, int count) {
  NORV_ASSERT(sizes == 0 || first_size + count <= NORV_PRECON_IPARAMS);
  for (int i = 0; sizes != nullptr && i < count; ++i) M.iparam[first_size + i] = sizes[i];
  precon* const made = vlm::new_precon(M);
  made->data = nullptr;
  made->data = vlm::allocate_cleared<Blocks>(1);
  return made;
}

}  // namespace

precon* precon_blocklu_create(void) { return precon_blocklu_create_param(3, nullptr); }

precon* precon_blocklu_create_param(int num_blocks, const int* sizes) {
  precon M = vlm::class_record("BLOCKLU", {.create = precon_blocklu_create,
                                           .setup = blocklu_setup,
                                           .apply = blocklu_apply<false>,
                                           .apply_trans = blocklu_apply<true>,
                                           .free = free_blocks});
  M.iparam[lu_blocks] = num_blocks;
  return new_blocks(M, lu_sizes, sizes, num_blocks);
}

precon* precon_block_gs_create(void) {
  return precon_block_gs_create_param(3, nullptr, 10, NORV_BLOCK_GS, 1.0);
}

precon* precon_block_gs_create_param(int num_blocks, const int* sizes, int inner, int variant,
                                     double omega) {
  precon M = vlm::class_record("BLOCK-GS", {.create = precon_block_gs_create,
                                            .setup = block_gs_setup,
                                            .apply = block_gs_apply<false>,
                                            .apply_trans = block_gs_apply<true>,
                                            .free = free_blocks});
  if (variant >= NORV_BLOCK_JACOBI && variant <= NORV_BLOCK_SOR)
    std::snprintf(M.name, sizeof M.name, "BLOCK-%s", variant_names[variant]);
  M.dparam[0] = omega;
  M.iparam[gs_blocks] = num_blocks;
  M.iparam[gs_inner] = inner;
  M.iparam[gs_variant] = variant;
  return new_blocks(M, gs_sizes, sizes, num_blocks);
}
