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
#include <memory>

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
  int base = start[0];  // by value, as the compiler must think that loops write to start
  int begin(int i) const { return start[i] - base; }
  int end(int i) const { return start[i + 1] - base; }
  int other(int p) const { return index[p] - base; }
};

struct Symmetry {
  bool pattern = true, symmetric = true, hermitian = true;
  bool minors = true;  ///< where Hermitian: every 0 < a(i,i), |a(i,j)|^2 < a(i,i) a(j,j)
  bool zeros = false;  ///< on the diagonal, or entries of it that are not there
};

/// Tests |a(i,j)|^2 < a(i,i) a(j,j), once the diagonal of both lines has been told.
template <class T>
class Minors {
 public:
  explicit Minors(int n) : root_(new double[static_cast<std::size_t>(n)]) {}
  /// @return a(i,i) is positive
  bool set_diagonal(int i, const T& value) {
    const double d = std::real(value);
    root_[i] = d > 0 ? std::sqrt(d) : 0;  // roots, as a product might overflow
    return d > 0;
  }
  bool positive(int i, int j, const T& value) const {
    return std::abs(value) < root_[i] * root_[j];
  }

 private:
  std::unique_ptr<double[]> root_;
};

/// One pass.  The entries of a line before its diagonal have been met from the other side.
template <class T>
Symmetry compare_with_transpose(const Lines<T>& lines) {
  Symmetry found;
  Minors<T> minors(lines.n);
  // First entry of each line not met from the other side.
  const std::unique_ptr<int[]> next(new int[static_cast<std::size_t>(lines.n)]);
  for (int i = 0; i < lines.n; ++i) next[i] = lines.begin(i);
  for (int i = 0; i < lines.n; ++i) {
    const int end = lines.end(i);
    int p = next[i];
    T diagonal(0);
    if (p < end && lines.other(p) == i) diagonal = lines.value[p++];
    found.zeros = found.zeros || diagonal == T(0);
    if constexpr (is_complex_v<T>) found.hermitian = found.hermitian && diagonal.imag() == 0;
    found.minors = found.minors && found.hermitian && minors.set_diagonal(i, diagonal);
    for (int q = lines.begin(i); found.minors && q < next[i]; ++q)
      found.minors = minors.positive(i, lines.other(q), lines.value[q]);
    for (; p < end; ++p) {
      const int j = lines.other(p);
      if (j <= i) return {false, false, false};
      const T& value = lines.value[p];
      const int q = next[j]++;
      if (q >= lines.end(j) || lines.other(q) != i) return {false, false, false};
      found.symmetric = found.symmetric && lines.value[q] == value;
      found.hermitian = found.hermitian && lines.value[q] == maybe_conj<true>(value);
    }
  }
  return found;
}

/// Every |a(i,i)| is at least a tenth of what stands beside it.
template <class T>
bool diagonal_is_strong(const Lines<T>& lines) {
  for (int i = 0; i < lines.n; ++i) {
    double diagonal = 0, largest = 0;
    for (int p = lines.begin(i); p < lines.end(i); ++p) {
      double& size = lines.other(p) == i ? diagonal : largest;
      size = std::max(size, std::abs(lines.value[p]));
    }
    if (!(diagonal > 0) || largest > 10 * diagonal) return false;
  }
  return true;
}

struct Choice {
  int mtype;
  const char* reason;
};

/// The symmetry that a half says it has.
template <class T>
Symmetry examine_half(const Lines<T>& lines, Form form) {
  Symmetry found;
  found.symmetric = form == symmetric_half;
  found.hermitian = form == hermitian_half || !is_complex_v<T>;
  Minors<T> minors(lines.n);
  for (int i = 0; i < lines.n; ++i) {
    const int p = lines.begin(i);
    const T diagonal = p < lines.end(i) && lines.other(p) == i ? lines.value[p] : T(0);
    found.zeros = found.zeros || diagonal == T(0);
    found.minors = minors.set_diagonal(i, diagonal) && found.minors;
  }
  for (int i = 0; i < lines.n; ++i)
    for (int p = lines.begin(i); found.minors && p < lines.end(i); ++p)
      found.minors = lines.other(p) == i || minors.positive(i, lines.other(p), lines.value[p]);
  return found;
}

template <class T>
Choice choose_type(const Lines<T>& lines, Form form) {
  constexpr bool complex = is_complex_v<T>;
  const Symmetry found =
      form == all_entries ? compare_with_transpose(lines) : examine_half(lines, form);
  if (!found.pattern) return {complex ? 13 : 11, "the pattern is not symmetric"};
  if (found.hermitian) {
    if (found.minors)
      return {complex ? 4 : 2, "positive diagonal and 2x2 minors: Cholesky is tried first"};
    if (complex)
      return {-4, found.zeros ? "Hermitian with zeros on the diagonal"
                              : "Hermitian, but not all 2x2 minors are positive"};
    return {-2, found.zeros ? "symmetric with zeros on the diagonal"
                            : "symmetric, but not all 2x2 minors are positive"};
  }
  if (found.symmetric) return {6, "complex symmetric, not Hermitian"};
  if (diagonal_is_strong(lines))
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
