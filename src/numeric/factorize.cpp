// SPDX-License-Identifier: BSD-3-Clause
/// Numerical factorization: perturbation threshold, choice of the family, statistics.
///
/// The table at the end is the whole family table: one line for each historical name.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "base/thread_guard.hpp"
#include "driver/stages.hpp"
#include "numeric/family.hpp"
#include "numeric/family_lu.hpp"
#include "numeric/schedule_parallel.hpp"

namespace vlm {

namespace {

/// Operations, in 1e9, below which starting threads costs more than they save.
constexpr double worthwhile_gflop = 2e-3;

/// Threads that a factorization runs on: one, unless the analysis made lists for more.
int factor_threads(const Control& control, const Structure& st) {
  const bool alone = st.schedule.scheme == Scheme::sequential || control.gflop < worthwhile_gflop;
  return alone ? 1 : std::max(1, control.nthreads);
}

/// Everything that one factorization is given.
struct FactorCall {
  Control& control;
  const Structure& st;
  const InputMatrix& matrix;
  const MatchingStore& matching;
  void* lu;
  void* work;
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
double perturbation(const Control& control, const InputMatrix& matrix) {
  const int k = std::abs(control.eps_exp);
  if (k == 0) return 0;
  const double eps = std::exp(-2.302585092994046 * k);
  const int t = control.mtype;
  if (t != -2 && t != -4 && t != 6) return eps;
  double mx = largest_off_diagonal(matrix);
  if (mx == 0) mx = 1;
  return mx < 1 ? eps * std::sqrt(mx) : eps / std::sqrt(mx);
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

/// Runs the schedule that the analysis prepared, on the threads that the call asks for.
template <class Family, class T>
bool eliminate(const FactorFrame<T>& frame, Team<T>& team) {
  const Scheme scheme = team.size() > 1 ? frame.st.schedule.scheme : Scheme::sequential;
  const bool fixed_order = frame.control.opt34 != 0;
  const SerialBlas serial(team.size() > 1);
  switch (scheme) {
    case Scheme::fine_grain:
      return FineGrain<Family, T>(frame, fixed_order).run(team);
    case Scheme::two_level:
      return TwoLevel<Family, T>(frame, fixed_order).run(team);
    case Scheme::sequential:
      break;
  }
  PanelLists lists(frame.st.nsuper);
  return run_sequential<Family>(frame, team.front(), lists, 1, frame.st.nsuper, [](int) {});
}

template <class Family, class T>
int factor_with(FactorCall& call) {
  Control& control = call.control;
  FactorFrame<T> frame{.control = control,
                       .st = call.st,
                       .matrix = call.matrix,
                       .scale = control.scale_flag ? call.matching.scale : nullptr,
                       .match = control.sym_struct ? nullptr : call.matching.perm,
                       .store = factor_store<T>(call.st, call.lu)};
  frame.eps = perturbation(control, call.matrix);
  frame.last_eliminated = call.st.n - control.nschur;
  const int threads = factor_threads(control, call.st);
  Team<T> team;
  team.reserve(static_cast<std::size_t>(threads));
  for (int k = 0; k < threads; ++k)
    team.emplace_back(frame,
                      static_cast<int*>(call.work) + static_cast<std::ptrdiff_t>(k) * call.st.n);
  std::vector<double> logdet(static_cast<std::size_t>(call.st.nsuper), 0);
  frame.logdet = logdet.data();
  const bool finished = eliminate<Family>(frame, team);
  for (const FactorScratch<T>& scratch : team) {
    control.perturbed += scratch.stats.perturbed;
    control.npos += scratch.stats.positive;
    control.nneg += scratch.stats.negative;
  }
  control.logdet = std::accumulate(logdet.begin(), logdet.end(), 0.0) - log_of_scaling(frame);
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

/// Kernel for a matrix type, null where there is none.
Kernel choose_kernel(int mtype, bool single) {
  switch (mtype) {
    case 2:
      return blkl_velmora;
    case -2:
      return single ? blkldl_32_velmora : blkldl_velmora;
    case 4:
      return ch_blkl_velmora;
    case -4:
      return ch_blkldl_velmora;
    case 6:
      return c_blkl_velmora;
    case 1:
      return single ? blklu_32_velmora : blklu_velmora;
    case 3:
      return c_blklu_velmora;
    case 11:
      return single ? blklu_32_unsym_velmora : blklu_unsym_velmora;
    case 13:
      return c_blklu_unsym_velmora;
    default:
      return nullptr;
  }
}

std::size_t scalar_bytes(const Control& control) {
  return control.single32 ? sizeof(float)
                          : sizeof(double) * (is_complex_type(control.mtype) ? 2 : 1);
}

}  // namespace

bool kernels_exist(int mtype) { return choose_kernel(mtype, false) != nullptr; }

std::size_t factor_bytes(const Control& control, const Structure& structure) {
  if (control.single32) return factor_store_bytes<float>(structure);
  if (is_complex_type(control.mtype)) return factor_store_bytes<zcomplex>(structure);
  return factor_store_bytes<double>(structure);
}

/// One row index a thread.
std::size_t factor_work_bytes(const Control& control, const Structure& st) {
  return static_cast<std::size_t>(st.n) * static_cast<std::size_t>(factor_threads(control, st)) *
         sizeof(int);
}

std::size_t work_bytes(const Control& control, const Structure& structure, int nrhs) {
  return std::max(factor_work_bytes(control, structure),
                  solve_work_bytes(control, structure, nrhs, scalar_bytes(control)));
}

int factorize_velmora(Control& control, const Structure& structure, const InputMatrix& matrix,
                      const MatchingStore& matching, void* lu, void* work) {
  control.perturbed = control.npos = control.nneg = 0;
  control.logdet = 0;
  const Kernel kernel = choose_kernel(control.mtype, control.single32 != 0);
  if (kernel == nullptr) return status_unsupported;
  FactorCall call{control, structure, matrix, matching, lu, work};
  return kernel(call);
}

}  // namespace vlm
