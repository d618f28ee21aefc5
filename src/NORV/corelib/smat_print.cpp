// SPDX-License-Identifier: BSD-3-Clause
/// Printing of matrices through the log, at statistics level.

#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

void add_value(MessageText& text, double v) { text.add(" %15.8e", v); }
void add_value(MessageText& text, zcomplex v) { text.add(" (%15.8e, %15.8e)", v.real(), v.imag()); }

const char* symmetry(const smat* A) { return A->sym ? "symmetric" : "non-symmetric"; }

/// One line "name = { v0, v1, ... }" of integers or doubles.
template <typename T>
void print_array(const char* name, const T* v, std::size_t count) {
  MessageText text;
  text.add("%s = {", name);
  for (std::size_t k = 0; k < count; ++k) {
    const char* comma = k ? "," : "";
    if constexpr (std::is_same_v<T, int>) {
      text.add("%s %d", comma, v[k]);
    } else {
      text.add("%s %.17g", comma, v[k]);
    }
  }
  text.add(" };");
  _norv_print_stat_msg("%s", text.c_str());
}

}  // namespace

void smat_print_named(const smat* A, const char* name) {
  _norv_print_stat_msg("%s: %d x %d, nnz %d, %s", name, static_cast<int>(A->m),
                       static_cast<int>(A->n), static_cast<int>(A->nnz), symmetry(A));
  by_kind(A->is_complex, [&](auto zero) {
    const auto R = rows<decltype(zero)>(A);
    for (int i = 0; i < R.m; ++i) {
      MessageText text;
      text.add("row %d:", i);
      for (int k = R.ia[i]; k < R.ia[i + 1]; ++k) {
        text.add("  %d:", R.ja[k]);
        add_value(text, R.a[k]);
      }
      _norv_print_stat_msg("%s", text.c_str());
    }
  });
}

void smat_print(const smat* A) { smat_print_named(A, "Matrix"); }

void smat_print_structure(const smat* A) {
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    MessageText text;
    text.add("%4d: ", i);
    int j = 0;
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      for (; j < A->ja[k]; ++j) text.add(".");
      text.add("*");
      j = A->ja[k] + 1;
    }
    for (; j < static_cast<int>(A->n); ++j) text.add(".");
    _norv_print_stat_msg("%s", text.c_str());
  }
}

void smat_print_raw(const smat* A) {
  _norv_print_stat_msg("*A     = { %d, %d, %d, %s };", static_cast<int>(A->m),
                       static_cast<int>(A->n), static_cast<int>(A->nnz), symmetry(A));
  print_array("A->ia ", A->ia, std::size_t{A->m} + 1);
  print_array("A->ja ", A->ja, A->nnz);
  if (A->a) print_array("A->a  ", A->a, std::size_t{A->nnz} << A->is_complex);
}

void print_residual(const smat* A, const vec* x, const vec* b) {
  vec* r = smat_calc_residual(nullptr, A, x, b);
  const double norm_b = vec_euclid_norm(b), norm_r = vec_euclid_norm(r);
  _norv_print_stat_msg("Residual:  %e,  relative:  %e", norm_r,
                       norm_b > 0.0 ? norm_r / norm_b : norm_r);
  vec_release(r);
}

NORVMORA_SMAT_PRINT(NORVMORA_ALIAS)
