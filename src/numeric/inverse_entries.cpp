// SPDX-License-Identifier: BSD-3-Clause
/// Reading of a selected inverse, see inverse_entries.hpp.
///
/// With M = P R A C the factored matrix and Z its inverse, inv(A)(i,j) = c(i) Z(i, k) r(j), k the
/// place that row j takes.
#include "numeric/inverse_entries.hpp"

#include <algorithm>
#include <utility>

#include "numeric/factor.hpp"

namespace vlm {
namespace {

/// Fewer entries than these are not worth a thread.
constexpr int worth_a_thread = 20000;

/// Place of row i in the list of the panel that column j belongs to, i >= j, from 0; -1: none.
int place_in_panel(const Structure& st, int i, int j) {
  const int s = st.snode(j);
  if (i < st.xsuper(s + 1)) return i - st.xsuper(s);
  const int* const list = st.lindx.at(st.xlindx(s));
  const int* const end = st.lindx.at(st.xlindx(s + 1));
  const int* const found = std::lower_bound(list + (st.xsuper(s + 1) - st.xsuper(s)), end, i);
  return found != end && *found == i ? static_cast<int>(found - list) : -1;
}

/// Entry (x,y) of Z, which lies in the factor's pattern.
template <class T, bool symmetric, bool hermitian>
T entry_of(const Structure& st, const FactorStore<T>& store, int x, int y, int place) {
  const int column = std::min(x, y);
  const Panel<T> p = panel_of(st, store, st.snode(column));
  const std::ptrdiff_t k = column - p.first;
  if (symmetric) {
    const T z = p.l[place + k * p.rows];
    return x < y ? maybe_conj<hermitian>(z) : z;
  }
  if (place < p.width) return p.l[(x - p.first) + std::ptrdiff_t{y - p.first} * p.rows];
  return x > y ? p.l[place + k * p.rows] : p.u[(place - p.width) + k * p.below()];
}

/// Factor of an entry at (i,j) of A.
struct Scaling {
  int n;
  const double* scale;  ///< [2n], null: none
  double operator()(int i, int j) const {
    return scale == nullptr ? 1.0 : scale[i - 1] * scale[n + j - 1];
  }
};

template <class T, bool symmetric, bool hermitian>
void read_with(const InverseOptions& options, const Structure& st, const InputMatrix& pattern,
               const Matching& matching, const Vector<int>& columns, const void* lu, double* a) {
  const FactorStore<T> store = factor_store<T>(st, const_cast<void*>(lu));
  const View<const int> column(columns);
  const Scaling scaling{st.n, matching.scale};
  const auto read_row = [&](int i) {
    const int x = st.invp(i);
    for (int p = pattern.ia[i - 1]; p < pattern.ia[i]; ++p) {
      const int j = pattern.ja[p - 1], y = column(j);
      const int place = place_in_panel(st, std::max(x, y), std::min(x, y));
      if (place < 0) continue;
      const T z = entry_of<T, symmetric, hermitian>(st, store, x, y, place);
      put_value(a, p - 1, static_cast<Wide<T>>(z) * scaling(i, j));
    }
  };
  const int threads = std::min(options.threads, 1 + pattern.nnz() / worth_a_thread);
  if (threads <= 1) {
    for (int i = 1; i <= st.n; ++i) read_row(i);
    return;
  }
#pragma omp parallel for schedule(dynamic, 1000) num_threads(threads)
  for (int i = 1; i <= st.n; ++i) read_row(i);
}

}  // namespace

Vector<int> inverse_columns(const Structure& st, const Matching& matching) {
  Vector<int> out(st.invp.begin(), st.invp.end());
  if (matching.perm == nullptr) return out;
  for (int node = 1; node <= st.n; ++node)
    out[static_cast<std::size_t>(matching.perm[node - 1] - 1)] = st.invp(node);
  return out;
}

Vector<OutsideEntry> outside_entries(const Structure& st, const InputMatrix& pattern,
                                     const Matching& matching, const Vector<int>& columns) {
  Vector<OutsideEntry> out;
  if (matching.perm == nullptr) return out;
  const View<const int> column(columns);
  for (int i = 1; i <= st.n; ++i) {
    const int x = st.invp(i);
    for (int p = pattern.ia[i - 1]; p < pattern.ia[i]; ++p) {
      const int y = column(pattern.ja[p - 1]);
      if (place_in_panel(st, std::max(x, y), std::min(x, y)) < 0) out.push_back({x, y, p});
    }
  }
  std::ranges::sort(out, [](const OutsideEntry& s, const OutsideEntry& t) {
    return std::pair(s.column, s.row) < std::pair(t.column, t.row);
  });
  return out;
}

void read_inverse(const InverseOptions& options, const Structure& structure,
                  const InputMatrix& pattern, const Matching& matching, const Vector<int>& columns,
                  const void* lu, double* a) {
  const MatrixType& type = options.type;
  auto* read = &read_with<double, false, false>;
  if (type.complex)
    read = type.hermitian   ? &read_with<zcomplex, true, true>
           : type.symmetric ? &read_with<zcomplex, true, false>
                            : &read_with<zcomplex, false, false>;
  else if (type.symmetric)
    read = options.single ? &read_with<float, true, false> : &read_with<double, true, false>;
  else if (options.single)
    read = &read_with<float, false, false>;
  read(options, structure, pattern, matching, columns, lu, a);
}

void put_outside_entries(const InverseOptions& options, const Structure& structure,
                         const InputMatrix& pattern, const Matching& matching,
                         const Vector<OutsideEntry>& outside, const double* values, double* a) {
  const Scaling scaling{structure.n, matching.scale};
  const std::ptrdiff_t parts = options.type.nvals();
  for (std::size_t k = 0; k < outside.size(); ++k) {
    const int p = outside[k].place;
    const auto i = std::upper_bound(pattern.ia, pattern.ia + pattern.n + 1, p) - pattern.ia;
    const double scale = scaling(static_cast<int>(i), pattern.ja[p - 1]);
    for (std::ptrdiff_t part = 0; part < parts; ++part)
      a[(p - 1) * parts + part] = values[static_cast<std::ptrdiff_t>(k) * parts + part] * scale;
  }
}

}  // namespace vlm
