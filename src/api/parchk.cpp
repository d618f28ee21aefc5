// SPDX-License-Identifier: BSD-3-Clause
/// Checker of matrices and right-hand sides, for callers to run before the solver.
///
/// Stand-alone operations without handle or state.  Each check is one linear pass, the first
/// failure ends the run and is reported on standard error; the statistics go to standard
/// output.  The row pointers are known to be sound before anything reads through them.
/// Rows and positions in messages count from 1; the position in a right-hand side is the offset
/// from the start of b.
#include <algorithm>
#include <cassert>
#include <cmath>
#include <complex>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <type_traits>

#include "base/matrix_types.hpp"
#include "base/scalar.hpp"
#include "base/view.hpp"
#include "velmora.h"

namespace vlm {
namespace {

enum CheckCode : int {
  check_ok = 0,
  check_argument = 10,
  check_row_pointer = 100,
  check_column = 101,
  check_order = 200,
  check_diagonal = 201,
  check_triangle = 202,
  check_nan = 300,
  check_inf = 301,
};

constexpr char matrix_prefix[] = "[VELMORA]: CHK ";
constexpr char vector_prefix[] = "[VELMORA]: CHK: ";

/// Prints one message line to standard error and hands the code on.
[[gnu::format(printf, 3, 4)]] int fail(int code, const char* prefix, const char* format, ...) {
  char text[160];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::fprintf(stderr, "%s%s\n", prefix, text);
  return code;
}

bool is_nan(double v) { return std::isnan(v); }
bool is_inf(double v) { return std::isinf(v); }
bool is_nan(const zcomplex& v) { return is_nan(v.real()) || is_nan(v.imag()); }
bool is_inf(const zcomplex& v) { return is_inf(v.real()) || is_inf(v.imag()); }

/// Offset of the first NaN among length values, -1 when there is none.
template <class T>
std::ptrdiff_t find_nan_entry(std::ptrdiff_t length, const T* values) {
  const T* hit = std::find_if(values, values + length, [](const T& v) { return is_nan(v); });
  return hit == values + length ? -1 : hit - values;
}

/// Offset of the first infinity among length values, -1 when there is none.
template <class T>
std::ptrdiff_t find_inf_entry(std::ptrdiff_t length, const T* values) {
  const T* hit = std::find_if(values, values + length, [](const T& v) { return is_inf(v); });
  return hit == values + length ? -1 : hit - values;
}

int check_row_pointers(int n, View<const int> ia) {
  for (std::ptrdiff_t i = 1; i <= std::ptrdiff_t{n} + 1; ++i) {
    if (ia(i) < 1)
      return fail(check_row_pointer, matrix_prefix,
                  "CSR pointer array entry not ge 1;first error at row index %td", i);
  }
  for (std::ptrdiff_t i = 1; i <= n; ++i) {
    if (ia(i + 1) < ia(i))
      return fail(check_row_pointer, matrix_prefix,
                  "CSR pointer array not monotonic; first error at row index %td", i);
  }
  return check_ok;
}

int check_columns(int n, View<const int> ia, View<const int> ja) {
  for (std::ptrdiff_t p = 1; p <= std::ssize(ja); ++p) {
    if (ja(p) < 1 || ja(p) > n)
      return fail(check_column, matrix_prefix,
                  "CSR column index out-of-bounds; first error at position %td (index: %d)", p,
                  ja(p));
  }
  for (std::ptrdiff_t i = 1; i <= n; ++i) {
    bool increasing = true;
    for (int p = ia(i) + 1; p < ia(i + 1); ++p) increasing &= ja(p - 1) < ja(p);
    if (!increasing)
      return fail(check_order, matrix_prefix, "Column indices in row %td not strictly increasing",
                  i);
  }
  return check_ok;
}

/// Diagonal and triangle; the columns of each row ascend.
int check_shape(int mtype, int n, View<const int> ia, View<const int> ja) {
  const MatrixType& type = matrix_type(mtype);
  if (type.structurally_symmetric()) {
    for (int i = 1; i <= n; ++i) {
      if (!std::binary_search(ja.at(ia(i)), ja.at(ia(i + 1)), i))
        return fail(check_diagonal, matrix_prefix,
                    "Missing diagonal element; first error in row %d", i);
    }
  }
  if (type.symmetric) {
    for (int i = 1; i <= n; ++i) {
      if (ja(ia(i)) < i)
        return fail(check_triangle, matrix_prefix,
                    "Matrix is not given in upper triangular form. First offending row: %d", i);
    }
  }
  return check_ok;
}

int check_structural(int mtype, int n, const int* ia, const int* ja) {
  if (!ia || !ja) return fail(check_argument, matrix_prefix, "Invalid NULL pointer argument");
  if (n < 1)
    return fail(check_argument, matrix_prefix, "Invalid dimension argument: %d (required: >1)", n);
  const View<const int> pointers(ia, static_cast<std::size_t>(n) + 1);
  if (const int code = check_row_pointers(n, pointers)) return code;
  const View<const int> columns(ja, static_cast<std::size_t>(ia[n]) - 1);
  if (const int code = check_columns(n, pointers, columns)) return code;
  return check_shape(mtype, n, pointers, columns);
}

template <class T>
int chkmatrix(int mtype, int n, const T* a, const int* ia, const int* ja) {
  const bool known = is_matrix_type(mtype) && matrix_type(mtype).complex == is_complex_v<T>;
  if (!known)
    return fail(check_argument, matrix_prefix,
                is_complex_v<T> ? "Given matrix type is not complex: %d"
                                : "Given matrix type is not real: %d",
                mtype);
  if (const int code = check_structural(mtype, n, ia, ja)) return code;
  if (!a) return fail(check_argument, matrix_prefix, "Invalid NULL pointer argument");
  const std::ptrdiff_t nnz = ia[n] - 1;
  if (const auto hit = find_nan_entry(nnz, a); hit >= 0)
    return fail(check_nan, matrix_prefix, "Matrix contains NaN elements; first Nan at index %td ",
                hit + 1);
  if (const auto hit = find_inf_entry(nnz, a); hit >= 0)
    return fail(check_inf, matrix_prefix, "Matrix contains inf elements; first inf at index %td ",
                hit + 1);
  return check_ok;
}

template <class T>
int chkvec(int n, int nrhs, const T* b) {
  if (nrhs < 1 || !b) return check_ok;
  if (n < 1) return fail(check_argument, vector_prefix, "Invalid dimension: %d (must be >=1)", n);
  const std::ptrdiff_t length = std::ptrdiff_t{n} * nrhs;
  if (const auto hit = find_nan_entry(length, b); hit >= 0)
    return fail(check_nan, vector_prefix,
                "RHS contains NaN elements; first inf in RHS %td at index %td ", hit / n + 1, hit);
  if (const auto hit = find_inf_entry(length, b); hit >= 0)
    return fail(check_inf, vector_prefix,
                "RHS contains inf elements; first inf in RHS %td at index %td ", hit / n + 1, hit);
  return check_ok;
}

struct AbsRange {
  double min = 0, max = 0;
};

template <class T>
AbsRange find_absminmax(std::ptrdiff_t len_a, const T* a) {
  assert(len_a > 0);
  AbsRange range{std::abs(a[0]), std::abs(a[0])};
  for (std::ptrdiff_t k = 1; k < len_a; ++k) {
    const double size = std::abs(a[k]);
    range.min = std::min(range.min, size);
    range.max = std::max(range.max, size);
  }
  return range;
}

template <class T>
int printstats(int mtype, int n, const T* a, const int* ia, const int* ja, int nrhs, const T* b) {
  if (const int code = chkmatrix(mtype, n, a, ia, ja)) return code;
  if (const int code = chkvec(n, nrhs, b)) return code;
  const int nnz = ia[n] - 1;
  std::printf("[VELMORA]: Matrix type      : %s\n", matrix_type(mtype).checker);
  std::printf("[VELMORA]: Matrix dimension : %d\n", n);
  std::printf("[VELMORA]: Matrix non-zeros : %d\n", nnz);
  if (nnz > 0) {
    const AbsRange range = find_absminmax(nnz, a);
    std::printf("[VELMORA]: Abs. coeff. range: min %8.2e  max %8.2e\n", range.min, range.max);
  }
  for (int k = 1; b && k <= nrhs; ++k) {
    const AbsRange range = find_absminmax(n, b + std::ptrdiff_t{n} * (k - 1));
    std::printf("[VELMORA]: RHS no. %d:  min %8.2e  max %8.2e\n", k, range.min, range.max);
  }
  std::fflush(stdout);
  return check_ok;
}

}  // namespace
}  // namespace vlm

// Exported operations.  Complex values arrive as two doubles each.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define VLM_CHKMATRIX(name, T)                                                         \
  extern "C" void name(const int* mtype, const int* n, const double* a, const int* ia, \
                       const int* ja, int* error) {                                    \
    *error = vlm::chkmatrix(*mtype, *n, reinterpret_cast<const T*>(a), ia, ja);        \
  }
#define VLM_CHKVEC(name, T)                                                          \
  extern "C" void name(const int* n, const int* nrhs, const double* b, int* error) { \
    *error = vlm::chkvec(*n, *nrhs, reinterpret_cast<const T*>(b));                  \
  }
#define VLM_PRINTSTATS(name, T)                                                        \
  extern "C" void name(const int* mtype, const int* n, const double* a, const int* ia, \
                       const int* ja, const int* nrhs, const double* b, int* error) {  \
    *error = vlm::printstats(*mtype, *n, reinterpret_cast<const T*>(a), ia, ja, *nrhs, \
                             reinterpret_cast<const T*>(b));                           \
  }
/// The names under which callers from other languages look for an operation.
#define VLM_SPELLINGS(define, lower, upper, T) \
  define(lower, T) define(lower##_, T) define(lower##__, T) define(upper, T) define(upper##_, T)

VLM_SPELLINGS(VLM_CHKMATRIX, velmora_chkmatrix, VELMORA_CHKMATRIX, double)
VLM_SPELLINGS(VLM_CHKMATRIX, velmora_chkmatrix_z, VELMORA_CHKMATRIX_Z, vlm::zcomplex)
VLM_SPELLINGS(VLM_CHKVEC, velmora_chkvec, VELMORA_CHKVEC, double)
VLM_SPELLINGS(VLM_CHKVEC, velmora_chkvec_z, VELMORA_CHKVEC_Z, vlm::zcomplex)
VLM_SPELLINGS(VLM_PRINTSTATS, velmora_printstats, VELMORA_PRINTSTATS, double)
VLM_SPELLINGS(VLM_PRINTSTATS, velmora_printstats_z, VELMORA_PRINTSTATS_Z, vlm::zcomplex)
// NOLINTEND(bugprone-macro-parentheses)
