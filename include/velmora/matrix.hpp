// SPDX-License-Identifier: BSD-3-Clause
/// Matrices as programs have them: three arrays, compressed by rows or by columns, counted from 0
/// or 1 with integers of any width.  view_of() finds the arrays in an object.
#ifndef VELMORA_MATRIX_HPP
#define VELMORA_MATRIX_HPP

#include <complex>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "velmora/error.hpp"

namespace velm {

/// A contiguous array that belongs to someone else; any container with data() and size() turns
/// into one.
template <class T>
class Span {
 public:
  Span() = default;
  Span(T* data, std::size_t size) : data_(data), size_(size) {}
  template <class Container, class = std::enable_if_t<std::is_convertible_v<
                                 decltype(std::declval<Container&>().data()), T*>>>
  Span(Container&& container) : data_(container.data()), size_(container.size()) {}

  T* data() const { return data_; }
  std::size_t size() const { return size_; }
  T& operator[](std::size_t k) const { return data_[k]; }
  T* begin() const { return data_; }
  T* end() const { return data_ + size_; }

 private:
  T* data_ = nullptr;
  std::size_t size_ = 0;
};

/// What an entry of `start` begins.
enum class Layout { rows, columns };

/// A square matrix in three arrays of the caller's.  Whether indices count from 0 or 1 is told by
/// start[0].  Lines may be unsorted; entries that share a place are summed.
template <class T, class Index>
struct MatrixView {
  int n = 0;
  const Index* start = nullptr;  ///< [n+1] first entry of each line
  const Index* index = nullptr;  ///< the other index of each entry
  const T* value = nullptr;
  Layout layout = Layout::rows;

  std::size_t entries() const { return static_cast<std::size_t>(start[n] - start[0]); }
};

/// A matrix that owns its arrays, counted from 0, sorted: what the solver hands out.
template <class T>
struct Compressed {
  int n = 0;
  std::vector<int> start, index;
  std::vector<T> value;
  Layout layout = Layout::rows;
};

namespace detail {

template <class T>
T* pointer_to(T* array) {
  return array;
}
template <class Array>
auto pointer_to(const Array& array) -> decltype(array.data()) {
  return array.data();
}

template <class Start, class Index, class Value>
auto make_view(std::size_t n, const Start* start, const Index* index, const Value* value,
               Layout layout) {
  static_assert(std::is_integral_v<Start> && std::is_same_v<Start, Index>,
                "starts and indices are integers of one type");
  if (n > static_cast<std::size_t>(INT32_MAX)) refuse("the matrix has more than 2^31 - 1 rows");
  return MatrixView<Value, Index>{static_cast<int>(n), start, index, value, layout};
}

template <class...>
struct Void {
  using type = void;
};
template <class... Types>
using void_of = typename Void<Types...>::type;

/// The arrays of a class, by the names under which it offers them; one form a specialisation.
template <class Matrix, class = void>
struct Arrays {
  static constexpr bool known = false;
};
template <class T>
struct Arrays<Compressed<T>> {
  static constexpr bool known = true;
  static auto view(const Compressed<T>& m) {
    return make_view(static_cast<std::size_t>(m.n), m.start.data(), m.index.data(), m.value.data(),
                     m.layout);
  }
};
template <class T, class I>
struct Arrays<MatrixView<T, I>> {
  static constexpr bool known = true;
  static auto view(const MatrixView<T, I>& m) { return m; }
};
/// outerIndexPtr(), innerIndexPtr(), valuePtr(), rows(), cols(), isCompressed(), IsRowMajor.
template <class Matrix>
struct Arrays<Matrix, void_of<decltype(std::declval<const Matrix&>().outerIndexPtr())>> {
  static constexpr bool known = true;
  static auto view(const Matrix& m) {
    if (m.rows() != m.cols()) refuse("the matrix is not square");
    if (!m.isCompressed()) refuse("the matrix has gaps between its lines: compress it first");
    return make_view(static_cast<std::size_t>(m.rows()), m.outerIndexPtr(), m.innerIndexPtr(),
                     m.valuePtr(), Matrix::IsRowMajor ? Layout::rows : Layout::columns);
  }
};
/// col_ptrs, row_indices, values, n_rows, n_cols.
template <class Matrix>
struct Arrays<Matrix, void_of<decltype(std::declval<const Matrix&>().row_indices)>> {
  static constexpr bool known = true;
  static auto view(const Matrix& m) {
    if (m.n_rows != m.n_cols) refuse("the matrix is not square");
    return make_view(static_cast<std::size_t>(m.n_rows), pointer_to(m.col_ptrs),
                     pointer_to(m.row_indices), pointer_to(m.values), Layout::columns);
  }
};
/// get_const_row_ptrs(), get_const_col_idxs(), get_const_values(), get_size()[2].
template <class Matrix>
struct Arrays<Matrix, void_of<decltype(std::declval<const Matrix&>().get_const_row_ptrs())>> {
  static constexpr bool known = true;
  static auto view(const Matrix& m) {
    if (m.get_size()[0] != m.get_size()[1]) refuse("the matrix is not square");
    return make_view(static_cast<std::size_t>(m.get_size()[0]), m.get_const_row_ptrs(),
                     m.get_const_col_idxs(), m.get_const_values(), Layout::rows);
  }
};
/// ptr, col, val, nrows, ncols.
template <class Matrix>
struct Arrays<Matrix, void_of<decltype(std::declval<const Matrix&>().ptr),
                              decltype(std::declval<const Matrix&>().col)>> {
  static constexpr bool known = true;
  static auto view(const Matrix& m) {
    if (m.nrows != m.ncols) refuse("the matrix is not square");
    return make_view(static_cast<std::size_t>(m.nrows), pointer_to(m.ptr), pointer_to(m.col),
                     pointer_to(m.val), Layout::rows);
  }
};

template <class Start, class Index, class Value>
auto checked_view(const Start& start, const Index& index, const Value& value, Layout layout) {
  if (start.size() == 0) refuse("the array of starts is empty: it has n + 1 entries");
  const std::size_t n = start.size() - 1;
  const auto first = start.data()[0], last = start.data()[n];
  if (last < first || index.size() < static_cast<std::size_t>(last - first) ||
      value.size() < static_cast<std::size_t>(last - first))
    refuse("the arrays of indices and values are shorter than the last start says");
  return make_view(n, start.data(), index.data(), value.data(), layout);
}

}  // namespace detail

/// Compressed rows in three containers with data() and size().
template <class Start, class Index, class Value>
auto rows(const Start& start, const Index& index, const Value& value) {
  return detail::checked_view(start, index, value, Layout::rows);
}

/// Compressed columns, likewise.
template <class Start, class Index, class Value>
auto columns(const Start& start, const Index& index, const Value& value) {
  return detail::checked_view(start, index, value, Layout::columns);
}

/// The arrays of an object.  Known are: MatrixView, Compressed, and classes that offer them as
/// outerIndexPtr(), as col_ptrs and row_indices, as get_const_row_ptrs(), or as ptr, col and val.
/// For another class, overload view_of() in its namespace.
template <class Matrix, class = std::enable_if_t<detail::Arrays<Matrix>::known>>
auto view_of(const Matrix& matrix) {
  return detail::Arrays<Matrix>::view(matrix);
}

namespace detail {

template <class T>
struct Scalar {
  static constexpr bool complex = false;
  using Stored = double;  ///< what the library reads
};
template <class R>
struct Scalar<std::complex<R>> {
  static constexpr bool complex = true;
  using Stored = std::complex<double>;
};

template <class T>
T conjugate(const T& value) {
  if constexpr (Scalar<T>::complex) return std::conj(value);
  return value;
}

}  // namespace detail
}  // namespace velm

#endif
