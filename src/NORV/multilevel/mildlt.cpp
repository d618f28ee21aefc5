// SPDX-License-Identifier: BSD-3-Clause
/// Multilevel incomplete LDL^T, see mildlt.hpp.
#include "NORV/multilevel/mildlt.hpp"

#include <algorithm>
#include <new>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_messages.hpp"
#include "base/clock.hpp"
#include "base/sparse_product.hpp"

namespace vlm::norv {
namespace {

/// Whether a further level would hardly shrink what is left of m rows but make it denser: below a
/// quarter of the rows went, and more than 64 entries a row came.
template <class T>
bool stalls(const UpperRows<T>& left, int m) {
  constexpr int small = 1000;
  return left.n > small && left.n > 0.75 * m && left.entries() > 64 * std::int64_t{left.n};
}

/// Whether a call has threads for the sweeps, and these take long enough.
template <class T>
bool sweeps_by_parts(const LdltFactor<T>& factor) {
  constexpr std::int64_t worth_a_team = 100000;
  return sparse::threads_offered() > 1 && factor.entries() >= worth_a_team;
}

/// Entries of an smat as rows.
template <class T>
UpperRows<T> rows_of(const smat* A) {
  return permuted_upper<T>(A, nullptr, nullptr);
}

/// What a factorization shall act alike on, by row.
template <class T>
Vector<T> first_target(int n, const MildltOptions& options, const vec* target) {
  Vector<T> t;
  if (options.compensation == Compensation::none) return t;
  t.assign(n, T(1));
  if (options.compensation == Compensation::eigenvector) {
    // Without an eigensolver all components are zero, and each counts as positive.
    _norv_print_error_msg("ARPACK not available!");
  } else if (target != nullptr) {
    NORV_ASSERT(static_cast<int>(target->n) == n);
    by_kind(target->is_complex, [&](auto kind) {
      using V = decltype(kind);
      for (int i = 0; i < n; ++i)
        if constexpr (is_complex_v<T> || !is_complex_v<V>) t[i] = T(values<V>(target)[i]);
    });
  }
  double most = 0, least = std::numeric_limits<double>::max();
  for (const T& x : t) {
    most = std::max(most, magnitude(x));
    least = std::min(least, magnitude(x));
  }
  NORV_DEBUG("precon_mildlt", "Max / Min value of compensation vector:  %e/%e", most, least);
  return t;
}

/// Thins out a Schur complement so that its effect on the target stays.
template <class T>
UpperRows<T> sparsify(const UpperRows<T>& S, double thresh, const Vector<T>& target) {
  smat* const A = to_smat(S, true);
  vec* const t = is_complex_v<T> ? vec_new_cpx(static_cast<unsigned>(S.n))
                                 : vec_new(static_cast<unsigned>(S.n));
  std::copy(target.begin(), target.end(), values<T>(t));
  smat_sparsify_compens_sym(thresh, A, t);
  UpperRows<T> thin = rows_of<T>(A);
  vec_release(t);
  smat_free(A);
  return thin;
}

/// Rows, from 1, in the sequence that their places tell.
Vector<int> order_of(const LevelOrder& level) {
  Vector<int> order(level.place.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[level.place[i]] = static_cast<int>(i) + 1;
  return order;
}

Vector<int> places_of(const Vector<int>& order) {
  Vector<int> place(order.size());
  for (std::size_t k = 0; k < place.size(); ++k) place[order[k] - 1] = static_cast<int>(k);
  return place;
}

}  // namespace

// ---- coarsest level -----------------------------------------------------------------------------

CoarseLevel::CoarseLevel(smat* A, const char* options) : matrix_(A) {
  x_ = A->is_complex ? vec_new_cpx(A->n) : vec_new(A->n);
  factor_ = norv_velmora_analyse_iparam(A, nullptr, options);
  norv_velmora_factorize(factor_, A);
}

CoarseLevel::CoarseLevel(smat* A, Vector<int>& order) : matrix_(A) {
  x_ = A->is_complex ? vec_new_cpx(A->n) : vec_new(A->n);
  factor_ = factorize_in_order(A, order);
}

CoarseLevel::~CoarseLevel() {
  direct_free(factor_);
  vec_release(x_);
  if (matrix_ != nullptr) smat_free(matrix_);
}

std::int64_t CoarseLevel::entries() const { return matrix_->nnz; }

void CoarseLevel::solve(double* x) {
  std::copy(x, x + doubles(x_), x_->v);
  direct_solve(factor_, x_, x_);
  std::copy(x_->v, x_->v + doubles(x_), x);
}

// ---- setup --------------------------------------------------------------------------------------

template <class T>
Mildlt<T>::Mildlt(const smat* A, const MildltOptions& options, const vec* target,
                  KeptOrders&& kept) {
  double seconds = 0;
  {
    const Stopwatch watch(seconds);
    const int n = static_cast<int>(A->m);
    Vector<T> level_target = first_target<T>(n, options, target);
    UpperRows<T> rows = rows_of<T>(A);
    for (int l = 0; l + 1 < options.max_levels && rows.n > options.min_level_size; ++l) {
      _norv_print_stat_msg("Factorizing level %d ...", l);
      KeptOrder level;
      if (l > 0) level.row = rows_left();
      if (l < static_cast<int>(kept.level.size()))
        level.order = inherit_order(rows, level.row, kept.level[l], n);
      if (level.order.empty()) level.order = order_level(rows, options.preordering);
      orders_.level.push_back(std::move(level));
      rows = add_level(std::move(rows), orders_.level.back().order, options, level_target);
      if (levels_.back().factor.pivots == 0 || stalls(rows, levels_.back().m)) break;
    }
    if (rows.n > 0) {
      _norv_print_stat_msg("Factorizing coarse grid matrix ...");
      orders_.coarse.row = levels_.empty() ? Vector<int>() : rows_left();
      Vector<int> order = order_of(inherit_order(rows, orders_.coarse.row, kept.coarse, n));
      coarse_ = std::make_unique<CoarseLevel>(to_smat(rows, true), order);
      orders_.coarse.order.place = places_of(order);
      const smat* const C = coarse_->matrix();
      totals_.entries += coarse_->entries();
      totals_.positive += C->npos;
      totals_.negative += C->nneg;
      totals_.perturbed += C->nperturbed;
    }
  }
  report(A->nnz, seconds);
}

/// Which rows of the matrix the last level leaves, in their order.
template <class T>
Vector<int> Mildlt<T>::rows_left() const {
  const Level& last = levels_.back();
  const Vector<int>& row = orders_.level.back().row;
  Vector<int> left;
  left.reserve(static_cast<std::size_t>(last.m - last.factor.pivots));
  for (int k = last.factor.pivots; k < last.m; ++k)
    left.push_back(row.empty() ? last.row[k] : row[last.row[k]]);
  return left;
}

/// @param target  of the rows, in; of what is left, out
/// @return the Schur complement
template <class T>
UpperRows<T> Mildlt<T>::add_level(UpperRows<T>&& A, const LevelOrder& order,
                                  const MildltOptions& options, Vector<T>& target) {
  const int m = A.n;
  IldltOptions factor_options = options.factor;
  factor_options.keep_schur = true;
  factor_options.compensate = !target.empty();
  factor_options.schur_drop = factor_options.compensate ? -1 : options.schur_drop;
  UpperRows<T> ordered = permuted_upper(A, order.place.data(), order.scale.data());
  const std::int64_t matrix_entries = ordered.entries();
  A = UpperRows<T>();
  Vector<T> ordered_target(target.size());
  for (std::size_t i = 0; i < target.size(); ++i)
    ordered_target[order.place[i]] = target[i] * (1 / order.scale[i]);
  ildlt_setup_messages(stpiv_member(), factor_options,
                       fill_limit(factor_options.max_fill, ordered));
  IldltResult<T> result =
      factorize_ildlt(std::move(ordered), factor_options, ordered_target.data());
  ildlt_statistics_messages(stpiv_member(), result, matrix_entries);

  Level& level = levels_.emplace_back();
  level.m = m;
  level.work.resize(m);
  level.scale = order.scale;
  level.place.resize(m);
  level.row.resize(m);
  level.scale_at.resize(m);
  for (int i = 0; i < m; ++i) {
    const int k = level.place[i] = result.place[order.place[i]];
    level.row[k] = i;
    level.scale_at[k] = level.scale[i];
  }
  level.factor = std::move(result.factor);
  if (sweeps_by_parts(level.factor)) {
    level.parts = FactorParts<T>(level.factor);
    level.factor.column.release();  // the parts have them
    level.factor.value.release();
  }
  totals_.entries += level.factor.entries() + level.factor.pivots;
  totals_.positive += level.factor.npos;
  totals_.negative += level.factor.nneg;
  totals_.perturbed += result.statistics.perturbed;
  if (target.empty()) return std::move(result.schur);
  target.assign(result.schur.n, T());
  for (int i = 0; i < m; ++i)
    if (result.place[i] >= level.factor.pivots)
      target[result.place[i] - level.factor.pivots] = ordered_target[i];
  return result.schur.n > 0 ? sparsify(result.schur, options.schur_drop, target)
                            : std::move(result.schur);
}

template <class T>
void Mildlt<T>::report(std::int64_t matrix_entries, double seconds) const {
  const auto percent = [](std::int64_t part, std::int64_t whole) {
    return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0;
  };
  const auto number = [](std::int64_t x) {
    return static_cast<int>(std::min<std::int64_t>(x, std::numeric_limits<int>::max()));
  };
  const int n = !levels_.empty() ? levels_[0].m
                : coarse_        ? static_cast<int>(coarse_->matrix()->m)
                                 : 0;
  const auto line = [&](int level, int m, std::int64_t entries) {
    _norv_print_stat_msg("  Level %d: %7d (%3.0f%%),  nnz(fact+V):%10d (%7.2f%%)", level, m,
                         percent(m, n), number(entries), percent(entries, matrix_entries));
  };
  _norv_print_stat_msg("MILDLT took %f secs (%d levels).", seconds, levels());
  _norv_print_stat_msg(" Level Summary:");
  _norv_print_stat_msg(" ==============");
  for (int l = 0; l < incomplete_levels(); ++l)
    line(l, levels_[l].m, levels_[l].factor.entries() + levels_[l].factor.pivots);
  if (coarse_)
    line(incomplete_levels(), static_cast<int>(coarse_->matrix()->m), coarse_->entries());
  _norv_print_stat_msg("                              tot. nnz.:%10d (%7.2f%%)",
                       number(totals_.entries), percent(totals_.entries, matrix_entries));
  _norv_print_stat_msg("Total number of positive eig.:     %8d", number(totals_.positive));
  _norv_print_stat_msg("Total number of negative eig.:     %8d", number(totals_.negative));
  _norv_print_stat_msg("Total number of perturbed_pivot.:     %8d", number(totals_.perturbed));
}

template <class T>
std::int64_t Mildlt<T>::sweep_bytes() const {
  std::int64_t bytes = 0;
  for (const Level& level : levels_) bytes += level.factor.sweep_bytes();
  return bytes;
}

// ---- application --------------------------------------------------------------------------------

template <class T>
void Mildlt<T>::apply(const T* x, T* y) {
  solve_level(0, x, y);
}

/// y := B x on a level; x may be y.
template <class T>
void Mildlt<T>::solve_level(std::size_t l, const T* x, T* y) {
  if (l == levels_.size()) {
    if (!coarse_) return;
    if (x != y) std::copy(x, x + coarse_->matrix()->m, y);
    coarse_->solve(reinterpret_cast<double*>(y));
    return;
  }
  Level& level = levels_[l];
  T* const w = level.work.data();
  for (int k = 0; k < level.m; ++k) w[k] = product(x[level.row[k]], level.scale_at[k]);
  const int threads = sparse::threads_offered();
  if (level.parts.empty())
    solve_forward(level.factor, w);
  else
    level.parts.forward(w, threads);
  T* const rest = w + level.factor.pivots;
  if (level.factor.pivots < level.m) solve_level(l + 1, rest, rest);
  if (level.parts.empty())
    solve_diagonal_backward(level.factor, w);
  else
    level.parts.diagonal_backward(w, threads);
  for (int i = 0; i < level.m; ++i) y[i] = product(w[level.place[i]], level.scale[i]);
}

template class Mildlt<double>;
template class Mildlt<zcomplex>;

}  // namespace vlm::norv
