// SPDX-License-Identifier: BSD-3-Clause
#include "system.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numeric>

#include "text_output.hpp"

namespace tool {
namespace {

std::size_t width(const SparseMatrix& matrix) { return matrix.complex ? 2 : 1; }

/// Turns counts, count of row i at start[i], into 1-based row starts.
void counts_to_starts(std::vector<int>& start) {
  std::int64_t sum = 1;
  for (int& entry : start) {
    sum += entry;
    if (sum > std::numeric_limits<int>::max()) {
      throw InputError("the matrix has more entries than 32-bit positions can count");
    }
    entry = static_cast<int>(sum);
  }
}

/// Puts one row in order of its columns; entries of one column keep their order.
void sort_row(int* ja, double* a, int length, std::size_t doubles, std::vector<int>& order,
              std::vector<double>& copy) {
  if (std::is_sorted(ja, ja + length)) return;
  order.resize(static_cast<std::size_t>(length));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [ja](int s, int t) { return ja[s] < ja[t]; });
  copy.assign(a, a + static_cast<std::size_t>(length) * doubles);
  for (std::size_t k = 0; k < order.size(); ++k) {
    const double* from = &copy[static_cast<std::size_t>(order[k]) * doubles];
    std::copy(from, from + doubles, a + k * doubles);
  }
  std::sort(ja, ja + length);
}

/// Sorts the rows and sums what shares a position.  @return entries that were summed away
std::int64_t sort_and_merge(SparseMatrix& matrix) {
  const std::size_t doubles = width(matrix);
  std::vector<int> order;
  std::vector<double> copy;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < static_cast<std::size_t>(matrix.n); ++i) {
    const auto first = static_cast<std::size_t>(matrix.ia[i] - 1);
    const auto last = static_cast<std::size_t>(matrix.ia[i + 1] - 1);
    sort_row(matrix.ja.data() + first, matrix.a.data() + first * doubles,
             static_cast<int>(last - first), doubles, order, copy);
    const std::size_t row_begin = kept;
    for (std::size_t k = first; k < last; ++k) {
      const double* value = &matrix.a[k * doubles];
      if (kept > row_begin && matrix.ja[kept - 1] == matrix.ja[k]) {
        for (std::size_t d = 0; d < doubles; ++d) matrix.a[(kept - 1) * doubles + d] += value[d];
      } else {
        matrix.ja[kept] = matrix.ja[k];
        std::copy(value, value + doubles, &matrix.a[kept * doubles]);
        ++kept;
      }
    }
    matrix.ia[i] = static_cast<int>(row_begin) + 1;
  }
  const auto summed = static_cast<std::int64_t>(matrix.ja.size() - kept);
  matrix.ia.back() = static_cast<int>(kept) + 1;
  matrix.ja.resize(kept);
  matrix.a.resize(kept * doubles);
  return summed;
}

/// Adds the other half of a skew-symmetric matrix, which no matrix type stores by halves.
void mirror_skew(MarketFile& file) {
  const std::size_t count = file.row.size(), doubles = file.complex() ? 2 : 1;
  file.row.resize(2 * count);
  file.col.resize(2 * count);
  file.value.resize(2 * count * doubles);
  for (std::size_t k = 0; k < count; ++k) {
    file.row[count + k] = file.col[k];
    file.col[count + k] = file.row[k];
  }
  for (std::size_t k = 0; k < count * doubles; ++k)
    file.value[count * doubles + k] = -file.value[k];
  file.symmetry = Symmetry::general;
}

/// Drops the imaginary parts when all of them are zero.
bool drop_zero_imaginary(MarketFile& file) {
  if (!file.complex()) return false;
  for (std::size_t k = 1; k < file.value.size(); k += 2) {
    if (file.value[k] != 0) return false;
  }
  for (std::size_t k = 0; k < file.value.size() / 2; ++k) file.value[k] = file.value[2 * k];
  file.value.resize(file.value.size() / 2);
  file.field = Field::real;
  if (file.symmetry == Symmetry::hermitian) file.symmetry = Symmetry::symmetric;
  return true;
}

/// Transpose by counting; rows come out sorted.
SparseMatrix transpose(const SparseMatrix& matrix) {
  const std::size_t doubles = width(matrix);
  SparseMatrix out{matrix.n, matrix.complex, matrix.form, {}, {}, {}};
  out.ia.assign(static_cast<std::size_t>(matrix.n) + 1, 0);
  for (int column : matrix.ja) ++out.ia[static_cast<std::size_t>(column)];
  counts_to_starts(out.ia);
  out.ja.resize(matrix.ja.size());
  out.a.resize(matrix.a.size());
  std::vector<int> next(out.ia.begin(), out.ia.end() - 1);
  for (int i = 1; i <= matrix.n; ++i) {
    for (int k = matrix.ia[static_cast<std::size_t>(i - 1)] - 1;
         k < matrix.ia[static_cast<std::size_t>(i)] - 1; ++k) {
      const auto from = static_cast<std::size_t>(k);
      const auto to =
          static_cast<std::size_t>(next[static_cast<std::size_t>(matrix.ja[from] - 1)]++ - 1);
      out.ja[to] = i;
      std::copy_n(&matrix.a[from * doubles], doubles, &out.a[to * doubles]);
    }
  }
  return out;
}

/// Calls visit(i, j, value) with 0-based positions for every stored entry.
template <typename Scalar, typename Visit>
void for_entries(const SparseMatrix& matrix, Visit visit) {
  const auto* value = reinterpret_cast<const Scalar*>(matrix.a.data());
  for (std::size_t i = 0; i < static_cast<std::size_t>(matrix.n); ++i) {
    for (auto k = static_cast<std::size_t>(matrix.ia[i] - 1);
         k < static_cast<std::size_t>(matrix.ia[i + 1] - 1); ++k) {
      visit(i, static_cast<std::size_t>(matrix.ja[k] - 1), value[k]);
    }
  }
}

template <typename Scalar>
Scalar conjugate(const Scalar& value) {
  if constexpr (std::is_floating_point_v<Scalar>) {
    return value;
  } else {
    return std::conj(value);
  }
}

/// Like for_entries, for the entries of A or its transpose with the mirrored half added.
template <typename Scalar, typename Visit>
void for_operator(const SparseMatrix& matrix, bool transposed, Visit visit) {
  const bool swap = transposed && matrix.form != Form::symmetric;
  for_entries<Scalar>(matrix, [&](std::size_t i, std::size_t j, Scalar value) {
    if (swap) std::swap(i, j);
    visit(i, j, value);
    if (i == j || matrix.form == Form::full) return;
    visit(j, i, matrix.form == Form::hermitian ? conjugate(value) : value);
  });
}

template <typename Scalar>
std::int64_t count_zero_diagonal(const SparseMatrix& matrix) {
  std::int64_t zeros = matrix.n;
  for_entries<Scalar>(matrix, [&](std::size_t i, std::size_t j, Scalar value) {
    if (i == j && value != Scalar(0)) --zeros;
  });
  return zeros;
}

/// Sums of one residual, for one row.
template <typename Wide>
struct Sums {
  Wide residual{};
  long double size = 0;  ///< (|A||x| + |b|)_i
  long double row = 0;   ///< sum of |a(i,j)|
};

template <typename Scalar, typename Wide>
Residual residual_of_column(const SparseMatrix& matrix, bool transposed, const Scalar* b,
                            const Scalar* x) {
  std::vector<Sums<Wide>> sums(static_cast<std::size_t>(matrix.n));
  for_operator<Scalar>(matrix, transposed, [&](std::size_t i, std::size_t j, Scalar value) {
    sums[i].residual -= Wide(value) * Wide(x[j]);
    const long double magnitude = std::abs(value);
    sums[i].row += magnitude;
    sums[i].size += magnitude * static_cast<long double>(std::abs(x[j]));
  });
  long double largest_r = 0, norm_a = 0, largest_x = 0, largest_b = 0, square_r = 0, square_b = 0;
  long double worst = 0, worst_by_norm = 0;
  const auto raise = [](long double& most, long double value) {
    if (!std::isnan(most) && !(value <= most)) most = value;  // a NaN stays
  };
  for (std::size_t i = 0; i < sums.size(); ++i) raise(largest_x, std::abs(x[i]));
  const long double vanishing = 1000.0L * static_cast<long double>(matrix.n) * 0x1p-53L;
  for (std::size_t i = 0; i < sums.size(); ++i) {
    const long double size_b = std::abs(b[i]);
    const long double r = std::abs(sums[i].residual + Wide(b[i]));
    const long double size = sums[i].size + size_b, by_norm = sums[i].row * largest_x;
    if (size > vanishing * (by_norm + size_b)) {
      raise(worst, r == 0 ? 0 : r / size);
    } else {
      raise(worst_by_norm, r == 0 ? 0 : r / (sums[i].size + by_norm));
    }
    raise(largest_r, r);
    raise(norm_a, sums[i].row);
    raise(largest_b, size_b);
    square_r += r * r;
    square_b += size_b * size_b;
  }
  Residual out;
  out.componentwise = static_cast<double>(worst + worst_by_norm);
  out.normwise =
      largest_r == 0 ? 0 : static_cast<double>(largest_r / (norm_a * largest_x + largest_b));
  out.two_norm = static_cast<double>(std::sqrt(square_b > 0 ? square_r / square_b : square_r));
  return out;
}

template <typename Scalar>
std::vector<double> multiply_column(const SparseMatrix& matrix, bool transposed,
                                    const std::vector<double>& x) {
  std::vector<double> y(x.size(), 0.0);
  auto* out = reinterpret_cast<Scalar*>(y.data());
  const auto* in = reinterpret_cast<const Scalar*>(x.data());
  for_operator<Scalar>(matrix, transposed, [&](std::size_t i, std::size_t j, Scalar value) {
    out[i] += value * in[j];
  });
  return y;
}

}  // namespace

SparseMatrix build_matrix(MarketFile&& file, BuildNotes& notes) {
  if (file.rows != file.cols) {
    throw InputError(fmt::format("the matrix is {} by {}; only square systems can be solved",
                                 file.rows, file.cols));
  }
  to_coordinates(file);
  if (file.symmetry == Symmetry::skew) mirror_skew(file);
  notes.dropped_imaginary = drop_zero_imaginary(file);
  const bool triangle = file.symmetry != Symmetry::general;
  const bool conjugated = file.symmetry == Symmetry::hermitian;
  if (triangle) {
    for (std::size_t k = 0; k < file.row.size(); ++k) {
      if (file.row[k] <= file.col[k]) continue;
      std::swap(file.row[k], file.col[k]);
      if (conjugated) file.value[2 * k + 1] = -file.value[2 * k + 1];
    }
  }
  SparseMatrix matrix;
  matrix.n = file.rows;
  matrix.complex = file.complex();
  matrix.form = conjugated ? Form::hermitian : triangle ? Form::symmetric : Form::full;
  const std::size_t doubles = width(matrix);
  matrix.ia.assign(static_cast<std::size_t>(matrix.n) + 1, 0);
  for (int row : file.row) ++matrix.ia[static_cast<std::size_t>(row)];
  counts_to_starts(matrix.ia);
  matrix.ja.resize(file.row.size());
  matrix.a.resize(file.value.size());
  std::vector<int> next(matrix.ia.begin(), matrix.ia.end() - 1);
  for (std::size_t k = 0; k < file.row.size(); ++k) {
    const auto to = static_cast<std::size_t>(next[static_cast<std::size_t>(file.row[k] - 1)]++ - 1);
    matrix.ja[to] = file.col[k];
    std::copy_n(&file.value[k * doubles], doubles, &matrix.a[to * doubles]);
  }
  file = MarketFile{};
  notes.duplicates = sort_and_merge(matrix);
  return matrix;
}

std::int64_t add_missing_diagonal(SparseMatrix& matrix) {
  const std::size_t doubles = width(matrix);
  const auto n = static_cast<std::size_t>(matrix.n);
  std::vector<char> present(n, 0);
  for (std::size_t i = 0; i < n; ++i) {
    present[i] =
        std::binary_search(matrix.ja.begin() + (matrix.ia[i] - 1),
                           matrix.ja.begin() + (matrix.ia[i + 1] - 1), static_cast<int>(i) + 1);
  }
  const auto missing = static_cast<std::int64_t>(std::count(present.begin(), present.end(), 0));
  if (missing == 0) return 0;
  SparseMatrix out{matrix.n, matrix.complex, matrix.form, {}, {}, {}};
  out.ia.assign(n + 1, 0);
  for (std::size_t i = 0; i < n; ++i) {
    out.ia[i + 1] = matrix.ia[i + 1] - matrix.ia[i] + (present[i] ? 0 : 1);
  }
  counts_to_starts(out.ia);
  out.ja.reserve(matrix.entries() + static_cast<std::size_t>(missing));
  out.a.reserve(matrix.a.size() + static_cast<std::size_t>(missing) * doubles);
  for (std::size_t i = 0; i < n; ++i) {
    bool due = !present[i];
    const auto add = [&] {
      out.ja.push_back(static_cast<int>(i) + 1);
      out.a.insert(out.a.end(), doubles, 0.0);
      due = false;
    };
    for (auto k = static_cast<std::size_t>(matrix.ia[i] - 1);
         k < static_cast<std::size_t>(matrix.ia[i + 1] - 1); ++k) {
      if (due && matrix.ja[k] > static_cast<int>(i) + 1) add();
      out.ja.push_back(matrix.ja[k]);
      out.a.insert(out.a.end(), &matrix.a[k * doubles], &matrix.a[k * doubles] + doubles);
    }
    if (due) add();
  }
  matrix = std::move(out);
  return missing;
}

SparseMatrix upper_triangle(const SparseMatrix& full, Form form) {
  const std::size_t doubles = width(full);
  SparseMatrix out{full.n, full.complex, form, {1}, {}, {}};
  for (int i = 1; i <= full.n; ++i) {
    for (auto k = static_cast<std::size_t>(full.ia[static_cast<std::size_t>(i - 1)] - 1);
         k < static_cast<std::size_t>(full.ia[static_cast<std::size_t>(i)] - 1); ++k) {
      if (full.ja[k] < i) continue;
      out.ja.push_back(full.ja[k]);
      out.a.insert(out.a.end(), &full.a[k * doubles], &full.a[k * doubles] + doubles);
    }
    out.ia.push_back(static_cast<int>(out.ja.size()) + 1);
  }
  return out;
}

SparseMatrix expanded(const SparseMatrix& triangle) {
  const std::size_t doubles = width(triangle);
  const SparseMatrix lower = transpose(triangle);  // rows sorted: columns up to the diagonal
  SparseMatrix out{triangle.n, triangle.complex, Form::full, {}, {}, {}};
  const auto n = static_cast<std::size_t>(triangle.n);
  const auto strict_length = [&](std::size_t i) {
    const bool diagonal =
        lower.ia[i + 1] > lower.ia[i] &&
        lower.ja[static_cast<std::size_t>(lower.ia[i + 1] - 2)] == static_cast<int>(i) + 1;
    return lower.ia[i + 1] - lower.ia[i] - (diagonal ? 1 : 0);
  };
  out.ia.assign(n + 1, 0);
  for (std::size_t i = 0; i < n; ++i) {
    out.ia[i + 1] = triangle.ia[i + 1] - triangle.ia[i] + strict_length(i);
  }
  counts_to_starts(out.ia);
  out.ja.reserve(static_cast<std::size_t>(out.ia.back() - 1));
  out.a.reserve(static_cast<std::size_t>(out.ia.back() - 1) * doubles);
  const auto append = [&](const SparseMatrix& from, std::size_t first, std::size_t count) {
    out.ja.insert(out.ja.end(), from.ja.begin() + static_cast<std::ptrdiff_t>(first),
                  from.ja.begin() + static_cast<std::ptrdiff_t>(first + count));
    out.a.insert(out.a.end(), from.a.begin() + static_cast<std::ptrdiff_t>(first * doubles),
                 from.a.begin() + static_cast<std::ptrdiff_t>((first + count) * doubles));
  };
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t mirrored = out.a.size();
    append(lower, static_cast<std::size_t>(lower.ia[i] - 1),
           static_cast<std::size_t>(strict_length(i)));
    if (triangle.form == Form::hermitian) {
      for (std::size_t k = mirrored + 1; k < out.a.size(); k += 2) out.a[k] = -out.a[k];
    }
    append(triangle, static_cast<std::size_t>(triangle.ia[i] - 1),
           static_cast<std::size_t>(triangle.ia[i + 1] - triangle.ia[i]));
  }
  return out;
}

std::vector<double> diagonal_of(const SparseMatrix& pattern, const std::vector<double>& values) {
  const std::size_t doubles = pattern.complex ? 2 : 1;
  std::vector<double> diagonal(static_cast<std::size_t>(pattern.n) * doubles, 0.0);
  for (std::size_t i = 0; i < static_cast<std::size_t>(pattern.n); ++i) {
    const auto row = pattern.ja.begin() + (pattern.ia[i] - 1);
    const auto end = pattern.ja.begin() + (pattern.ia[i + 1] - 1);
    const auto found = std::lower_bound(row, end, static_cast<int>(i) + 1);
    if (found == end || *found != static_cast<int>(i) + 1) continue;
    const auto p = static_cast<std::size_t>(found - pattern.ja.begin());
    for (std::size_t d = 0; d < doubles; ++d) diagonal[i * doubles + d] = values[p * doubles + d];
  }
  return diagonal;
}

void write_matrix(const std::string& path, const SparseMatrix& pattern,
                  const std::vector<double>& values) {
  TextOutput out(path);
  const char* symmetry = pattern.form == Form::full        ? "general"
                         : pattern.form == Form::symmetric ? "symmetric"
                                                           : "hermitian";
  out.print("%%MatrixMarket matrix coordinate {} {}\n{} {} {}\n",
            pattern.complex ? "complex" : "real", symmetry, pattern.n, pattern.n,
            pattern.entries());
  for (int i = 1; i <= pattern.n; ++i) {
    for (int p = pattern.ia[i - 1] - 1; p < pattern.ia[i] - 1; ++p) {
      const auto k = static_cast<std::size_t>(p);
      // The format stores the lower triangle.
      const bool mirrored = pattern.form != Form::full;
      out.print("{} {} ", mirrored ? pattern.ja[k] : i, mirrored ? i : pattern.ja[k]);
      if (pattern.complex) {
        const double part = values[2 * k + 1];
        out.print("{} {}\n", values[2 * k], pattern.form == Form::hermitian ? -part : part);
      } else {
        out.print("{}\n", values[k]);
      }
    }
  }
  out.close();
}

void make_complex(SparseMatrix& matrix) {
  if (matrix.complex) return;
  std::vector<double> pairs(2 * matrix.a.size(), 0.0);
  for (std::size_t k = 0; k < matrix.a.size(); ++k) pairs[2 * k] = matrix.a[k];
  matrix.a = std::move(pairs);
  matrix.complex = true;
}

Traits examine(const SparseMatrix& matrix) {
  Traits traits;
  if (matrix.form == Form::full) {
    const SparseMatrix mirror = transpose(matrix);
    traits.structurally_symmetric = mirror.ia == matrix.ia && mirror.ja == matrix.ja;
    traits.symmetric = traits.structurally_symmetric && mirror.a == matrix.a;
    traits.hermitian = traits.symmetric;
    if (matrix.complex && traits.structurally_symmetric) {
      traits.hermitian = true;
      for (std::size_t k = 0; k < matrix.a.size() && traits.hermitian; k += 2) {
        traits.hermitian = matrix.a[k] == mirror.a[k] && matrix.a[k + 1] == -mirror.a[k + 1];
      }
    }
  } else {
    traits.structurally_symmetric = true;
    traits.symmetric = matrix.form == Form::symmetric;
    traits.hermitian = matrix.form == Form::hermitian || !matrix.complex;
  }
  traits.zero_diagonal = matrix.complex ? count_zero_diagonal<std::complex<double>>(matrix)
                                        : count_zero_diagonal<double>(matrix);
  return traits;
}

Residual residual(const SparseMatrix& matrix, bool transposed, int nrhs,
                  const std::vector<double>& b, const std::vector<double>& x) {
  Residual worst;
  const std::size_t column = static_cast<std::size_t>(matrix.n) * width(matrix);
  const auto raise = [](double& most, double value) {
    if (!std::isnan(most) && !(value <= most)) most = value;
  };
  for (std::size_t k = 0; k < static_cast<std::size_t>(nrhs); ++k) {
    const double* bk = &b[k * column];
    const double* xk = &x[k * column];
    using Complex = std::complex<double>;
    const Residual one = matrix.complex
                             ? residual_of_column<Complex, std::complex<long double>>(
                                   matrix, transposed, reinterpret_cast<const Complex*>(bk),
                                   reinterpret_cast<const Complex*>(xk))
                             : residual_of_column<double, long double>(matrix, transposed, bk, xk);
    raise(worst.componentwise, one.componentwise);
    raise(worst.normwise, one.normwise);
    raise(worst.two_norm, one.two_norm);
  }
  return worst;
}

std::vector<double> multiply(const SparseMatrix& matrix, bool transposed,
                             const std::vector<double>& x) {
  return matrix.complex ? multiply_column<std::complex<double>>(matrix, transposed, x)
                        : multiply_column<double>(matrix, transposed, x);
}
}  // namespace tool
