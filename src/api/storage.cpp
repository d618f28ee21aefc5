// SPDX-License-Identifier: BSD-3-Clause
/// Help for those who bring matrices of any form to the library: the type that suits a matrix, and
/// its upper triangle.
///
/// Both walk the lines once.  As entries ascend, those of line j below the diagonal are met in the
/// order of the lines i < j that mirror them: one position a line is all that is kept of a
/// transpose.
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <exception>
#include <vector>

#include "base/scalar.hpp"
#include "velmora.h"

namespace vlm {
namespace {

/// What is there of a matrix.
enum Form : int { all_entries = 0, symmetric_half = 1, hermitian_half = 2 };

/// Entries of a matrix, by rows or by columns.
template <class T>
struct Lines {
  int n;
  const int *start, *index;
  const T* value;
  int begin(int i) const { return start[i] - start[0]; }
  int end(int i) const { return start[i + 1] - start[0]; }
  int other(int p) const { return index[p] - start[0]; }
};

struct Symmetry {
  bool pattern = true, symmetric = true, hermitian = true;
};

template <class T>
Symmetry compare_with_transpose(const Lines<T>& lines, std::vector<T>& diagonal) {
  Symmetry found;
  std::vector<int> next(
      static_cast<std::size_t>(lines.n));  // first entry not met from the other side
  for (int i = 0; i < lines.n; ++i) next[i] = lines.begin(i);
  for (int i = 0; i < lines.n; ++i)
    for (int p = next[i]; p < lines.end(i); ++p) {
      const int j = lines.other(p);
      const T& value = lines.value[p];
      if (j == i) {
        diagonal[i] = value;
        continue;
      }
      const int q = j > i ? next[j]++ : 0;
      if (j < i || q >= lines.end(j) || lines.other(q) != i) return {false, false, false};
      found.symmetric = found.symmetric && lines.value[q] == value;
      found.hermitian = found.hermitian && lines.value[q] == maybe_conj<true>(value);
    }
  if constexpr (is_complex_v<T>)
    for (const T& d : diagonal) found.hermitian = found.hermitian && d.imag() == 0;
  return found;
}

/// Every |a(i,j)|^2 < a(i,i) a(j,j), of a matrix that equals its adjoint.
template <class T>
bool minors_are_positive(const Lines<T>& lines, const std::vector<T>& diagonal) {
  std::vector<double> root(diagonal.size());
  for (std::size_t i = 0; i < root.size(); ++i) {
    if (!(std::real(diagonal[i]) > 0)) return false;
    root[i] = std::sqrt(std::real(diagonal[i]));
  }
  for (int i = 0; i < lines.n; ++i)
    for (int p = lines.end(i) - 1; p >= lines.begin(i) && lines.other(p) > i; --p)
      if (!(std::abs(lines.value[p]) < root[i] * root[lines.other(p)])) return false;
  return true;
}

/// Every |a(i,i)| is at least a tenth of what stands beside it.
template <class T>
bool diagonal_is_strong(const Lines<T>& lines, const std::vector<T>& diagonal) {
  for (int i = 0; i < lines.n; ++i) {
    const double size = 10 * std::abs(diagonal[i]);
    if (!(size > 0)) return false;
    for (int p = lines.begin(i); p < lines.end(i); ++p)
      if (lines.other(p) != i && std::abs(lines.value[p]) > size) return false;
  }
  return true;
}

struct Choice {
  int mtype;
  const char* reason;
};

/// The symmetry that a half says it has.
template <class T>
Symmetry symmetry_of_half(const Lines<T>& lines, Form form, std::vector<T>& diagonal) {
  for (int i = 0; i < lines.n; ++i)
    if (const int p = lines.begin(i); p < lines.end(i) && lines.other(p) == i)
      diagonal[i] = lines.value[p];
  return {true, form == symmetric_half, form == hermitian_half || !is_complex_v<T>};
}

template <class T>
Choice choose_type(const Lines<T>& lines, Form form) {
  constexpr bool complex = is_complex_v<T>;
  std::vector<T> diagonal(static_cast<std::size_t>(lines.n), T(0));
  const Symmetry found = form == all_entries ? compare_with_transpose(lines, diagonal)
                                             : symmetry_of_half(lines, form, diagonal);
  if (!found.pattern) return {complex ? 13 : 11, "the pattern is not symmetric"};
  if (found.hermitian) {
    if (minors_are_positive(lines, diagonal))
      return {complex ? 4 : 2, "positive diagonal and 2x2 minors: Cholesky is tried first"};
    const bool zeros = std::find(diagonal.begin(), diagonal.end(), T(0)) != diagonal.end();
    if (complex)
      return {-4, zeros ? "Hermitian with zeros on the diagonal"
                        : "Hermitian, but not all 2x2 minors are positive"};
    return {-2, zeros ? "symmetric with zeros on the diagonal"
                      : "symmetric, but not all 2x2 minors are positive"};
  }
  if (found.symmetric) return {6, "complex symmetric, not Hermitian"};
  if (diagonal_is_strong(lines, diagonal))
    return {complex ? 3 : 1, "symmetric pattern with a strong diagonal"};
  return {complex ? 13 : 11, "symmetric pattern, but the diagonal is weak"};
}

template <class T>
int take_upper_triangle(const Lines<T>& lines, bool conjugated, int* ia, int* ja, T* a) {
  int count = 0;
  for (int i = 0; i < lines.n; ++i) {
    if (ia != nullptr) ia[i] = count + 1;
    int p = lines.begin(i);
    while (p < lines.end(i) && lines.other(p) < i) ++p;
    if (p == lines.end(i) || lines.other(p) != i) {
      if (ja != nullptr) ja[count] = i + 1;
      a[count++] = T(0);
    }
    for (; p < lines.end(i); ++p, ++count) {
      if (ja != nullptr) ja[count] = lines.other(p) + 1;
      a[count] = conjugated ? maybe_conj<true>(lines.value[p]) : lines.value[p];
    }
  }
  if (ia != nullptr) ia[lines.n] = count + 1;
  return count;
}

}  // namespace
}  // namespace vlm

extern "C" {

int velmora_find_type(int n, int is_complex, int form, const int* start, const int* index,
                      const double* value, const char** reason) try {
  const auto choose = [&](const auto* values) {
    return vlm::choose_type(vlm::Lines<std::decay_t<decltype(*values)>>{n, start, index, values},
                            static_cast<vlm::Form>(form));
  };
  const vlm::Choice found =
      is_complex != 0 ? choose(reinterpret_cast<const vlm::zcomplex*>(value)) : choose(value);
  if (reason != nullptr) *reason = found.reason;
  return found.mtype;
} catch (const std::exception&) {
  return 0;
}

int velmora_upper_triangle(int n, int is_complex, int conjugated, const int* start,
                           const int* index, const double* value, int* ia, int* ja, double* a) {
  using vlm::zcomplex;
  if (is_complex == 0)
    return vlm::take_upper_triangle<double>({n, start, index, value}, false, ia, ja, a);
  return vlm::take_upper_triangle<zcomplex>(
      {n, start, index, reinterpret_cast<const zcomplex*>(value)}, conjugated != 0, ia, ja,
      reinterpret_cast<zcomplex*>(a));
}

}  // extern "C"
