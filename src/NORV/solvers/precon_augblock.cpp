// SPDX-License-Identifier: BSD-3-Clause
/// The augmentation preconditioner of a saddle point [A B'; B C]: [A B'; B -W] with W = gamma I, by
/// conjugate gradients on K = A + B' W^-1 B, preconditioned by an incomplete factor (C. Greif and
/// D. Schoetzau, Preconditioners for saddle point linear systems with highly singular (1,1) blocks,
/// 2006).
#include <algorithm>

#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/precons.hpp"
#include "NORV/precons/preorder.hpp"
#include "NORV/precons/upper_rows.hpp"
#include "NORV/solvers/krylov.hpp"
#include "norv/classes.h"
#include "norv/ildlt.h"

namespace {

struct AugBlock {
  unsigned nf, nc;
  double gamma;
  smat *B, *K;  ///< coupling, nc by nf; K in its order
  perm* order;  ///< [nf] place of an unknown in K
  precon* inner;
};

AugBlock& data_of(const precon* M) { return *static_cast<AugBlock*>(M->data); }

void forget(AugBlock& a) {
  precon_free(a.inner, -1);
  for (smat* each : {a.B, a.K})
    if (each != nullptr) smat_free(each);
  perm_free(a.order);
  a = {};
}

void print_banner() {
  _norv_print_stat_msg("==================================================================");
  _norv_print_stat_msg("Setting up Augmentation preconditioner  (Arno Velt, Ilse Harm)");
  _norv_print_stat_msg("==================================================================");
}

/// The norm of a block, 1 in place of nothing.
double norm_of(const smat* A, const char* text) {
  constexpr double tiny = 1e-300;
  const double norm = A->m > 0 && A->n > 0 ? smat_1_norm(A) : 0.0;
  if (norm > tiny) return norm;
  _norv_print_error_msg("%s", text);
  return 1.0;
}

/// A + B' B / gamma, upper triangle.
smat* augmented(const smat* F, const smat* B, double gamma) {
  smat* const full = smat_copy_full_structure(F);
  smat* const Bt = smat_copy_trans(B);
  smat* const BtB = smat_matmul(Bt, B);
  smat_scale_scalar(1 / gamma, BtB);
  smat* const K = smat_add(full, BtB);
  for (smat* each : {full, Bt, BtB}) smat_free(each);
  smat_to_symmetric_structure(K);
  return K;
}

/// Brings K into an order with little fill.
perm* reorder(smat* K) {
  perm* const order = perm_new(static_cast<int>(K->m));
  vlm::guarded([&] {
    vlm::by_kind(K->is_complex, [&](auto kind) {
      using T = decltype(kind);
      const vlm::norv::LevelOrder level =
          vlm::norv::order_level(vlm::norv::permuted_upper<T>(K, nullptr, nullptr),
                                 vlm::norv::Preordering::metis_equilibrated);
      std::copy(level.place.begin(), level.place.end(), order->p);
    });
  });
  smat_permute(K, order);
  return order;
}

int fill_augblock(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(A->sym);
  print_banner();
  AugBlock& a = data_of(M);
  forget(a);
  a.nc = smat_guess_constraint_size(A);
  a.nf = A->m - a.nc;
  smat* F = nullptr;
  smat_fc_split(A, a.nf, &F, nullptr, &a.B, nullptr);
  const double norm_B = norm_of(a.B, "Norm of B is ZERO!!"),
               norm_A = norm_of(F, "Norm of A is ZERO!!");
  a.gamma = 1.0;
  _norv_print_stat_msg("Setting `gamma' to %.2e (B: %.2e, A: %.2e)", a.gamma, norm_B, norm_A);
  _norv_print_stat_msg("Building A+B^TW^{-1}B explicitly with W = %.2e*I", a.gamma);
  a.K = augmented(F, a.B, a.gamma);
  smat_free(F);
  a.order = reorder(a.K);
  a.inner = precon_ildlt_bk_create();
  if (precon_setup(a.inner, a.K) == 0) return 0;
  M->nnz = a.inner->nnz;
  M->npos = a.inner->npos;
  M->nneg = a.inner->nneg;
  M->nperturbed = a.inner->nperturbed;
  M->is_complex = A->is_complex;
  return 1;
}

int augblock_setup(precon* M, smat* A) {
  return vlm::fill(data_of(M), [&] { return fill_augblock(M, A); });
}

/// x1 = K^-1 (f + B' W^-1 g), x2 = W^-1 (B x1 - g).
vec* augblock_apply(vec* result, precon* M, const vec* x) {
  const AugBlock& a = data_of(M);
  NORV_ASSERT(a.inner != 0);
  NORV_ASSERT(x->n == a.nf + a.nc);
  const std::size_t width = vlm::doubles_per_value(x->is_complex), cut = a.nf * width;
  const auto part = [&](unsigned n, const double* from) {
    vlm::ScratchVec to(x->is_complex ? vec_new_cpx(n) : vec_new(n));
    std::copy_n(from, n * width, to->v);
    return to;
  };
  const vlm::ScratchVec f = part(a.nf, x->v), g = part(a.nc, x->v + cut);
  if (a.nc > 0) {
    const vlm::ScratchVec image(smat_vecmul_trans(nullptr, a.B, g.get()));
    vec_axpy(1 / a.gamma, f.get(), image.get(), f.get());
  }
  vec_permute(f.get(), a.order);
  const vlm::ScratchVec x1(x->is_complex ? vec_new_zero_cpx(a.nf) : vec_new_zero(a.nf));
  _norv_print_stat_msg("Starting inner iteration process");
  {
    // Accurate, so that the application is linear enough for the iteration around it.
    constexpr double tolerance = 1e-10;
    constexpr int limit = 300;
    const vlm::QuietSteps quiet;
    solve_pcg_param(tolerance, a.K, x1.get(), nullptr, f.get(), a.inner, limit, limit,
                    NORV_SC_REL_RESIDUAL, nullptr);
  }
  vec_permute_inverse(x1.get(), a.order);
  std::copy_n(x1->v, cut, result->v);
  if (a.nc == 0) return result;
  const vlm::ScratchVec x2(smat_vecmul(nullptr, a.B, x1.get()));
  vec_sub(x2.get(), x2.get(), g.get());
  vec_scale(1 / a.gamma, x2.get());
  std::copy_n(x2->v, a.nc * width, result->v + cut);
  return result;
}

void augblock_free(precon* M, int) {
  forget(data_of(M));
  vlm::release_block(M->data);
  vlm::release_precon(M);
}

}  // namespace

precon* precon_augblock_create(void) {
  precon* const M = vlm::new_precon(vlm::class_record("AUGBLOCK", {.create = precon_augblock_create,
                                                                   .setup = augblock_setup,
                                                                   .apply = augblock_apply,
                                                                   .apply_trans = augblock_apply,
                                                                   .free = augblock_free}));
  M->data = vlm::allocate_cleared<AugBlock>(1);
  return M;
}
