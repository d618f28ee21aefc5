// SPDX-License-Identifier: BSD-3-Clause
/// Sparse approximate inverses: min || A M - I || in the Frobenius norm, a least-squares problem
/// for each column of M on a given pattern (M. Grote and T. Huckle, Parallel preconditioning with
/// sparse approximate inverses, 1997).  SPAIONE takes the pattern of A, SPAINDIAG a band.  And the
/// stand-ins for the inverses that this version lacks.
#include <algorithm>

#include "NORV/corelib/smat_rows.hpp"
#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/precons.hpp"
#include "NORV/precons/scalars.hpp"
#include "NORV/precons/small_dense.hpp"
#include "base/clock.hpp"
#include "norv/classes.h"

namespace vlm::norv {
namespace {

/// Forms the columns of M one after the other.
template <class T>
class ColumnInverse {
 public:
  /// @param At        the transpose of A, whose rows are A's columns
  /// @param all_rows  every column's problem has all rows
  ColumnInverse(const smat* At, bool all_rows)
      : At_(rows<T>(At)), all_rows_(all_rows), place_(At->m, -1) {}

  /// Appends the column of M with this pattern, as a row of its transpose.
  void append(int column, const int* pattern, int count, Vector<int>& index, Vector<T>& value) {
    gather(pattern, count);
    const auto m = static_cast<std::size_t>(row_.size());
    block_.assign(m * static_cast<std::size_t>(count), T{});
    for (int j = 0; j < count; ++j)
      for (int k = At_.ia[pattern[j]]; k < At_.ia[pattern[j] + 1]; ++k)
        block_[m * static_cast<std::size_t>(j) + static_cast<std::size_t>(place_[At_.ja[k]])] =
            At_.a[k];
    unit_.assign(m, T{});
    if (place_[column] >= 0) unit_[static_cast<std::size_t>(place_[column])] = T(1);
    const std::size_t first = value.size();
    value.resize(first + static_cast<std::size_t>(count));
    least_squares(static_cast<int>(m), count, block_.data(), unit_.data(), triangle_,
                  value.data() + first);
    index.insert(index.end(), pattern, pattern + count);
    for (const int row : row_) place_[row] = -1;
  }

 private:
  /// The rows that the columns of the pattern touch.
  void gather(const int* pattern, int count) {
    row_.clear();
    const auto enter = [&](int row) {
      if (place_[row] >= 0) return;
      place_[row] = static_cast<int>(row_.size());
      row_.push_back(row);
    };
    for (int i = 0; all_rows_ && i < At_.m; ++i) enter(i);
    for (int j = 0; j < count; ++j)
      for (int k = At_.ia[pattern[j]]; k < At_.ia[pattern[j] + 1]; ++k) enter(At_.ja[k]);
  }

  const Rows<T> At_;
  const bool all_rows_;
  Vector<int> place_, row_;
  Vector<T> block_, unit_, triangle_;
};

// data: M^-1, an smat.

void forget(precon* M) {
  if (M->data != nullptr) smat_free(static_cast<smat*>(M->data));
  M->data = nullptr;
}

/// The rows of M' as M, or for a symmetric A its symmetric part.
template <class T>
smat* finished(unsigned n, const Vector<int>& start, const Vector<int>& index,
               const Vector<T>& value, bool symmetric) {
  smat* Mt = smat_new_nnz(n, n, static_cast<unsigned>(index.size()), type_of(0, is_complex_v<T>));
  std::copy(start.begin(), start.end(), Mt->ia);
  std::copy(index.begin(), index.end(), Mt->ja);
  std::copy(value.begin(), value.end(), values_as<T>(Mt->a));
  smat* const M = smat_copy_trans(Mt);
  if (!symmetric) {
    smat_free(Mt);
    return M;
  }
  smat* const sum = smat_add(M, Mt);
  smat_scale_scalar(0.5, sum);
  smat_free(M);
  smat_free(Mt);
  return sum;
}

/// @param band  diagonals on each side, or -1 for the pattern of A
void build(precon* M, const smat* A, int band, bool all_rows) {
  forget(M);
  M->is_complex = A->is_complex;
  smat* At = A->sym ? smat_copy_full_structure(A) : smat_copy_trans(A);
  const double start = timer_velmora();
  int most = 0;
  guarded([&] {
    by_kind(A->is_complex, [&](auto kind) {
      using T = decltype(kind);
      ColumnInverse<T> columns(At, all_rows);
      Vector<int> starts(1, 0), index, pattern;
      Vector<T> value;
      const int n = static_cast<int>(A->m);
      for (int j = 0; j < n; ++j) {
        pattern.clear();
        if (band < 0)
          pattern.assign(At->ja + At->ia[j], At->ja + At->ia[j + 1]);
        else
          for (int i = std::max(0, j - band); i <= std::min(n - 1, j + band); ++i)
            pattern.push_back(i);
        const int count = static_cast<int>(pattern.size());
        most = std::max(most, count);
        columns.append(j, pattern.data(), count, index, value);
        starts.push_back(static_cast<int>(index.size()));
      }
      M->data = finished<T>(A->m, starts, index, value, A->sym != 0);
    });
  });
  smat_free(At);
  NORV_DEBUG("precon_spaione", "Max. dim J: %d", most);
  NORV_DEBUG("precon_spaione", "least sqares solution time:            %e secs.",
             timer_velmora() - start);
  M->nnz = static_cast<int>(static_cast<const smat*>(M->data)->nnz);
}

int spaione_setup(precon* M, smat* A, bool all_rows) {
  NORV_ASSERT(A->m == A->n);
  _norv_print_stat_msg("Setting up SPAIONE preconditioner...");
  const double start = timer_velmora();
  build(M, A, -1, all_rows);
  _norv_print_stat_msg("SPAIONE took %f secs.", timer_velmora() - start);
  return 1;
}

int spaindiag_setup(precon* M, smat* A) {
  const int n_diag = M->iparam[0];
  if (n_diag < 0) bad_options(1, "SPAINDIAG: %d diagonals.", n_diag);
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT_TEXT(static_cast<std::int64_t>(A->m) >= 2 * std::int64_t{n_diag} + 1,
                   "n >= 2*n_diag + 1");
  _norv_print_stat_msg("Setting up SPAINDIAG (%d) preconditioner...", n_diag);
  const double start = timer_velmora();
  build(M, A, n_diag, false);
  _norv_print_stat_msg("SPAINDIAG took %f secs.", timer_velmora() - start);
  return 1;
}

vec* apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(M->data != 0);
  return smat_vecmul(result, static_cast<const smat*>(M->data), x);
}

vec* apply_trans(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(M->data != 0);
  return smat_vecmul_trans(result, static_cast<const smat*>(M->data), x);
}

void free_inverse(precon* M, int) {
  forget(M);
  release_precon(M);
}

constexpr precon class_of(const char* name, precon* (*create)(), int (*setup)(precon*, smat*)) {
  return class_record(name, {.create = create,
                             .setup = setup,
                             .apply = apply,
                             .apply_trans = apply_trans,
                             .free = free_inverse});
}

int sainv_setup(precon*, smat*) {
  _norv_print_error_msg("SAINV is not available!");
  return 0;
}

int bainv_setup(precon*, smat*) {
  _norv_print_error_msg("BAINV is not available!");
  return 0;
}

}  // namespace
}  // namespace vlm::norv

int precon_spaione_setup_sparse(precon* M, smat* A) {
  return vlm::norv::spaione_setup(M, A, false);
}

int precon_spaione_setup_dense(precon* M, smat* A) { return vlm::norv::spaione_setup(M, A, true); }

precon* precon_spaione_create(void) {
  return vlm::new_precon(
      vlm::norv::class_of("SPAIONE", precon_spaione_create, precon_spaione_setup_sparse));
}

precon* precon_spaindiag_create(void) { return precon_spaindiag_create_param(1); }

precon* precon_spaindiag_create_param(int n_diag) {
  precon M = vlm::norv::class_of("SPAINDIAG", precon_spaindiag_create, vlm::norv::spaindiag_setup);
  M.iparam[0] = n_diag;
  return vlm::new_precon(M);
}

precon* precon_sainv_create(void) {
  return vlm::new_precon(vlm::norv::class_of("SAINV", precon_sainv_create, vlm::norv::sainv_setup));
}

precon* precon_bainv_create(void) {
  return vlm::new_precon(vlm::norv::class_of("BAINV", precon_bainv_create, vlm::norv::bainv_setup));
}
