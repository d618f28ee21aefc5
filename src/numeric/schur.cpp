// SPDX-License-Identifier: BSD-3-Clause
/// Schur complement.
///
/// A factorization with a Schur part loads and updates the trailing panels but does not
/// eliminate them: they are left holding A22 - A21 A11^-1 A12, of symmetric storage the lower
/// triangle, each column from its diagonal down.  Matchings and scalings leave the trailing rows
/// and columns alone, so that these are the values of the caller's matrix.
#include "numeric/schur.hpp"

#include <algorithm>

#include "numeric/factor.hpp"

namespace vlm {
namespace {

/// First panel of the Schur part; no panel crosses its start.
int first_schur_panel(const Structure& st, int schur) { return st.snode(st.n - schur + 1); }

template <class T>
T without_imaginary(T x) {
  if constexpr (is_complex_v<T>)
    return std::real(x);
  else
    return x;
}

/// The columns of the lower triangle, from the diagonal down, are the rows of the upper one.
template <class T>
void copy_triangle(const Structure& st, const SchurOptions& options, const void* lu, double* s,
                   int* is, int* js) {
  const FactorStore<T> store = factor_store<T>(st, const_cast<void*>(lu));
  const int leading = st.n - options.schur;
  std::ptrdiff_t t = 0;
  *is++ = 1;
  for (int k = first_schur_panel(st, options.schur); k <= st.nsuper; ++k) {
    const Panel<T> panel = panel_of(st, store, k);
    for (int c = 0; c < panel.width; ++c) {
      const T* column = panel.l + static_cast<std::ptrdiff_t>(c) * panel.rows;
      for (int r = c; r < panel.rows; ++r, ++t) {
        auto v = static_cast<Wide<T>>(column[r]);
        if (options.hermitian) v = r == c ? without_imaginary(v) : maybe_conj<true>(v);
        put_value(s, t, v);
        js[t] = panel.row[r] - leading;
      }
      *is++ = static_cast<int>(t + 1);
    }
  }
}

/// Calls visit(row, column, value) for the entries of full storage, a panel's before those of the
/// next: the columns of each row ascend.
template <class T, class Visit>
void visit_full(const Structure& st, int schur, const FactorStore<T>& store, Visit visit) {
  for (int k = first_schur_panel(st, schur); k <= st.nsuper; ++k) {
    const Panel<T> p = panel_of(st, store, k);
    for (int r = 0; r < p.rows; ++r)
      for (int c = 0; c < p.width; ++c)
        visit(p.row[r], p.row[c], p.l[r + static_cast<std::ptrdiff_t>(c) * p.rows]);
    for (int r = 0; r < p.width; ++r)
      for (int c = 0; c < p.below(); ++c)
        visit(p.row[r], p.row[p.width + c], p.u[c + static_cast<std::ptrdiff_t>(r) * p.below()]);
  }
}

template <class T>
void copy_full(const Structure& st, const SchurOptions& options, const void* lu, double* s, int* is,
               int* js) {
  const FactorStore<T> store = factor_store<T>(st, const_cast<void*>(lu));
  const int schur = options.schur, leading = st.n - schur;
  std::fill_n(is, schur + 1, 0);
  visit_full<T>(st, schur, store, [&](int row, int, T) { ++is[row - leading]; });
  is[0] = 1;
  for (int r = 1; r <= schur; ++r) is[r] += is[r - 1];
  // is[r] moves from the start of row r to its end, which is the start of the next one.
  visit_full<T>(st, schur, store, [&](int row, int column, T v) {
    const int t = is[row - leading - 1]++;
    put_value(s, t - 1, static_cast<Wide<T>>(v));
    js[t - 1] = column - leading;
  });
  std::copy_backward(is, is + schur, is + schur + 1);
  is[0] = 1;
}

template <class T>
void copy_complement(const Structure& st, const SchurOptions& options, const void* lu, double* s,
                     int* is, int* js) {
  if (options.symmetric)
    copy_triangle<T>(st, options, lu, s, is, js);
  else
    copy_full<T>(st, options, lu, s, is, js);
}

}  // namespace

std::int64_t schur_entries(const Structure& st, const SchurOptions& options) {
  std::int64_t count = 0;
  if (options.schur < 1) return count;
  for (int k = first_schur_panel(st, options.schur); k <= st.nsuper; ++k) {
    const std::int64_t width = st.xsuper(k + 1) - st.xsuper(k);
    const std::int64_t rows = st.xlindx(k + 1) - st.xlindx(k);
    count += options.symmetric ? width * rows - width * (width - 1) / 2
                               : width * rows + width * (rows - width);
  }
  return count;
}

void velmora_fact_schur(const Structure& structure, const SchurOptions& options, const void* lu,
                        double* s, int* is, int* js) {
  if (options.complex)
    copy_complement<zcomplex>(structure, options, lu, s, is, js);
  else if (options.single)
    copy_complement<float>(structure, options, lu, s, is, js);
  else
    copy_complement<double>(structure, options, lu, s, is, js);
}

}  // namespace vlm
