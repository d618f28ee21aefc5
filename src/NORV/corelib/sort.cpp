// SPDX-License-Identifier: BSD-3-Clause
/// Sorting of numbers and rows, and splitting off the largest entries of a row.
///
/// Quicksort with the median of three (Singleton, Algorithm 347, 1969; Sedgewick, Implementing
/// Quicksort programs, 1978): pieces of fewer than 40 elements are left to one insertion pass at
/// the end.  A split follows the one piece that holds the bound (Hoare, Algorithm 65: Find, 1961).
/// Where the medians don't cut, which takes a contrived order, the pivot of the next cut is drawn
/// from the middle of a shuffled sample, so that no row costs the square of its length.
#include <algorithm>
#include <utility>

#include "NORV/corelib/base.hpp"

using vlm::by_kind;
using vlm::values_as;

namespace {

/// Pieces shorter than this are sorted by insertion, and split by it below the second length.
constexpr int insertion_length = 40, split_insertion_length = 16;

/// Keys with what moves along: `before` is the wanted order of two elements.
struct Integers {
  int* v;
  using Element = int;
  Element get(int i) const { return v[i]; }
  void set(int i, const Element& e) const { v[i] = e; }
  static bool before(const Element& a, const Element& b) { return a < b; }
};
struct Reals {
  double* v;
  using Element = double;
  Element get(int i) const { return v[i]; }
  void set(int i, const Element& e) const { v[i] = e; }
  static bool before(const Element& a, const Element& b) { return a < b; }
};
/// A row by rising column; without values where they are null.
template <class T>
struct ByColumn {
  T* v;
  int* column;
  struct Element {
    int column;
    T value;
  };
  Element get(int i) const { return {column[i], v ? v[i] : T{}}; }
  void set(int i, const Element& e) const {
    column[i] = e.column;
    if (v) v[i] = e.value;
  }
  static bool before(const Element& a, const Element& b) { return a.column < b.column; }
};
/// A row of a factor by falling magnitude; squares of moduli order as the moduli do.
template <class T>
struct ByMagnitude {
  T* v;
  int* index;
  struct Element {
    double key;
    int index;
    T value;
  };
  Element get(int i) const { return {std::abs(v[i]), index[i], v[i]}; }
  void set(int i, const Element& e) const {
    index[i] = e.index;
    v[i] = e.value;
  }
  static bool before(const Element& a, const Element& b) { return a.key > b.key; }
};

template <class Row>
void insertion_sort(const Row& row, int first, int last) {
  for (int k = first + 1; k <= last; ++k) {
    const auto moved = row.get(k);
    int at = k;
    for (; at > first && Row::before(moved, row.get(at - 1)); --at) row.set(at, row.get(at - 1));
    row.set(at, moved);
  }
}

template <class Row>
void exchange(const Row& row, int i, int j) {
  const auto a = row.get(i), b = row.get(j);
  row.set(i, b);
  row.set(j, a);
}

/// Cuts first..last, three or more elements: up to `left` none stands after the pivot, from
/// `right` on none before it.
struct Cut {
  int left, right;
};
template <class Row>
Cut partition(const Row& row, int first, int last, int middle) {
  if (Row::before(row.get(middle), row.get(first))) exchange(row, first, middle);
  if (Row::before(row.get(last), row.get(middle))) {
    exchange(row, middle, last);
    if (Row::before(row.get(middle), row.get(first))) exchange(row, first, middle);
  }
  const auto pivot = row.get(middle);
  int i = first, j = last;
  while (i <= j) {
    // The bounds matter for keys that are no numbers, which stand before nothing.
    while (i < last && Row::before(row.get(i), pivot)) ++i;
    while (j > first && Row::before(pivot, row.get(j))) --j;
    if (i <= j) exchange(row, i++, j--);
  }
  return {j, i};
}

/// Where to take the pivot of the next cut from: the middle, or elsewhere after a bad cut.
class Middle {
 public:
  int operator()(int first, int last) {
    const int length = last - first + 1;
    if (!bad_) return first + length / 2;
    state_ = state_ * 1664525u + 1013904223u;  // a generator of Numerical Recipes
    return first + static_cast<int>((static_cast<std::uint64_t>(state_) * length) >> 32);
  }
  void learn(int length, int larger_piece) { bad_ = larger_piece > length - length / 8; }

 private:
  std::uint32_t state_ = 12345;
  bool bad_ = false;
};

template <class Row>
void sort(const Row& row, int n) {
  struct Piece {
    int first, last;
  } stack[32];  // the larger pieces wait, so their number is at most log2 n
  int waiting = 0;
  Middle middle;
  Piece piece{0, n - 1};
  for (;;) {
    const int length = piece.last - piece.first + 1;
    if (length >= insertion_length) {
      const Cut cut = partition(row, piece.first, piece.last, middle(piece.first, piece.last));
      Piece smaller{piece.first, cut.left}, larger{cut.right, piece.last};
      if (smaller.last - smaller.first > larger.last - larger.first) std::swap(smaller, larger);
      middle.learn(length, larger.last - larger.first + 1);
      stack[waiting++] = larger;
      piece = smaller;
    } else if (waiting > 0) {
      piece = stack[--waiting];
    } else {
      break;
    }
  }
  insertion_sort(row, 0, n - 1);
}

/// Brings the k elements that come first in the order to the front.
template <class Row>
void split(const Row& row, int n, int k) {
  if (n < split_insertion_length) return insertion_sort(row, 0, n - 1);
  if (k <= 0 || k >= n) return;
  Middle middle;
  int first = 0, last = n - 1;
  while (last - first >= 2) {
    const Cut cut = partition(row, first, last, middle(first, last));
    const int length = last - first + 1;
    if (k - 1 <= cut.left)
      last = cut.left;
    else if (k - 1 >= cut.right)
      first = cut.right;
    else
      return;
    middle.learn(length, last - first + 1);
  }
  insertion_sort(row, first, last);
}

}  // namespace

void sort_row_insert(int n, int is_complex, double* values, int* columns) {
  by_kind(is_complex, [&](auto kind) {
    using T = decltype(kind);
    insertion_sort(ByColumn<T>{values_as<T>(values), columns}, 0, n - 1);
  });
}

void sort_row_qs(int n, int is_complex, double* values, int* columns) {
  by_kind(is_complex, [&](auto kind) {
    using T = decltype(kind);
    sort(ByColumn<T>{values_as<T>(values), columns}, n);
  });
}

void sort_int_array(int n, int* v) { sort(Integers{v}, n); }

void qsort_int(int n, int* v) { sort(Integers{v}, n); }

void isort_int(int n, int* v) { insertion_sort(Integers{v}, 0, n - 1); }

void qsort_real(int n, double* v) { sort(Reals{v}, n); }

void sort_factor_row_by_abs_value(int n, int is_complex, double* values, int* indices) {
  by_kind(is_complex, [&](auto kind) {
    using T = decltype(kind);
    sort(ByMagnitude<T>{values_as<T>(values), indices}, n);
  });
}

void split_factor_row_by_abs_value(int n, int is_complex, double* values, int* indices, int k) {
  by_kind(is_complex, [&](auto kind) {
    using T = decltype(kind);
    split(ByMagnitude<T>{values_as<T>(values), indices}, n, k);
  });
}
