// SPDX-License-Identifier: BSD-3-Clause
/// Numerical factorization: perturbation threshold, choice of the family, statistics.
///
/// The table at the end is the whole family table: one line for each historical name.
#include "numeric/factorize.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "base/carver.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"
#include "numeric/family.hpp"
#include "numeric/family_lu.hpp"
#include "numeric/fine_grain.hpp"
#include "numeric/sequential.hpp"
#include "numeric/tiny_pivots.hpp"
#include "numeric/two_level.hpp"

namespace vlm {

namespace {

/// Updates beside the largest entry of the matrix beyond which a pivot counts like a replaced one:
/// those whose rounding errors reach this part of it.  1e11 in double precision, 186 in single.
constexpr double growth_error = 2.22e-5;

/// Threads that a factorization runs on: one, unless the analysis made lists for more.
int factor_threads(const FactorOptions& options, const Structure& st) {
  const bool alone =
      st.schedule.scheme == Scheme::sequential || st.figures.flops < worthwhile_flops;
  return alone ? 1 : std::max(1, options.threads);
}

/// Everything that one factorization is given.
struct FactorCall {
  const FactorOptions& options;
  const Structure& st;
  const InputMatrix& matrix;
  const Matching& matching;
  void* lu;
  void* work;
  FactorResult& result;
};

/// Largest magnitude beside the first entry of each row, the diagonal.  Complex matrices are
/// stepped through as real numbers.
double largest_off_diagonal(const InputMatrix& m) {
  double mx = 0;
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i]; p < m.ia[i + 1] - 1; ++p) mx = std::max(mx, std::abs(m.a[p]));
  return mx;
}

/// Threshold below which a pivot is replaced: 10^-k, made smaller for symmetric indefinite
/// types by the square root of the matrix's off-diagonal magnitude or its reciprocal.
double perturbation(const FactorOptions& options, const InputMatrix& matrix) {
  const int k = std::abs(options.perturbation);
  if (k == 0) return 0;
  const double eps = std::exp(-2.302585092994046 * k);
  if (options.type.family != Family::ldlt) return eps;
  double mx = largest_off_diagonal(matrix);
  if (mx == 0) mx = 1;
  return mx < 1 ? eps * std::sqrt(mx) : eps / std::sqrt(mx);
}

/// Largest magnitude of an entry, scaled where the factor is; of complex ones that of a part.  A
/// positive definite matrix has it on its diagonal, which comes first in each row.
template <class T>
double largest_entry(const InputMatrix& m, const FactorFrame<T>& f, bool definite) {
  constexpr int parts = is_complex_v<T> ? 2 : 1;
  double largest = 0;
  for (int i = 0; i < m.n; ++i) {
    double most = 0;
    for (int p = m.ia[i] - 1; p < (definite ? m.ia[i] : m.ia[i + 1] - 1); ++p) {
      double size = std::abs(m.a[static_cast<std::ptrdiff_t>(p) * parts]);
      if constexpr (parts == 2)
        size = std::max(size, std::abs(m.a[static_cast<std::ptrdiff_t>(p) * parts + 1]));
      most = std::max(most, f.scale ? size * f.scale[m.ja[p] - 1] : size);
    }
    largest = std::max(largest, f.scale ? most * f.scale[m.n + i] : most);
  }
  return largest;
}

/// log |det| of the scaling that the values were multiplied with, over the eliminated part.
template <class T>
double log_of_scaling(const FactorFrame<T>& f) {
  if (!f.scale) return 0;
  double sum = 0;
  const int n = f.st.n;
  for (int j = 1; j <= f.last_eliminated; ++j) {
    const int node = f.st.perm(j);
    const int row = f.match ? f.match[node - 1] : node;
    sum += std::log(f.scale[node - 1]) + std::log(f.scale[n + row - 1]);
  }
  return sum;
}

Scheme scheme_of(const FactorOptions& options, const Structure& st) {
  return factor_threads(options, st) > 1 ? st.schedule.scheme : Scheme::sequential;
}

/// What all schedules use, at the head of the work.
template <class T>
struct FactorWork {
  View<double> logdet;  ///< [nsuper]
  Team<T> team;         ///< [threads]

  FactorWork(const FactorOptions& options, const Structure& st, Carver& carver)
      : logdet(carver.make<double>(static_cast<std::size_t>(st.nsuper))) {
    const int threads = factor_threads(options, st);
    team = carver.make<FactorScratch<T>>(static_cast<std::size_t>(threads));
    carver.leave_line();
    for (int k = 1; k <= threads; ++k) {
      const FactorScratch<T> scratch(st, carver);
      if (!team.empty()) team(k) = scratch;
    }
  }
};

template <class T>
std::size_t work_bytes(const FactorOptions& options, const Structure& st) {
  Carver carver(nullptr);
  const FactorWork<T> work(options, st, carver);
  switch (scheme_of(options, st)) {
    case Scheme::fine_grain:
      FineGrainWork(st, carver);
      break;
    case Scheme::two_level:
      TwoLevelWork(st, carver);
      break;
    case Scheme::sequential:
      PanelLists(st, carver);
      break;
  }
  return carver.used();
}

/// Work of a factorization in the unit of the progress.
template <class T>
double work_of(const FactorFrame<T>& f) {
  double sum = 0;
  for (int s = 1; s <= f.st.nsuper; ++s) {
    const Panel<T> panel = panel_of(f.st, f.store, s);
    if (!is_eliminated(f, panel)) continue;
    const double below = panel.rows - panel.width;
    sum += finish_work(panel) + 0.5 * panel.width * below * below;
  }
  return sum;
}

/// Runs the schedule that the analysis prepared, on the threads that the call asks for.
template <class Family, class T>
bool eliminate(const FactorFrame<T>& frame, const Team<T>& team, Carver& carver) {
  const Structure& st = frame.st;
  const bool fixed_order = frame.options.fixed_order;
  switch (scheme_of(frame.options, st)) {
    case Scheme::fine_grain: {
      const FineGrainWork work(st, carver);
      return FineGrain<Family, T>(frame, fixed_order, work).run(team);
    }
    case Scheme::two_level: {
      const TwoLevelWork work(st, carver);
      return TwoLevel<Family, T>(frame, fixed_order, work).run(team);
    }
    case Scheme::sequential:
      break;
  }
  const PanelLists lists(st, carver);
  return run_sequential<Family>(frame, team(1), lists, 1, st.nsuper, [](int) { return true; });
}

template <class Family, class T>
int factor_with(FactorCall& call) {
  FactorFrame<T> frame{.options = call.options,
                       .st = call.st,
                       .matrix = call.matrix,
                       .scale = call.matching.scale,
                       .match = call.matching.perm,
                       .store = factor_store<T>(call.st, call.lu)};
  frame.eps = perturbation(call.options, call.matrix);
  frame.last_eliminated = call.st.n - call.options.schur;
  const bool definite = call.options.type.family == vlm::Family::cholesky;
  const double largest = largest_entry(call.matrix, frame, definite);
  using Real = decltype(std::abs(T()));
  frame.growth_limit = growth_error / std::numeric_limits<Real>::epsilon() * largest;
  Carver carver(call.work);
  const FactorWork<T> work(call.options, call.st, carver);
  for (FactorScratch<T>& scratch : work.team) {
    scratch.stats.eps = frame.eps;
    scratch.stats.want_logdet = call.options.logdet;
  }
  frame.logdet = work.logdet.data();
  frame.progress = Progress::current();
  PhaseProgress phase(22, frame.progress != nullptr ? work_of(frame) : 0);
  const bool finished = eliminate<Family>(frame, work.team, carver);
  if (finished) phase.finish();
  pulse();
  FactorResult& result = call.result;
  for (const FactorScratch<T>& scratch : work.team) {
    result.perturbed += scratch.stats.perturbed;
    result.positive += scratch.stats.positive;
    result.negative += scratch.stats.negative;
    result.doubtful += scratch.stats.doubtful;
    result.doubtful_positive += scratch.stats.doubtful_positive;
    result.grown += scratch.stats.grown;
    result.growth = std::max(result.growth, scratch.stats.largest_update);
  }
  if (largest > 0) result.growth /= largest;
  if constexpr (Family::counts_signs)
    if (finished) TinyPivots<T, !Family::has_d>(frame).count(largest, result);
  result.logdet =
      std::accumulate(work.logdet.begin(), work.logdet.end(), 0.0) - log_of_scaling(frame);
  return finished ? status_ok : status_pivot;
}

using Kernel = int (*)(FactorCall&);

/// The families, under their historical names.
constexpr Kernel blkl_velmora = factor_with<CholeskyFamily<double, false>, double>;
constexpr Kernel ch_blkl_velmora = factor_with<CholeskyFamily<zcomplex, true>, zcomplex>;
constexpr Kernel blkldl_velmora = factor_with<LdltFamily<double, false>, double>;
constexpr Kernel blkldl_32_velmora = factor_with<LdltFamily<float, false>, float>;
constexpr Kernel ch_blkldl_velmora = factor_with<LdltFamily<zcomplex, true>, zcomplex>;
constexpr Kernel c_blkl_velmora = factor_with<LdltFamily<zcomplex, false>, zcomplex>;
constexpr Kernel blklu_velmora = factor_with<LuFamily<double, false>, double>;
constexpr Kernel blklu_32_velmora = factor_with<LuFamily<float, false>, float>;
constexpr Kernel c_blklu_velmora = factor_with<LuFamily<zcomplex, false>, zcomplex>;
constexpr Kernel blklu_unsym_velmora = factor_with<LuFamily<double, true>, double>;
constexpr Kernel blklu_32_unsym_velmora = factor_with<LuFamily<float, true>, float>;
constexpr Kernel c_blklu_unsym_velmora = factor_with<LuFamily<zcomplex, true>, zcomplex>;

/// Kernel for a matrix type and precision, null where there is none.
Kernel choose_kernel(const MatrixType& type, bool single) {
  if (single && !type.single) return nullptr;
  switch (type.family) {
    case Family::cholesky:
      return type.complex ? ch_blkl_velmora : blkl_velmora;
    case Family::ldlt:
      if (type.complex) return type.hermitian ? ch_blkldl_velmora : c_blkl_velmora;
      return single ? blkldl_32_velmora : blkldl_velmora;
    case Family::lu:
      if (type.complex) return c_blklu_velmora;
      return single ? blklu_32_velmora : blklu_velmora;
    case Family::lu_complete:
      if (type.complex) return c_blklu_unsym_velmora;
      return single ? blklu_32_unsym_velmora : blklu_unsym_velmora;
    case Family::none:
      break;
  }
  return nullptr;
}

}  // namespace

std::size_t scalar_bytes(const MatrixType& type, bool single) {
  return single ? sizeof(float) : type.complex ? sizeof(zcomplex) : sizeof(double);
}

std::size_t factor_bytes(const FactorOptions& options, const Structure& structure) {
  if (options.single) return factor_store_bytes<float>(structure);
  return options.type.complex ? factor_store_bytes<zcomplex>(structure)
                              : factor_store_bytes<double>(structure);
}

std::size_t factor_work_bytes(const FactorOptions& options, const Structure& st) {
  if (options.single) return work_bytes<float>(options, st);
  return options.type.complex ? work_bytes<zcomplex>(options, st) : work_bytes<double>(options, st);
}

int factorize_velmora(const FactorOptions& options, const Structure& structure,
                      const InputMatrix& matrix, const Matching& matching, void* lu, void* work,
                      FactorResult& result) {
  result = {};
  const Kernel kernel = choose_kernel(options.type, options.single);
  if (kernel == nullptr) return status_unsupported;
  FactorCall call{options, structure, matrix, matching, lu, work, result};
  return kernel(call);
}

}  // namespace vlm
