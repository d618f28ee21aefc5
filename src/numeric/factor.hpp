// SPDX-License-Identifier: BSD-3-Clause
/// The numeric factor: where its parts lie in FACT_L&U, and views of one panel.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/scalar.hpp"
#include "kernels/choice.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

/// The parts of a factor in its block: L panels, U rectangles, pivot records.
template <class T>
struct FactorStore {
  T* lnz = nullptr;
  T* unz = nullptr;        ///< empty for symmetric storage
  View<int> pivot;         ///< [n] interchanges inside the diagonal blocks, local, 1-based
  View<int> column_pivot;  ///< [n] column interchanges; LU only
};

inline std::size_t align_up(std::size_t bytes) { return (bytes + 63) / 64 * 64; }

template <class T>
FactorStore<T> factor_store(const Structure& structure, void* block) {
  char* p = static_cast<char*>(block);
  FactorStore<T> store;
  const std::size_t n = static_cast<std::size_t>(structure.n);
  store.lnz = reinterpret_cast<T*>(p);
  p += align_up(static_cast<std::size_t>(structure.len_lnz) * sizeof(T));
  store.unz = reinterpret_cast<T*>(p);
  p += align_up(static_cast<std::size_t>(structure.len_unz) * sizeof(T));
  store.pivot = {reinterpret_cast<int*>(p), n};
  store.column_pivot = {reinterpret_cast<int*>(p) + n, n};
  return store;
}

template <class T>
std::size_t factor_store_bytes(const Structure& structure) {
  return align_up(static_cast<std::size_t>(structure.len_lnz) * sizeof(T)) +
         align_up(static_cast<std::size_t>(structure.len_unz) * sizeof(T)) +
         2 * static_cast<std::size_t>(structure.n) * sizeof(int);
}

/// One panel: `rows` by `width` values, leading dimension `rows`, diagonal block on top.
template <class T>
struct Panel {
  int first = 0;  ///< first column
  int width = 0, rows = 0;
  const int* row = nullptr;  ///< [rows] row list, the panel's own columns first
  T* l = nullptr;            ///< L panel
  T* u = nullptr;            ///< U rectangle, transposed: below() by width
  int* pivot = nullptr;      ///< [width]
  int* column_pivot = nullptr;
  int below() const { return rows - width; }
  T* l21() const { return l + width; }
};

template <class T>
Panel<T> panel_of(const Structure& st, const FactorStore<T>& store, int s) {
  Panel<T> p;
  p.first = st.xsuper(s);
  p.width = st.xsuper(s + 1) - p.first;
  p.rows = st.xlindx(s + 1) - st.xlindx(s);
  p.row = st.lindx.at(st.xlindx(s));
  p.l = store.lnz + (st.xlnz(s) - 1);
  p.u = store.unz + (st.xunz(s) - 1);
  p.pivot = store.pivot.at(p.first);
  p.column_pivot = store.column_pivot.at(p.first);
  return p;
}

}  // namespace vlm
