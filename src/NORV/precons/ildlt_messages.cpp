// SPDX-License-Identifier: BSD-3-Clause
/// Messages of the incomplete factorizations, see ildlt_messages.hpp.
#include "NORV/precons/ildlt_messages.hpp"

#include <algorithm>
#include <limits>

namespace vlm::norv {

const char* const drop_style_names[3] = {"diag-based", "inverse-based", "infinity-norm-based"};

namespace {

/// Debug message of the member's source file.
#define MEMBER_DEBUG(format, ...)                                         \
  _norv_print_debug_msg("[VELMORA/ML]>> \tNORV/corelib/%s: " format "\n", \
                        member.source __VA_OPT__(, ) __VA_ARGS__)

int number(std::int64_t x) {
  return static_cast<int>(std::min<std::int64_t>(x, std::numeric_limits<int>::max()));
}
double percent(std::int64_t part, std::int64_t whole) {
  return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0;
}

/// A share of entries.
void print_share(const char* format, std::int64_t part, std::int64_t whole) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  _norv_print_stat_msg(format, number(part), number(whole), percent(part, whole));
#pragma GCC diagnostic pop
}

void print_banner(const IldltMember& member, const IldltOptions& o) {
  const char* const style = drop_style_names[static_cast<int>(o.drop_style)];
  switch (member.kind) {
    case MemberKind::pivoting:
      _norv_print_stat_msg(
          "Setting up incomplete LDL^T %s (drop: %4.1e, %4.1e;  1x1: %4.1e;  2x2: %4.1e) ...",
          member.banner, o.drop, o.max_fill, o.pivot_1x1, o.pivot_2x2);
      return;
    case MemberKind::parallel:
      _norv_print_stat_msg("Setting up incomplete LDL^T %s (drop: %4.1e, %4.1e;  1x1: %4.1e;) ...",
                           member.banner, o.drop, o.max_fill, o.pivot_1x1);
      return;
    case MemberKind::bunch_kaufman:
      _norv_print_stat_msg("Setting up ILDL^T with Tridiagonal Pivoting (%e, %4.1e) ...", o.drop,
                           o.max_fill);
      return;
    case MemberKind::permuted:
      _norv_print_stat_msg("Setting up incomplete LDL^T + PERM (%s dropping, %4.1e, %4.1e) ...",
                           style, o.drop, o.max_fill);
      return;
    case MemberKind::plain:
      _norv_print_stat_msg("Setting up incomplete LDL^T (%s dropping, %e) ...", style, o.drop);
      return;
    case MemberKind::cholesky:
      _norv_print_stat_msg("Setting up ICHOL (%s dropping, %e) ...", style, o.drop);
      return;
  }
}

void print_pivoting_options(const IldltMember& member, const IldltOptions& o) {
  MEMBER_DEBUG("  - Use %s dropping.", drop_style_names[static_cast<int>(o.drop_style)]);
  if (o.small_pivot == SmallPivot::ignore) MEMBER_DEBUG("  - Ignore small scalar pivots");
  if (o.small_pivot == SmallPivot::perturb)
    MEMBER_DEBUG("  - Perturb scalar pivots smaller than %.2e ", o.pivot_1x1);
  if (o.small_pivot == SmallPivot::delay)
    MEMBER_DEBUG("  - Delay scalar pivots smaller than %.2e", o.pivot_1x1);
  if (o.pair_choice == PairChoice::tridiagonal)
    MEMBER_DEBUG("  - Tri-diagonal 2x2 pivoting (%.2e) ", o.pivot_2x2);
  if (o.pair_choice == PairChoice::column)
    MEMBER_DEBUG("  - Column 2x2 pivoting (%.2e)", o.pivot_2x2);
  if (o.pair_choice == PairChoice::dominance) MEMBER_DEBUG("  - Maximum DOMINANCE 2x2 pivoting.");
  if (o.compensate)
    MEMBER_DEBUG("  - COMPENSATE diagonal for target vector.");
  else
    MEMBER_DEBUG("  - NO diagonal compensation.");
  if (o.kappa > 0) MEMBER_DEBUG("  - Postponing for |L^(-1)(k,:)| > kappa (%.2e).", o.kappa);
}

void print_dropped(const IldltStatistics& s, std::int64_t entries) {
  print_share("Dropped 1x1 entries:         %8d / %8d (%6.2f%%)", s.dropped_1x1, s.entries_1x1);
  print_share("Dropped 2x1 entries:         %8d / %8d (%6.2f%%)", s.dropped_2x2, s.entries_2x2);
  print_share("Number of clipped entries:   %8d / %8d (%6.2f%%)", s.clipped, s.clipped + entries);
  _norv_print_stat_msg("Number of clipped rows:      %8d", number(s.clipped_rows));
}

void print_pivots(const IldltStatistics& s, bool skipping, int n) {
  _norv_print_stat_msg("Number of 2x2 pivots:        %8d", number(s.pairs));
  _norv_print_stat_msg("Perms for 2x2 pivoting:      %8d    (%6.2f%%)", number(s.exchanges),
                       percent(s.exchanges, n));
  _norv_print_stat_msg("Perturbed scalar pivots:     %8d    (first: %d)", number(s.perturbed),
                       number(s.first_perturbed));
  if (skipping)
    _norv_print_stat_msg("Skipped scalar pivots:       %8d    (first: %d)", number(s.skipped),
                         number(s.first_skipped));
  else
    _norv_print_stat_msg("Delayed scalar pivots:       %8d    (first: %d)",
                         number(s.delayed_scalar), number(s.first_delayed));
  _norv_print_stat_msg("Delayed  2x2   pivots:       %8d", number(s.delayed_pairs));
  _norv_print_stat_msg("Bad delayed scalar pivots:   %8d    (smallest: %.2e)",
                       number(s.bad_delayed), s.smallest_bad);
}

template <class T>
void print_pivoting(const IldltMember& member, const IldltResult<T>& r, std::int64_t mat) {
  const IldltStatistics& s = r.statistics;
  const std::int64_t entries = r.factor.entries();
  const int n = r.factor.n;
  _norv_print_stat_msg("[%s finished.  nnz(L): %d,  mat: %d  (%7.2f%%).]", member.title,
                       number(entries), number(mat), percent(entries, mat));
  _norv_print_stat_msg("%s took %f secs.", member.title, s.seconds);
  print_pivots(s, s.skipped > 0, n);
  _norv_print_stat_msg("Delayed 1x1 eigenvalues:     %8d", number(s.delayed_eigenvalue_1x1));
  _norv_print_stat_msg("Delayed 2x2 eigenvalues:     %8d", number(s.delayed_eigenvalue_2x2));
  print_dropped(s, entries);
  _norv_print_stat_msg("Est. norm ||L^(-1)||:        %8.2e", s.norm);
  _norv_print_stat_msg("Number of positive eig.:     %8d", r.factor.npos);
  _norv_print_stat_msg("Number of negative eig.:     %8d", r.factor.nneg);
  _norv_print_stat_msg("Size of SCHUR complement:    %8d    (%6.2f%%)", s.schur_size,
                       percent(s.schur_size, n));
}

template <class T>
void print_bunch_kaufman(const IldltResult<T>& r) {
  const IldltStatistics& s = r.statistics;
  if (r.factor.entries() == 0) _norv_print_stat_msg("Factor L is empty.");
  _norv_print_stat_msg("Number of 2x2 pivots:         %d", number(s.pairs));
  _norv_print_stat_msg("Perturbed scalar pivots:      %d  (first: %d)", number(s.perturbed),
                       number(s.first_perturbed));
  print_share("Dropped 1x1 entries:          %8d / %8d (%6.2f%%)", s.dropped_1x1, s.entries_1x1);
  print_share("Dropped 2x1 entries:          %8d / %8d (%6.2f%%)", s.dropped_2x2, s.entries_2x2);
  print_share("Clipped entries:              %8d / %8d (%6.2f%%)", s.clipped,
              s.clipped + r.factor.entries());
  _norv_print_stat_msg("Clipped rows:                 %8d", number(s.clipped_rows));
  _norv_print_stat_msg("Maximal dropping thresholds:  %e", s.largest_threshold);
  _norv_print_stat_msg("Minimal diagonal value:       %e", s.smallest_diagonal);
}

}  // namespace

const IldltMember& stpiv_member() {
  static constexpr IldltMember member{"STPIV", "ILDLT_STPIV", "precon_ildlt_stpiv"};
  return member;
}

void ildlt_setup_messages(const IldltMember& member, const IldltOptions& options, int per_row) {
  print_banner(member, options);
  if (member.kind == MemberKind::plain || member.kind == MemberKind::cholesky) return;
  if (member.kind == MemberKind::pivoting || member.kind == MemberKind::parallel)
    print_pivoting_options(member, options);
  if (member.kind == MemberKind::bunch_kaufman) {
    if (options.pair_choice == PairChoice::none)
      MEMBER_DEBUG("  - 2x2 DISABLED.");
    else
      MEMBER_DEBUG("  - Tridiagonal 2x2 pivoting.");
  }
  MEMBER_DEBUG("  - Determine max_fill on avg. row length (max: %d).", per_row);
}

template <class T>
void ildlt_statistics_messages(const IldltMember& member, const IldltResult<T>& result,
                               std::int64_t mat) {
  const IldltStatistics& s = result.statistics;
  const std::int64_t entries = result.factor.entries();
  if (entries == 0 && member.kind != MemberKind::bunch_kaufman)
    _norv_print_stat_msg("Factor is DIAGONAL!");
  switch (member.kind) {
    case MemberKind::pivoting:
      print_pivoting(member, result, mat);
      return;
    case MemberKind::parallel:
      _norv_print_stat_msg("[PARILDLT finished.  nnz(L): xxx,  mat: %d  (%7.2f%%).]", number(mat),
                           percent(entries, mat));
      print_pivots(s, false, result.factor.n);
      print_dropped(s, entries);
      return;
    case MemberKind::bunch_kaufman:
      print_bunch_kaufman(result);
      return;
    case MemberKind::permuted:
      _norv_print_stat_msg("[ILDLT_PM finished.  nnz(L): %d,  mat: %d  (%7.2f%%).]",
                           number(entries), number(mat), percent(entries, mat));
      _norv_print_stat_msg("Perturbed entries:           %8d", number(s.perturbed));
      print_dropped(s, entries);
      return;
    case MemberKind::plain:
    case MemberKind::cholesky:
      _norv_print_stat_msg("[%s finished.  nnz: %d, mat: %d  (%7.2f%%).]", member.title,
                           number(entries), number(mat), percent(entries, mat));
      if (member.kind == MemberKind::plain)
        _norv_print_stat_msg("Sign changes on diagonal:     %d", number(s.sign_changes));
      return;
  }
}

template void ildlt_statistics_messages(const IldltMember&, const IldltResult<double>&,
                                        std::int64_t);
template void ildlt_statistics_messages(const IldltMember&, const IldltResult<zcomplex>&,
                                        std::int64_t);

}  // namespace vlm::norv
