// SPDX-License-Identifier: BSD-3-Clause
/// Multilevel block elimination.
///
/// A level is ordered so that the unknowns F to be eliminated don't couple with each other (or only
/// in small groups), and what is left after them is the next level:
///     R = [-A_cf A_ff^-1  I],   P = [-A_ff^-1 A_fc; I],   A_ff^-1 by its diagonal,
/// thinned out (Y. Saad, B. Suchomel, "ARMS: an algebraic recursive multilevel solver for general
/// sparse linear systems", 2002).  Rows keep their places: R and P are in the order of the level.
#include <algorithm>

#include "NORV/multilevel/interpolation.hpp"
#include "NORV/multilevel/record.hpp"
#include "base/clock.hpp"

namespace {

using namespace vlm;
using namespace vlm::norv;

enum class Coarsening { greedy, groups };
enum class Projection { galerkin, left_schur };

/// Chooses the unknowns that are eliminated: groups of at most `size` that no entry connects.  An
/// unknown whose diagonal entry is small beside its row stays.
template <class T>
Vector<char> eliminated_unknowns(const Rows<T>& A, int size) {
  constexpr double worth_dividing_by = 0.1;
  const auto pivots = [&](int i) {
    double own = 0, largest = 0;
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      const double v = modulus(A.a[k]);
      if (A.ja[k] == i) own = v;
      largest = std::max(largest, v);
    }
    return own > 0 && own >= worth_dividing_by * largest;
  };
  constexpr int unseen = 0, outside = -1;
  Vector<int> group(A.m, unseen);  // number of the group, from 1
  Vector<int> members;
  int groups = 0;
  const auto touches_other_group = [&](int i, int own) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k)
      if (const int g = group[A.ja[k]]; g > 0 && g != own) return true;
    return false;
  };
  for (int i = 0; i < A.m; ++i) {
    if (group[i] != unseen) continue;
    members.assign(1, i);
    ++groups;
    for (std::size_t at = 0; at < members.size(); ++at) {
      const int j = members[at];
      if (group[j] != unseen || touches_other_group(j, groups) || !pivots(j)) {
        if (group[j] == unseen) group[j] = outside;
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(at--));
        continue;
      }
      group[j] = groups;
      for (int k = A.ia[j]; k < A.ia[j + 1]; ++k)
        if (members.size() < static_cast<std::size_t>(size) && group[A.ja[k]] == unseen &&
            std::find(members.begin(), members.end(), A.ja[k]) == members.end())
          members.push_back(A.ja[k]);
    }
    for (const int j : members)
      for (int k = A.ia[j]; k < A.ia[j + 1]; ++k)
        if (group[A.ja[k]] == unseen) group[A.ja[k]] = outside;
  }
  Vector<char> chosen(A.m);
  for (int i = 0; i < A.m; ++i) chosen[i] = group[i] > 0;
  return chosen;
}

/// Coarse number of the unknowns that stay, -1 of the others.
Vector<int> numbers_of_rest(const Vector<char>& eliminated, int& count) {
  Vector<int> number(eliminated.size());
  count = 0;
  for (std::size_t i = 0; i < number.size(); ++i) number[i] = eliminated[i] ? -1 : count++;
  return number;
}

/// [-A_ff^-1 A_fc; I], or for the plain injection [0; I].
template <class T>
OwnSmat prolongation(const Rows<T>& A, const Vector<int>& number, int coarse,
                     const Vector<T>& inverse, bool injection) {
  OwnSmat P(smat_new(static_cast<unsigned>(A.m), static_cast<unsigned>(coarse),
                     type_of(0, is_complex_v<T>)));
  const auto each = [&](const auto& f) {
    for (int i = 0; i < A.m; ++i) {
      if (number[i] >= 0) f(i, number[i], T(1));
      if (number[i] >= 0 || injection) continue;
      for (int k = A.ia[i]; k < A.ia[i + 1]; ++k)
        if (number[A.ja[k]] >= 0) f(i, number[A.ja[k]], -product(inverse[i], A.a[k]));
    }
  };
  each([&](int i, int, const T&) { ++P->ia[i + 1]; });
  reserve_entries(P.get(), counts_to_starts(P->ia, P->m));
  int put = 0;
  each([&](int, int j, const T& v) {
    P->ja[put] = j;
    values_as<T>(P->a)[put++] = v;
  });
  return P;
}

/// [-A_cf A_ff^-1  I].
template <class T>
OwnSmat restriction(const Rows<T>& A, const Vector<int>& number, int coarse,
                    const Vector<T>& inverse) {
  OwnSmat R(smat_new(static_cast<unsigned>(coarse), static_cast<unsigned>(A.m),
                     type_of(0, is_complex_v<T>)));
  const auto each = [&](const auto& f) {
    for (int i = 0; i < A.m; ++i) {
      if (number[i] < 0) continue;
      bool own = false;
      for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
        const int j = A.ja[k];
        if (j >= i && !own) own = true, f(number[i], i, T(1));
        if (number[j] < 0) f(number[i], j, -product(A.a[k], inverse[j]));
      }
      if (!own) f(number[i], i, T(1));
    }
  };
  each([&](int i, int, const T&) { ++R->ia[i + 1]; });
  reserve_entries(R.get(), counts_to_starts(R->ia, R->m));
  int put = 0;
  each([&](int, int j, const T& v) {
    R->ja[put] = j;
    values_as<T>(R->a)[put++] = v;
  });
  return R;
}

int group_size(const aml_params& params) {
  switch (static_cast<Coarsening>(params.coarsening_method)) {
    case Coarsening::greedy:
      return 1;
    case Coarsening::groups:
      return std::max(params.coarsening_bis_bsize, 1);
  }
  bad_options(1, "Coarsening method unknown: %d", params.coarsening_method);
}

/// The transfers for a choice of unknowns, and the next level's matrix.
template <class T>
Transfer<T> eliminate(smat* A, const Vector<int>& number, int coarse, const aml_params& params) {
  const Rows<T> R = rows<T>(A);
  if (params.aff_inversion_method != 0)
    bad_options(1, "Inversion method unknown: %d", params.aff_inversion_method);
  _norv_print_stat_msg("Splitting matrix ... ");
  Vector<T> inverse(A->m, T());
  for_each_diagonal(A, [&](int i, int k) {
    if (number[i] < 0) inverse[i] = quotient(T(1), R.a[k]);
  });
  Transfer<T> transfer;
  transfer.P = prolongation(R, number, coarse, inverse, false);
  transfer.R = restriction(R, number, coarse, inverse);
  double seconds = 0;
  {
    const Stopwatch watch(seconds);
    switch (static_cast<Projection>(params.projection_method)) {
      case Projection::galerkin:
        transfer.coarse = coarse_matrix(transfer.R.get(), A, transfer.P.get());
        break;
      case Projection::left_schur:  // the columns that stay of R A
        transfer.coarse = coarse_matrix(transfer.R.get(), A,
                                        prolongation(R, number, coarse, inverse, true).get());
        break;
      default:
        bad_options(1, "Projection method unknown: %d", params.projection_method);
    }
  }
  _norv_print_stat_msg("Calculating coarse level matrix took %f secs.", seconds);
  smat* const C = transfer.coarse.get();
  _norv_print_stat_msg("Sparsifying matrix, threshold: %e ... ", params.sparsify_fact);
  const unsigned before = C->nnz;
  smat_sparsify_thresh_diag(params.sparsify_fact, C);
  smat_realloc(C, C->nnz);
  _norv_print_stat_msg("Sparsified nnz: %d  (%.2f%%) ... ", static_cast<int>(C->nnz),
                       before ? 100.0 * C->nnz / before : 100.0);
  if (params.correction_method == 1) transfer.eliminated = std::move(inverse);
  return transfer;
}

/// Unknown methods are refused where a level gets its smoother.
void tell_smoother(int method) {
  constexpr const char* texts[] = {"No smoothing ... ", "Setting up ILUT smoothing.",
                                   "GS smoothing setup (=nothing)."};
  if (method >= 0 && method < 3) _norv_print_stat_msg("%s", texts[method]);
}

template <class T>
void build(const aml* h, Hierarchy<T>& levels) {
  const aml_params& params = h->params;
  const int size = group_size(params);
  if (params.correction_method != 0 && params.correction_method != 1)
    bad_options(1, "Correction method unknown: %d", params.correction_method);
  while (goes_on(h, levels)) {
    double seconds = 0;
    {
      const Stopwatch watch(seconds);
      smat* const A = levels.coarsest();
      int coarse = 0;
      const Vector<int> number = numbers_of_rest(eliminated_unknowns(rows<T>(A), size), coarse);
      if (coarse == static_cast<int>(A->m) || coarse == 0) break;
      const int l = levels.levels();
      _norv_print_stat_msg("Setting up level %d (%dx%d) ...", l, coarse, coarse);
      _norv_print_stat_msg("Setting up smoother ... ");
      tell_smoother(params.smoothing_method);
      levels.add_level(eliminate<T>(A, number, coarse, params));
      const smat* const C = levels.coarsest();
      const double square = static_cast<double>(C->m) * C->m;
      _norv_print_stat_msg("Coarse grid level %d: (%dx%d), nnz: %d (%f%%).", l, coarse, coarse,
                           static_cast<int>(C->nnz), 100.0 * C->nnz / square);
    }
    _norv_print_stat_msg("Coarse level (%d) setup took %f secs.", levels.levels() - 1, seconds);
  }
}

}  // namespace

aml* aml_new(void) {
  aml_params p = default_params(Smoothing::ilut, 0);
  p.sparsify_fact = 1e-4;
  p.correction_method = 1;
  return new_record(5, 100, p);
}

int aml_setup(aml* h, smat* A) {
  _norv_print_stat_msg("*** Instantiate Multi-Level structure ...");
  const int result = set_up(h, A, h->params, [&](auto& levels) {
    const double square = static_cast<double>(A->m) * A->n;
    _norv_print_stat_msg("Setting up level hierarchy; (%dx%d) nnz: %d (%f%%)...",
                         static_cast<int>(A->m), static_cast<int>(A->n), static_cast<int>(A->nnz),
                         square > 0 ? 100.0 * A->nnz / square : 0.0);
    build(h, levels);
  });
  print_summary(h);
  return result;
}

vec* aml_solve(aml* h, vec* x, const vec* b) { return apply_cycle(h, x, b); }

int solve_aml(aml* h, vec* x, const vec* b, double epsilon, int maxiter) {
  return iterate(h, x, b, epsilon, maxiter, {"AML", "Start solving AML ... ", "AML iteration"});
}

void aml_param_print(const aml_params* p) {
  NORV_ASSERT(p != 0);
  static constexpr const char* projections[] = {"PROJECTION_GALERKIN", "PROJECTION_LEFT_SCHUR"};
  static constexpr const char* coarsenings[] = {"COARSENING_IS_GREEDY", "COARSENING_BLOCK_IS"};
  static constexpr const char* inversions[] = {"AFF_INVERSION_DIAG"};
  static constexpr const char* smoothers[] = {"SMOOTHING_NONE", "SMOOTHING_ILUT", "SMOOTHING_GS"};
  static constexpr const char* corrections[] = {"CORRECTION_AMG", "CORRECTION_ML_LU"};
  const auto choice = [](const char* name, int value, const auto& names) {
    const bool known = value >= 0 && value < static_cast<int>(std::size(names));
    _norv_print_stat_msg("%-21s %d %s", name, value, known ? names[value] : "unknown");
  };
  const auto number = [](const char* name, double value) {
    _norv_print_stat_msg("%-21s %g", name, value);
  };
  choice("projection_method", p->projection_method, projections);
  number("sparsify_fact", p->sparsify_fact);
  number("sparsify_base", p->sparsify_base);
  number("omega", p->omega);
  number("strong_pos", p->strong_pos);
  number("strong_neg", p->strong_neg);
  choice("coarsening_method", p->coarsening_method, coarsenings);
  number("coarsening_bis_bsize", p->coarsening_bis_bsize);
  choice("aff_inversion_method", p->aff_inversion_method, inversions);
  choice("smoothing_method", p->smoothing_method, smoothers);
  number("pre_smooth", p->pre_smooth);
  number("pst_smooth", p->pst_smooth);
  number("ilut_thresh", p->ilut_thresh);
  number("ilut_fill", p->ilut_fill);
  choice("correction_method", p->correction_method, corrections);
}

void aml_free(aml* h) { free_record(h); }
