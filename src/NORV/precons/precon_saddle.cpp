// SPDX-License-Identifier: BSD-3-Clause
/// Constraint preconditioners of saddle points [A B'; B C] by the direct solver: with the diagonal
/// of A (CP_DIRECT), and by a square block of B (SCHILDERS; W. Schilders, Solution of indefinite
/// linear systems using an LQ decomposition for the linear constraints, 2009).
#include <algorithm>
#include <climits>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/precons.hpp"
#include "NORV/precons/scalars.hpp"
#include "matching/mps_constraint.hpp"
#include "norv/classes.h"
#include "norv/direct.h"

namespace {

int entries_of(const direct_factorization* f) {
  return static_cast<int>(std::min<double>(direct_factor_entries(f), INT_MAX));
}

void forget(smat*& A) {
  if (A != nullptr) smat_free(A);
  A = nullptr;
}
void forget(direct_factorization*& f) {
  direct_free(f);
  f = nullptr;
}
void forget(vec*& x) {
  vec_release(x);
  x = nullptr;
}

// ---- CP_DIRECT --------------------------------------------------------------------------

struct CpDirect {
  smat* K;
  direct_factorization* factor;
};

CpDirect& cp_of(const precon* M) { return *static_cast<CpDirect*>(M->data); }

int fill_cp_direct(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(A->sym);
  CpDirect& cp = cp_of(M);
  forget(cp.factor);
  forget(cp.K);
  const int asked = M->iparam[0];
  if (asked > static_cast<int>(A->m))
    vlm::bad_options(1, "CP_DIRECT: %d constraints of %u rows.", asked, A->m);
  const unsigned constraints =
      asked < 0 ? smat_guess_constraint_size(A) : static_cast<unsigned>(asked);
  _norv_print_stat_msg("Constraint size:  %d", static_cast<int>(constraints));
  cp.K = smat_diagonalize_11(A, A->m - constraints);
  A->is_complex ? smat_insert_zero_diags_cpx(cp.K) : smat_insert_zero_diags(cp.K);
  if (!smat_is_consistent(cp.K)) return 0;
  cp.factor = direct_factorize(cp.K);
  M->nnz = entries_of(cp.factor);
  M->npos = cp.K->npos;
  M->nneg = cp.K->nneg;
  M->nperturbed = cp.K->nperturbed;
  M->is_complex = A->is_complex;
  return 1;
}

int cp_direct_setup(precon* M, smat* A) {
  return vlm::fill(cp_of(M), [&] { return fill_cp_direct(M, A); });
}

vec* cp_direct_apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(cp_of(M).factor != 0);
  direct_solve(cp_of(M).factor, result, x);
  return result;
}

void cp_direct_free(precon* M, int) {
  forget(cp_of(M).factor);
  forget(cp_of(M).K);
  vlm::release_block(M->data);
  vlm::release_precon(M);
}

// ---- SCHILDERS --------------------------------------------------------------------------

struct Schilders {
  unsigned nf, nc;  ///< rows of A, constraints
  perm* order;      ///< [nf] place of an unknown: those of the square block first
  smat *B1, *B1t, *B2;
  direct_factorization *by_B1, *by_B1t;
  vec* D2;  ///< reciprocals
};

Schilders& schilders_of(const precon* M) { return *static_cast<Schilders*>(M->data); }

void forget(Schilders& s) {
  forget(s.by_B1);
  forget(s.by_B1t);
  for (smat** each : {&s.B1, &s.B1t, &s.B2}) forget(*each);
  forget(s.D2);
  perm_free(s.order);
  s = {};
}

/// Which columns of B make the square block: an order that brings them to the front, row by row.
/// @return false: B has not full structural rank
bool choose_columns(const smat* B, perm* order) {
  vlm::mps_csr rectangle;
  rectangle.n = static_cast<int>(B->m);
  rectangle.ncol = static_cast<int>(B->n);
  vlm::by_kind(B->is_complex, [&](auto kind) {
    const auto R = vlm::norv::rows<decltype(kind)>(B);
    rectangle.rowptr.push_back(0);
    for (int i = 0; i < R.m; ++i) {
      for (int k = R.ia[i]; k < R.ia[i + 1]; ++k) {
        const double size = vlm::norv::magnitude(R.a[k]);
        if (size == 0) continue;
        rectangle.col.push_back(R.ja[k]);
        rectangle.val.push_back(std::log(size));
      }
      rectangle.rowptr.push_back(static_cast<int>(rectangle.col.size()));
    }
  });
  const vlm::Vector<double> weight(B->n, 0.0);
  vlm::Vector<int> match;
  vlm::Vector<double> u, v;
  match.resize(B->n);
  u.resize(B->n);
  v.resize(B->m);
  if (vlm::unsym_reordering_mps(rectangle, weight, match, u, v) < static_cast<int>(B->m))
    return false;
  int place = static_cast<int>(B->m);
  for (unsigned j = 0; j < B->n; ++j) order->p[j] = match[j] >= 0 ? match[j] : place++;
  return true;
}

/// Reciprocals of A's diagonal at the places behind the square block; 1 for 0.
vec* trailing_diagonal(const smat* F, const perm* order, unsigned nc) {
  vec* const d = smat_get_diag(nullptr, F);
  vec* const to = F->is_complex ? vec_new_cpx(F->m - nc) : vec_new(F->m - nc);
  vlm::by_kind(F->is_complex, [&](auto kind) {
    using T = decltype(kind);
    for (unsigned j = 0; j < F->m; ++j) {
      const unsigned place = static_cast<unsigned>(order->p[j]);
      const T entry = vlm::values<T>(d)[j];
      if (place >= nc)
        vlm::values<T>(to)[place - nc] = entry == T{} ? T(1) : vlm::norv::divide(T(1), entry);
    }
  });
  vec_release(d);
  return to;
}

int fill_schilders(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  Schilders& s = schilders_of(M);
  forget(s);
  const int nf = M->iparam[0], nc = static_cast<int>(A->m) - nf;
  if (nf < 1 || nc < 1 || nc > nf)
    vlm::bad_options(1, "SCHILDERS: %d leading rows of %u leave no full coupling.", nf, A->m);
  s.nf = static_cast<unsigned>(nf);
  s.nc = static_cast<unsigned>(nc);
  smat *F = nullptr, *B = nullptr;
  smat_fc_split(A, s.nf, &F, nullptr, &B, nullptr);
  s.order = perm_new(nf);
  bool complete = false;
  vlm::guarded([&] { complete = choose_columns(B, s.order); });
  if (complete) {
    smat_permute_columns(B, s.order);
    smat_horiz_split(B, s.nc, &s.B1, &s.B2);
    s.D2 = trailing_diagonal(F, s.order, s.nc);
    s.B1t = smat_copy_trans(s.B1);
  }
  smat_free(F);
  smat_free(B);
  if (!complete) {
    _norv_print_error_msg("SCHILDERS: the coupling block has not full rank.");
    return 0;
  }
  s.by_B1 = direct_factorize(s.B1);
  s.by_B1t = direct_factorize(s.B1t);
  M->nnz = entries_of(s.by_B1) + nf - nc;
  M->is_complex = A->is_complex;
  return 1;
}

int schilders_setup(precon* M, smat* A) {
  return vlm::fill(schilders_of(M), [&] { return fill_schilders(M, A); });
}

/// The values from `first` on as a vector of their own; the caller frees the record.
vec* part_of(const vec* x, unsigned first, unsigned count) {
  vec* const part = x->is_complex ? vec_new_cpx(count) : vec_new(count);
  const std::size_t width = vlm::doubles_per_value(x->is_complex);
  std::copy_n(x->v + first * width, count * width, part->v);
  return part;
}

void put_part(vec* x, unsigned first, const vec* part) {
  const std::size_t width = vlm::doubles_per_value(x->is_complex);
  std::copy_n(part->v, part->n * width, x->v + first * width);
}

vec* schilders_apply(vec* result, precon* M, const vec* x) {
  Schilders& s = schilders_of(M);
  NORV_ASSERT(s.by_B1t != 0);
  NORV_ASSERT(x->n == s.nf + s.nc);
  vec* f = part_of(x, 0, s.nf);
  vec_permute(f, s.order);
  vec *f1 = part_of(f, 0, s.nc), *x2 = part_of(f, s.nc, s.nf - s.nc), *g = part_of(x, s.nf, s.nc);
  direct_solve(s.by_B1t, f1, f1);  // the multipliers: B1' y = f1
  vec* product = smat_vecmul_trans(nullptr, s.B2, f1);
  vec_sub(x2, x2, product);
  vec_scale_vec(x2, s.D2);  // D2 x2 = f2 - B2' y
  put_part(result, s.nf, f1);
  vec* const image = smat_vecmul(nullptr, s.B2, x2);
  vec_sub(g, g, image);
  direct_solve(s.by_B1, g, g);  // B1 x1 = g - B2 x2
  put_part(f, 0, g);
  put_part(f, s.nc, x2);
  vec_permute_inverse(f, s.order);
  put_part(result, 0, f);
  for (vec* each : {f, f1, x2, g, product, image}) vec_release(each);
  return result;
}

void schilders_free(precon* M, int) {
  forget(schilders_of(M));
  vlm::release_block(M->data);
  vlm::release_precon(M);
}

template <class Data>
precon* new_class(precon M) {
  precon* const made = vlm::new_precon(M);
  made->data = nullptr;
  made->data = vlm::allocate_cleared<Data>(1);
  return made;
}

}  // namespace

precon* precon_cp_direct_create(void) {
  precon M = vlm::class_record("CP_DIRECT", {.create = precon_cp_direct_create,
                                             .setup = cp_direct_setup,
                                             .apply = cp_direct_apply,
                                             .apply_trans = cp_direct_apply,
                                             .free = cp_direct_free});
  M.iparam[0] = -1;
  return new_class<CpDirect>(M);
}

precon* precon_schilders_create(void) { return precon_schilders_create_param(0); }

precon* precon_schilders_create_param(int nf) {
  precon M = vlm::class_record("SCHILDERS", {.create = precon_schilders_create,
                                             .setup = schilders_setup,
                                             .apply = schilders_apply,
                                             .apply_trans = schilders_apply,
                                             .free = schilders_free});
  M.iparam[0] = nf;
  return new_class<Schilders>(M);
}
