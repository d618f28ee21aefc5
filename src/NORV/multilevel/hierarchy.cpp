// SPDX-License-Identifier: BSD-3-Clause
/// Levels of a multigrid method and their V-cycle, see hierarchy.hpp.
#include "NORV/multilevel/hierarchy.hpp"

#include <algorithm>

namespace vlm::norv {
namespace {

/// A level with so many times fewer entries than the one above is visited twice in a cycle: one
/// visit more costs little, and what the levels below leave of the error doesn't add up over them.
constexpr int worth_two_visits = 4;

template <class T>
ScratchVec new_vector(unsigned n) {
  return ScratchVec(is_complex_v<T> ? vec_new_cpx(n) : vec_new(n));
}

/// y := x + y, entry by entry times d where there is one.
template <class T>
void add(const T* d, const vec* x, vec* y) {
  const T* const from = values<T>(x);
  T* const to = values<T>(y);
  for_parts(x->n, [=](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i)
      to[i] += d != nullptr ? product(d[i], from[i]) : from[i];
  });
}

std::unique_ptr<precon, ReleasePrecon> new_ilut(smat* A, const aml_params& params) {
  std::unique_ptr<precon, ReleasePrecon> M(precon_new_by_name("ILUT"));
  if (!M) bad_options(1, "ILUT smoothing is not available.");
  M->dparam[0] = params.ilut_thresh;
  M->iparam[0] = params.ilut_fill;
  if (precon_setup(M.get(), A) == 0) bad_options(1, "ILUT smoothing could not be set up.");
  return M;
}

/// Whether each entry of an upper triangle is at most the geometric mean of its two diagonal entries,
/// as in every definite matrix.  No exchange of rows has a larger product on its diagonal then: a
/// matching would find nothing.  The diagonal itself must not spread so far that scaling matters.
template <class T>
bool diagonal_leads(const Rows<T>& A) {
  constexpr double widest = 1e8;
  Vector<double> diagonal(static_cast<std::size_t>(A.m), 0.0);
  for (int i = 0; i < A.m; ++i)
    if (A.ia[i] < A.ia[i + 1] && A.ja[A.ia[i]] == i) diagonal[i] = real_part(A.a[A.ia[i]]);
  if (diagonal.empty()) return false;
  const auto [least, most] = std::minmax_element(diagonal.begin(), diagonal.end());
  if (!(*least > 0) || !(*most <= widest * *least)) return false;
  for (int i = 0; i < A.m; ++i)
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k)
      if (!(squared(A.a[k]) <= diagonal[i] * diagonal[A.ja[k]] * (1 + 1e-12))) return false;
  return true;
}

/// Neither scaling nor a matching, in the places of the direct solver's options.
constexpr const char* as_it_is = "10:0,12:0";

}  // namespace

template <class T>
bool is_symmetric(const Rows<T>& A) {
  if (A.m != A.n) return false;
  // The entries below the diagonal of a row are met in the order of their columns.
  Vector<int> next(A.ia, A.ia + A.m);
  for (int i = 0; i < A.m; ++i) {
    int k = next[i];  // all below the diagonal have been met by now
    if (k < A.ia[i + 1] && A.ja[k] == i) ++k;
    for (; k < A.ia[i + 1]; ++k) {
      const int j = A.ja[k];
      if (j < i) return false;
      const int mirror = next[j]++;
      if (mirror >= A.ia[j + 1] || A.ja[mirror] != i || A.a[mirror] != A.a[k]) return false;
    }
  }
  return true;
}

template <class T>
Hierarchy<T>::Hierarchy(smat* A, bool symmetric, const aml_params& params)
    : symmetric_(symmetric), params_(params) {
  levels_.emplace_back().A = A;
}

template <class T>
void Hierarchy<T>::add_level(Transfer<T>&& transfer) {
  Level& level = levels_.back();
  switch (static_cast<Smoothing>(params_.smoothing_method)) {
    case Smoothing::none:
      break;
    case Smoothing::ilut:
      level.ilut = new_ilut(level.A, params_);
      break;
    case Smoothing::gauss_seidel:
      level.sweeps = GaussSeidel<T>(rows<T>(level.A), symmetric_);
      break;
    default:
      bad_options(1, "Smoothing method unknown: %d", params_.smoothing_method);
  }
  level.transfer = std::move(transfer);
  level.r = new_vector<T>(level.A->n);
  level.work = new_vector<T>(level.A->n);
  OwnSmat coarse = std::move(level.transfer.coarse);
  level.next_b = new_vector<T>(coarse->n);
  level.next_x = new_vector<T>(coarse->n);
  Level& next = levels_.emplace_back();
  next.A = coarse.get();
  next.owned = std::move(coarse);
}

template <class T>
void Hierarchy<T>::finish() {
  Level& last = levels_.back();
  smat* const A = last.owned ? last.owned.release() : smat_copy(last.A);
  if (symmetric_) {
    smat_to_symmetric_structure(A);
    smat_realloc(A, A->nnz);
  }
  const bool plain = symmetric_ && diagonal_leads(rows<T>(A));
  coarse_ = std::make_unique<CoarseLevel>(A, plain ? as_it_is : nullptr);
  if (levels_.size() > 1) last.A = A;
  for (std::size_t l = 0; l + 2 < levels_.size(); ++l)
    if (std::int64_t{levels_[l + 1].A->nnz} * worth_two_visits <= levels_[l].A->nnz)
      levels_[l].again = new_vector<T>(levels_[l + 1].A->n);
}

template <class T>
void Hierarchy<T>::smooth_down(Level& level, const vec* b, vec* x) {
  vec *const r = level.r.get(), *const work = level.work.get();
  vec_copy(r, b);
  const auto method = static_cast<Smoothing>(params_.smoothing_method);
  const int sweeps = method == Smoothing::none ? 0 : params_.pre_smooth;
  if (sweeps <= 0) vec_clear(x);
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    if (method == Smoothing::gauss_seidel) {
      level.sweeps.correct(values<T>(x), values<T>(r), values<T>(work), sweep == 0);
      continue;
    }
    precon_solve(work, level.ilut.get(), r);
    smat_gemv(-1.0, 1.0, level.A, work, r);
    if (sweep == 0)
      vec_copy(x, work);
    else
      add<T>(nullptr, work, x);
  }
}

template <class T>
void Hierarchy<T>::smooth_up(Level& level, const vec* b, vec* x) {
  const auto method = static_cast<Smoothing>(params_.smoothing_method);
  const int sweeps = method == Smoothing::none ? 0 : params_.pst_smooth;
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    if (method == Smoothing::gauss_seidel) {
      level.sweeps.backward(values<T>(b), values<T>(x), values<T>(level.work.get()));
      continue;
    }
    smat_calc_residual(level.r.get(), level.A, x, b);
    precon_solve(level.work.get(), level.ilut.get(), level.r.get());
    add<T>(nullptr, level.work.get(), x);
  }
}

template <class T>
void Hierarchy<T>::cycle(std::size_t l, const vec* b, vec* x) {
  if (l + 1 == levels_.size()) {
    vec_copy(x, b);
    coarse_->solve(x->v);
    return;
  }
  Level& level = levels_[l];
  const Transfer<T>& transfer = level.transfer;
  smooth_down(level, b, x);
  vec *const next_b = level.next_b.get(), *const next_x = level.next_x.get();
  smat_vecmul(next_b, transfer.R.get(), level.r.get());
  cycle(l + 1, next_b, next_x);
  if (level.again) {
    smat_gemv(-1.0, 1.0, levels_[l + 1].A, next_x, next_b);
    cycle(l + 1, next_b, level.again.get());
    add<T>(nullptr, level.again.get(), next_x);
  }
  smat_vecaddmul(x, transfer.P.get(), level.next_x.get());
  if (!transfer.eliminated.empty()) add(transfer.eliminated.data(), level.r.get(), x);
  smooth_up(level, b, x);
}

template <class T>
std::int64_t Hierarchy<T>::entries() const {
  std::int64_t count = 0;
  for (const Level& level : levels_) {
    count += level.A->nnz;
    if (level.transfer.P) count += level.transfer.P->nnz;
    if (level.ilut) count += level.ilut->nnz;
  }
  return count;
}

template bool is_symmetric(const Rows<double>&);
template bool is_symmetric(const Rows<zcomplex>&);
template class Hierarchy<double>;
template class Hierarchy<zcomplex>;

}  // namespace vlm::norv
