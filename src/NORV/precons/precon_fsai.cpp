// SPDX-License-Identifier: BSD-3-Clause
/// The classes of factored approximate inverses: XFSAI, and MFSAI with monitored pivots.
#include <algorithm>
#include <limits>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/fsai.hpp"
#include "NORV/precons/full_rows.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/owned_data.hpp"
#include "NORV/precons/preorder.hpp"
#include "base/clock.hpp"
#include "norv/classes.h"

namespace vlm::norv {
namespace {

// Places of the parameters; the third integer is the use of pairs, or for MFSAI the pivots.
enum { threshold, drop_tolerance, fill, pivot_eps, row_bound };
enum { power, solution, pattern, pairs, most_entries };

template <class T>
struct Kept {
  FsaiFactor<T> factor;
  Vector<T> work;
};
using FsaiData = OfKind<Kept>;

constexpr const char* solution_names[] = {
    "Lapack QR",       "Restricted LSQR",      "LSQR",
    "Normal Equation", "Sub-system iterative", "Sub-system direct"};
constexpr const char* pattern_names[] = {"Matrix Exponent", "Symbolic Inverse",
                                         "Approximate Symbolic Inverse"};
constexpr const char* pivot_names[] = {"Predetermined", "Predetermined/DELAYED",
                                       "Predetermined/NORM-monitoring", "Trial 11/22",
                                       "Trial 11/22 NORM-monitoring"};

/// What the parameters say; the one that is no option is a fault.
FsaiOptions options_of(const precon* M, bool monitored, double average) {
  const auto choice = [&](int place, int count, const char* what) {
    if (M->iparam[place] < 0 || M->iparam[place] >= count)
      bad_options(1, "%s: unknown %s %d.", M->name, what, M->iparam[place]);
    return M->iparam[place];
  };
  FsaiOptions o;
  o.solution = static_cast<FsaiSolution>(choice(solution, 6, "solution"));
  o.pattern = static_cast<FsaiPattern>(choice(pattern, 3, "pattern"));
  const int last = choice(pairs, monitored ? 5 : 3, monitored ? "pivots" : "use of 2x2 blocks");
  if (monitored) o.pivots = static_cast<FsaiPivots>(last);
  if (o.solution == FsaiSolution::normal_equation) bad_options(1, "XFSAI_NE not implemented.");
  o.power = M->iparam[power];
  o.threshold = M->dparam[threshold];
  o.drop = M->dparam[drop_tolerance];
  o.pivot_eps = M->dparam[pivot_eps];
  o.bound = M->dparam[row_bound];
  if (o.power < 1 || M->iparam[most_entries] < 0 || !(o.threshold >= 0) || !(o.drop >= 0) ||
      !(o.pivot_eps >= 0) || (monitored && !(o.bound > 0)))
    bad_options(1,
                "%s: power %d or most entries, threshold %e, drop %e, pivot %e and bound %e are no "
                "options.",
                M->name, o.power, o.threshold, o.drop, o.pivot_eps, o.bound);
  constexpr int unlimited = std::numeric_limits<int>::max() / 2;
  const double by_fill = M->dparam[fill] > 0 ? std::ceil(M->dparam[fill] * average) : unlimited;
  const int most = M->iparam[most_entries] > 0 ? M->iparam[most_entries] : unlimited;
  o.limit = static_cast<int>(std::min<double>(by_fill, most));
  return o;
}

void banner(const precon* M, bool monitored, const FsaiOptions& o) {
  _norv_print_stat_msg("Setting up %s preconditioner (%d, %.2f, %.2f, %.2f)...", M->name, o.power,
                       o.threshold, o.drop, M->dparam[fill]);
  _norv_print_stat_msg("    Using %s solution.", solution_names[M->iparam[solution]]);
  _norv_print_stat_msg("    Using %s pattern.", pattern_names[M->iparam[pattern]]);
  _norv_print_stat_msg("    Pivot eps.: %.2e.", o.pivot_eps);
  if (monitored)
    _norv_print_stat_msg("    Using %s pivots.", pivot_names[M->iparam[pairs]]);
  else if (o.partner != nullptr)
    _norv_print_stat_msg("    Using prescribed 2x2 blocks.");
  else
    _norv_print_stat_msg("    NOT using prescribed 2x2 blocks!");
}

template <class T>
void report(const precon* M, const FsaiFactor<T>& f, std::int64_t matrix, double seconds) {
  const double share =
      matrix > 0 ? 100.0 * static_cast<double>(f.entries()) / static_cast<double>(matrix) : 0.0;
  _norv_print_stat_msg("Ls nonzero elements:          %d (%.2f%%)", M->nnz, share);
  _norv_print_stat_msg("Number of 2x2 pivots:         %d", f.pairs);
  _norv_print_stat_msg("Number of bad 2x2 pivots:     %d", f.bad_pairs);
  _norv_print_stat_msg("Number of perturbed 1x1:      %d", f.perturbed);
  _norv_print_stat_msg("Time to generate pattern:     %f secs", f.pattern_seconds);
  _norv_print_stat_msg("Time to build subsystems:     %f secs", f.build_seconds);
  _norv_print_stat_msg("Time to solve subsystems:     %f secs", f.solve_seconds);
  _norv_print_stat_msg("%s took %f secs.", M->name, seconds);
}

/// Whether 2x2 pivots come from a matching.
template <class T>
bool wants_pairs(const precon* M, bool monitored, const smat* full) {
  const auto use = static_cast<UseMatching>(M->iparam[pairs]);
  const bool where_it_helps = monitored || use == UseMatching::where_it_helps;
  return where_it_helps ? has_weak_diagonal<T>(full) : use == UseMatching::always;
}

template <class T>
void setup_of_kind(precon* M, const smat* full, bool monitored) {
  const double start = timer_velmora();
  const Rows<T> A = rows<T>(full);
  FsaiOptions o = options_of(M, monitored, A.m > 0 ? static_cast<double>(full->nnz) / A.m : 0.0);
  Vector<int> partner;
  const bool tries = o.pivots == FsaiPivots::tried || o.pivots == FsaiPivots::tried_monitored;
  if (!tries && wants_pairs<T>(M, monitored, full))
    partner = pivot_candidates(permuted_upper<T>(full, nullptr, nullptr));
  if (!partner.empty()) o.partner = partner.data();
  banner(M, monitored, o);
  auto kept = std::make_unique<Kept<T>>();
  kept->factor = factorize_fsai(A, o);
  kept->work.resize(static_cast<std::size_t>(A.m));
  const FsaiFactor<T>& f = kept->factor;
  M->nnz = static_cast<int>(f.entries());
  M->npos = full->is_complex ? 0 : f.npos;
  M->nneg = full->is_complex ? 0 : f.nneg;
  M->nperturbed = f.perturbed;
  report(M, f, full->nnz, timer_velmora() - start);
  data_of<FsaiData>(M)->of<T>() = std::move(kept);
}

/// Whether a matrix with both triangles stored is its own transpose.
bool is_own_transpose(const smat* A) {
  smat* const At = smat_copy_trans(A);
  const std::size_t doubles = A->nnz * doubles_per_value(A->is_complex);
  const bool own = std::equal(A->ia, A->ia + A->m + 1, At->ia) &&
                   std::equal(A->ja, A->ja + A->nnz, At->ja) &&
                   std::equal(A->a, A->a + doubles, At->a);
  smat_free(At);
  return own;
}

template <bool monitored>
int fsai_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  if (!A->sym && !is_own_transpose(A)) {
    _norv_print_error_msg("%s needs a symmetric matrix.", M->name);
    return 0;
  }
  data_of<FsaiData>(M)->forget();
  M->is_complex = A->is_complex;
  smat* const full = A->sym ? smat_copy_full_structure(A) : A;
  guarded([&] {
    by_kind(A->is_complex, [&](auto kind) { setup_of_kind<decltype(kind)>(M, full, monitored); });
  });
  if (full != A) smat_free(full);
  return 1;
}

vec* fsai_apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(x->is_complex == M->is_complex);
  by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const auto& kept = data_of<FsaiData>(M)->of<T>();
    NORV_ASSERT_TEXT(kept != nullptr, "factors_ok");
    NORV_ASSERT(x->n == kept->work.size());
    apply(kept->factor, values<T>(x), kept->work.data(), values<T>(result));
  });
  return result;
}

void set_defaults(precon& M) {
  M.dparam[threshold] = 0.001;
  M.dparam[pivot_eps] = 0.01;
  M.iparam[power] = 4;
  M.iparam[solution] = static_cast<int>(FsaiSolution::direct);
  M.iparam[pattern] = static_cast<int>(FsaiPattern::adaptive);
  M.iparam[most_entries] = 50;
}

/// M is its own transpose.
constexpr precon class_of(const char* name, precon* (*create)(), int (*setup)(precon*, smat*)) {
  return class_record(name, {.create = create,
                             .setup = setup,
                             .apply = fsai_apply,
                             .apply_trans = fsai_apply,
                             .free = free_with_data<FsaiData>});
}

}  // namespace
}  // namespace vlm::norv

precon* precon_xfsai_create(void) {
  using namespace vlm::norv;
  precon M = class_of("XFSAI", precon_xfsai_create, fsai_setup<false>);
  set_defaults(M);
  M.dparam[fill] = 2.0;
  M.iparam[pairs] = static_cast<int>(UseMatching::where_it_helps);
  return new_with_data<FsaiData>(M);
}

precon* precon_mfsai_create(void) {
  using namespace vlm::norv;
  precon M = class_of("MFSAI", precon_mfsai_create, fsai_setup<true>);
  set_defaults(M);
  M.dparam[fill] = 6.0;
  M.dparam[row_bound] = 10.0;
  M.iparam[pairs] = static_cast<int>(FsaiPivots::tried_monitored);
  return new_with_data<FsaiData>(M);
}
