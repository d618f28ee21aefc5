// SPDX-License-Identifier: BSD-3-Clause
/// Checks of a matrix's structure.  They report through the log and return 0 for a fault.
///
/// An empty row is a fault: row starts must rise strictly.

#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// Entries that were scaled by a matching may exceed 1, and fall short of it on the diagonal, by
/// what rounding adds.
constexpr double kMpsLargest = 1.001;
constexpr double kMpsSmallestDiagonal = 0.998;

template <typename T>
bool check_scaled_values(const Rows<T>& A) {
  bool ok = true;
  for (int i = 0; i < A.m; ++i) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      const double size = modulus(A.a[k]);
      const bool sound = size <= kMpsLargest && (A.ja[k] != i || size >= kMpsSmallestDiagonal);
      if (sound) continue;
      _norv_print_error_msg("MPS consistency failed for index (%d, %d, %e) of matrix...", i,
                            A.ja[k], real_part(A.a[k]));
      ok = false;
    }
  }
  return ok;
}

}  // namespace

int smat_check_ia(const smat* A) {
  bool ok = true;
  if (A->ia[0] != 0) {
    _norv_print_error_msg("ia[0] != 0");
    ok = false;
  }
  int faults = 0;
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    if (A->ia[i + 1] > A->ia[i]) continue;
    if (++faults == 1) {
      _norv_print_warn_msg("ia[%d] (%d) <= ia[%d] (%d)", i + 1, A->ia[i + 1], i, A->ia[i]);
    }
  }
  if (faults) {
    _norv_print_warn_msg("Matrix has %d non-increasing rows.", faults);
    ok = false;
  }
  if (A->ia[A->m] < 0 || static_cast<unsigned>(A->ia[A->m]) != A->nnz) {
    _norv_print_error_msg("Matrix nnz not consistent!");
    ok = false;
  }
  return ok;
}

int smat_check_ja(const smat* A) {
  int outside = 0, disorder = 0;
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const int j = A->ja[k];
      if (k > A->ia[i] && A->ja[k - 1] >= j && ++disorder == 1) {
        _norv_print_error_msg("ja[%d] (%d) >= ja[%d] (%d) in row %d", k - 1, A->ja[k - 1], k, j, i);
      }
      if ((j < 0 || static_cast<unsigned>(j) >= A->n) && ++outside == 1) {
        _norv_print_error_msg("ja[%d] out of bounds: %d (>= %d)", k, j, static_cast<int>(A->n));
      }
    }
  }
  if (outside) _norv_print_error_msg("Matrix has %d out-of-bounds elements.", outside);
  if (disorder) _norv_print_error_msg("Matrix has %d elements in wrong order.", disorder);
  return !outside && !disorder;
}

int smat_check_structural_symmetry(const smat* A) {
  int below = 0;
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      if (A->ja[k] < i && ++below == 1) {
        _norv_print_error_msg("Symmetric matrix has element (%d, %d) in lower part.", i, A->ja[k]);
      }
    }
  }
  if (below) _norv_print_error_msg("Symmetric matrix has %d elements in lower part.", below);
  return !below;
}

int smat_check_diagonal(const smat* A) {
  int missing = 0, first_missing = 0, zeros = 0, first_zero = 0;
  by_kind(A->is_complex, [&](auto zero) {
    const auto R = rows<decltype(zero)>(A);
    for (int i = 0; i < R.m; ++i) {
      int k = R.ia[i];
      while (k < R.ia[i + 1] && R.ja[k] != i) ++k;
      if (k == R.ia[i + 1]) {
        if (++missing == 1) first_missing = i;
      } else if (R.a && R.a[k] == zero && ++zeros == 1) {
        first_zero = i;
      }
    }
  });
  if (missing) {
    _norv_print_error_msg("Matrix has %d missing diagonal elements (first: %d).", missing,
                          first_missing);
  }
  if (zeros) {
    _norv_print_warn_msg("Matrix has %d zero diagonal elements (first: %d).", zeros, first_zero);
  }
  return !missing;
}

int smat_is_consistent(const smat* A) {
  if (!smat_check_ia(A)) return 0;
  bool ok = smat_check_ja(A);
  if (A->sym) {
    ok = smat_check_structural_symmetry(A) && ok;
    ok = smat_check_diagonal(A) && ok;
  }
  return ok;
}

int smat_is_mps_consistent(const smat* A) {
  if (!smat_check_ia(A) || !smat_check_ja(A)) return 0;
  return by_kind(A->is_complex,
                 [&](auto zero) { return check_scaled_values(rows<decltype(zero)>(A)); });
}

NORVMORA_SMAT_CHECK(NORVMORA_ALIAS)
