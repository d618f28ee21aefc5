// SPDX-License-Identifier: BSD-3-Clause
/// What a matrix looks like: constraint blocks of saddle-point systems, diagonal dominance,
/// precious rows, the spread of magnitudes, scaling vectors.

#include <algorithm>
#include <array>
#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// A diagonal entry up to this magnitude, with nothing to its right, opens a constraint block.
constexpr double kConstraintZero = 1e-8;

template <typename T>
unsigned constraint_size(const Rows<T>& A) {
  for (int i = 0; i < A.m - 1; ++i) {
    const int end = A.ia[i + 1];
    int k = A.ia[i];
    while (k < end && A.ja[k] < i) ++k;
    if (k == end - 1 && modulus(A.a[k]) <= kConstraintZero) return static_cast<unsigned>(A.m - i);
  }
  return 0;
}

/// Rows, or columns, of the completed matrix whose diagonal entry is at least as large as all
/// others together.
template <typename T>
unsigned count_dominant(const Rows<T>& A, bool by_column) {
  const int n = by_column ? A.n : A.m;
  Buffer<double> others(n, 0.0), diagonal(n, 0.0);
  for_each_entry(
      A, [&](int i, int j, T v) { (i == j ? diagonal : others)[by_column ? j : i] += modulus(v); });
  unsigned count = 0;
  for (int i = 0; i < n; ++i) count += diagonal[i] >= others[i];
  return count;
}

/// The leading nf by nf block without what is off its diagonal, in place.
void diagonalize_leading(smat* A, int nf) {
  by_kind(A->is_complex, [&](auto zero) {
    keep_entries<decltype(zero)>(A,
                                 [nf](int i, int j, auto) { return i == j || i >= nf || j >= nf; });
  });
}

// ---- spread of magnitudes -----------------------------------------------------------------

constexpr int kBuckets = 100;

/// Share of the entries that a hint for a dropping threshold keeps.
constexpr double kKeptShare = 0.9;

struct Range {
  double max = 0.0, min = 0.0;
  bool empty = true;

  void add(double v) {
    max = empty ? v : std::max(max, v);
    min = empty ? v : std::min(min, v);
    empty = false;
  }
};

/// Decades below `largest` in which v > 0 lies.
int decade_below(double largest, double v) {
  return static_cast<int>(std::floor(std::log10(largest) - std::log10(v)));
}

template <typename T>
void profile(const Rows<T>& A) {
  Range diagonal, all;  // `all`: of what is not 0
  const auto counts = [](double v) { return v > 0.0 && std::isfinite(v); };
  for_each_entry(A, [&](int i, int j, T v) {
    const double size = modulus(v);
    if (i == j) diagonal.add(size);
    if (counts(size)) all.add(size);
  });
  std::array<std::int64_t, kBuckets> bucket_size{};
  std::int64_t total = 0;
  for_each_entry(A, [&](int, int, T v) {
    if (!counts(modulus(v))) return;
    const int bucket = decade_below(all.max, modulus(v));
    NORV_ASSERT(bucket < 100);
    ++bucket_size[bucket];
    ++total;
  });
  const int needed = total ? decade_below(all.max, all.min) + 1 : 0;
  // The decade at which the share is reached, counted from the largest entries down.
  std::int64_t kept = 0;
  int last = 0;
  for (; last < needed; ++last) {
    kept += bucket_size[last];
    if (static_cast<double>(kept) >= kKeptShare * static_cast<double>(total)) break;
  }
  _norv_print_stat_msg("max_diag: %e,  min_diag: %e", diagonal.max, diagonal.min);
  _norv_print_stat_msg("max_mat:  %e,  min_mat:  %e", all.max, all.min);
  _norv_print_stat_msg("Need %d buckets", needed);
  _norv_print_stat_msg("Dropping threshold might be: %e", all.max * std::pow(10.0, -(last + 1)));
}

/// v := 1 / sqrt(v), and 1 where v is 0.
void to_scaling(vec* v) {
  for (unsigned i = 0; i < v->n; ++i) v->v[i] = v->v[i] > 0.0 ? 1.0 / std::sqrt(v->v[i]) : 1.0;
}

}  // namespace

unsigned smat_guess_constraint_size(const smat* A) {
  const unsigned size =
      by_kind(A->is_complex, [&](auto zero) { return constraint_size(rows<decltype(zero)>(A)); });
  _norv_print_stat_msg("Constraint size:  %d", static_cast<int>(size));
  return size;
}

unsigned smat_get_num_diag_dominant_rows(const smat* A) {
  return by_kind(A->is_complex,
                 [&](auto zero) { return count_dominant(rows<decltype(zero)>(A), false); });
}

unsigned smat_get_num_diag_dominant_cols(const smat* A) {
  return by_kind(A->is_complex,
                 [&](auto zero) { return count_dominant(rows<decltype(zero)>(A), true); });
}

smat* smat_diagonalize_11(const smat* A, unsigned nf) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(nf <= A->m);
  smat* B = smat_copy(A);
  diagonalize_leading(B, static_cast<int>(nf));
  smat_realloc(B, B->nnz);
  return B;
}

void smat_profile_matrix(const smat* A) {
  by_kind(A->is_complex, [&](auto zero) { profile(rows<decltype(zero)>(A)); });
}

bitvec* smat_get_precious_rows(const smat* A, double thresh, int max_len) {
  NORV_ASSERT(A->m == A->n);
  Buffer<int> below(A->m, 0);
  smat_get_row_nnzs_L(A, below.data());
  bitvec* precious = bitvec_new(A->m);
  int count = 0;
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    int j = A->ia[i];
    while (j < A->ia[i + 1] && A->ja[j] < i) ++j;
    NORV_ASSERT(j < A->ia[i + 1] && A->ja[j] == i);
    const double size = by_kind(
        A->is_complex, [&](auto zero) { return modulus(values_as<decltype(zero)>(A->a)[j]); });
    if (size <= thresh && below[i] >= 1 && below[i] <= max_len) {
      bitvec_set(precious, static_cast<unsigned>(i));
      ++count;
    }
  }
  _norv_print_stat_msg("Number of potentially precious rows:  %d", count);
  return precious;
}

vec* smat_get_inf_norm_scaling(vec* dst, const smat* A) {
  dst = smat_row_inf_norms(dst, A);
  to_scaling(dst);
  return dst;
}

vec* smat_get_diag_scaling(vec* dst, const smat* A) {
  const unsigned n = std::min(A->m, A->n);
  if (!dst) dst = vec_new(n);
  NORV_ASSERT(dst->n == n && !dst->is_complex);
  by_kind(A->is_complex, [&](auto zero) { diagonal_moduli<decltype(zero)>(A, dst->v); });
  to_scaling(dst);
  return dst;
}

NORVMORA_SMAT_ANALYSIS(NORVMORA_ALIAS)
