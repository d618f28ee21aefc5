// SPDX-License-Identifier: BSD-3-Clause
// Dense kernels of every instruction set that this processor runs, against plain loops.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <type_traits>
#include <vector>

#include "kernels/choice.hpp"

namespace vlm {
namespace {

template <class T>
T random_value(std::mt19937& gen) {
  std::uniform_real_distribution<double> u(-1, 1);
  if constexpr (std::is_same_v<T, zcomplex>)
    return {u(gen), u(gen)};
  else
    return static_cast<T>(u(gen));
}

template <class T>
std::vector<T> random_values(std::size_t count, std::mt19937& gen) {
  std::vector<T> v(count);
  for (T& x : v) x = random_value<T>(gen);
  return v;
}

template <class T>
T conj_if(T x, bool flag) {
  if constexpr (std::is_same_v<T, zcomplex>)
    return flag ? std::conj(x) : x;
  else
    return x;
}

template <class T>
double distance(const std::vector<T>& a, const std::vector<T>& b) {
  double d = 0;
  for (std::size_t i = 0; i < a.size(); ++i) d = std::max<double>(d, std::abs(a[i] - b[i]));
  return d;
}

/// Column-major square matrix product C = A B.
template <class T>
std::vector<T> product(int n, const std::vector<T>& a, const std::vector<T>& b) {
  std::vector<T> c(a.size(), T(0));
  for (int j = 0; j < n; ++j)
    for (int k = 0; k < n; ++k)
      for (int i = 0; i < n; ++i) c[i + j * n] += a[i + k * n] * b[k + j * n];
  return c;
}

template <class T>
class KernelTest : public ::testing::Test {
 protected:
  std::mt19937 gen{20261122};
  double tolerance = std::is_same_v<T, float> ? 2e-4 : 1e-11;
  static constexpr bool complex = std::is_same_v<T, zcomplex>;

  /// Rows with gaps, in random runs.
  std::vector<int> scattered(int count) {
    std::vector<int> rows;
    int at = 0;
    for (int i = 0; i < count; ++i) {
      at += 1 + (gen() % 4 == 0 ? static_cast<int>(gen() % 5) : 0);
      rows.push_back(at);
    }
    return rows;
  }
};

using Kinds = ::testing::Types<double, float, zcomplex>;
TYPED_TEST_SUITE(KernelTest, Kinds);

TYPED_TEST(KernelTest, UpdateSubtractsTheProductWhereItBelongs) {
  using T = TypeParam;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int trial = 0; trial < 60; ++trial) {
      PanelUpdate<T> u;
      u.m = 1 + static_cast<int>(this->gen() % (trial < 6 ? 300 : 90));  // several buffers of rows
      u.q = 1 + static_cast<int>(this->gen() % u.m);
      u.k = 1 + static_cast<int>(this->gen() % (trial == 0 || trial == 5 ? 600 : 40));
      u.lda = u.m + 3;
      u.lower = trial % 3 == 0;
      u.conjugate = trial % 4 == 1;
      const auto a = random_values<T>(static_cast<std::size_t>(u.lda) * u.k, this->gen);
      const auto b = random_values<T>(static_cast<std::size_t>(u.q) * u.k, this->gen);
      const auto rows = this->scattered(u.m);
      const bool scatter = trial % 2 == 0, by_rows = trial % 5 == 0;
      u.a = a.data();
      u.b = b.data();
      u.b_row = by_rows ? u.k : 1;
      u.b_col = by_rows ? 1 : u.q;
      u.ldc = scatter ? rows.back() + 1 : u.m;
      const int columns = scatter ? rows[u.q - 1] + 1 : u.q;
      auto c = random_values<T>(static_cast<std::size_t>(u.ldc) * columns, this->gen);
      auto want = c;
      if (scatter) u.row = u.col = rows.data();
      u.c = c.data();
      std::vector<bool> free(c.size(), false);  // above the diagonal, may be formed or not
      for (int j = 0; j < u.q; ++j)
        for (int i = 0; i < u.m; ++i) {
          const std::size_t at =
              static_cast<std::size_t>(scatter ? rows[j] : j) * u.ldc + (scatter ? rows[i] : i);
          for (int k = 0; k < u.k; ++k)
            want[at] -= a[i + k * u.lda] * conj_if(b[j * u.b_row + k * u.b_col], u.conjugate);
          free[at] = u.lower && i < j;
        }
      std::vector<char> space(packing_bytes(sizeof(T), u.q, u.k));
      if (trial % 2 == 0) u.space = {space.data(), space.size()};
      kernel->update(u);
      for (std::size_t p = 0; p < c.size(); ++p)
        if (free[p]) c[p] = want[p];
      ASSERT_LT(distance(c, want), this->tolerance * u.k) << kernel->isa << " trial " << trial;
    }
}

TYPED_TEST(KernelTest, RightSolveAndVectorSolveInvertTheProduct) {
  using T = TypeParam;
  using Op = typename RightSolve<T>::Op;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int n : {1, 2, 7, 8, 9, 31, 80})
      for (int bits = 0; bits < 16; ++bits) {
        const bool unit = bits & 1, by_rows = bits & 2, conjugate = bits & 4;
        const bool transposed = bits & 8;
        auto l = random_values<T>(static_cast<std::size_t>(n) * n, this->gen);
        for (T& x : l) x *= T(1.0 / n);
        for (int j = 0; j < n; ++j) l[j + j * n] += T(2);
        const int row = by_rows ? n : 1, col = by_rows ? 1 : n;
        const auto element = [&](int j, int k) {
          if (j == k && unit) return T(1);
          return j < k ? T(0) : conj_if(l[j * row + k * col], conjugate);
        };
        const int m = 1 + static_cast<int>(this->gen() % 130);
        const auto x = random_values<T>(static_cast<std::size_t>(m) * n, this->gen);
        std::vector<T> b(x.size(), T(0)), v(n, T(0));
        for (int j = 0; j < n; ++j)
          for (int k = 0; k < n; ++k) {
            const T f = transposed ? element(j, k) : element(k, j);
            for (int i = 0; i < m; ++i) b[i + j * m] += x[i + k * m] * f;
            v[j] += (transposed ? element(j, k) : element(k, j)) * x[k * m];
          }
        RightSolve<T> solve{.m = m,
                            .n = n,
                            .l = l.data(),
                            .l_row = row,
                            .l_col = col,
                            .unit = unit,
                            .conjugate = conjugate,
                            .op = transposed ? Op::transposed : Op::plain,
                            .x = b.data(),
                            .ldx = m};
        kernel->solve_right(solve);
        ASSERT_LT(distance(b, x), this->tolerance) << kernel->isa << " n " << n << " " << bits;
        const TriangleSolve<T> one{n, n, l.data(), row, col, unit, conjugate, v.data()};
        (transposed ? kernel->solve_lower : kernel->solve_lower_transposed)(one);
        for (int k = 0; k < n; ++k)
          ASSERT_LT(std::abs(v[k] - x[k * m]), this->tolerance) << kernel->isa << " n " << n;
      }
}

TYPED_TEST(KernelTest, TrapezoidSolveTakesTheRowsBelowAlong) {
  using T = TypeParam;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int n : {1, 3, 4, 6, 13})
      for (int below : {-1, -2, -7, 1, 2, 7, 40}) {  // negative: with the conjugate
        const bool conjugate = below < 0;
        const int rows = n + std::abs(below);
        auto l = random_values<T>(static_cast<std::size_t>(rows) * n, this->gen);
        for (int j = 0; j < n; ++j) l[j + j * rows] += T(4);
        const auto at = [&](int r, int c) { return conj_if(l[r + c * rows], conjugate); };
        const auto x = random_values<T>(rows, this->gen);
        auto forward = x, backward = x;
        for (int j = 0; j < n; ++j) {  // column by column, as on paper
          forward[j] /= at(j, j);
          for (int i = j + 1; i < rows; ++i) forward[i] -= at(i, j) * forward[j];
        }
        for (int j = n - 1; j >= 0; --j) {
          for (int i = j + 1; i < rows; ++i) backward[j] -= at(i, j) * backward[i];
          backward[j] /= at(j, j);
        }
        auto got = x;
        const TriangleSolve<T> solve{n, rows, l.data(), 1, rows, false, conjugate, got.data()};
        kernel->solve_lower(solve);
        ASSERT_LT(distance(got, forward), this->tolerance) << kernel->isa << " n " << n;
        got = x;
        kernel->solve_lower_transposed(solve);
        ASSERT_LT(distance(got, backward), this->tolerance) << kernel->isa << " n " << n;
      }
}

TYPED_TEST(KernelTest, CholeskyRebuildsTheBlockAndRefusesIndefiniteOnes) {
  using T = TypeParam;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int n : {1, 3, 8, 17, 64, 101}) {
      const auto g = random_values<T>(static_cast<std::size_t>(n) * n, this->gen);
      std::vector<T> a(g.size(), T(0));
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
          for (int k = 0; k < n; ++k) a[i + j * n] += g[i + k * n] * conj_if(g[j + k * n], true);
          if (i == j) a[i + j * n] += T(n);
        }
      auto l = a;
      ASSERT_EQ(kernel->cholesky(n, l.data(), n), 0);
      for (int j = 0; j < n; ++j)
        for (int i = j; i < n; ++i) {
          T sum = 0;
          for (int k = 0; k <= j; ++k) sum += l[i + k * n] * conj_if(l[j + k * n], true);
          ASSERT_LT(std::abs(sum - a[i + j * n]), this->tolerance * n * n) << kernel->isa;
        }
      const int bad = n / 2;
      a[bad + bad * n] = T(-1);
      EXPECT_EQ(kernel->cholesky(n, a.data(), n), bad + 1);
    }
}

/// Symmetric (or Hermitian) block from LAPACK-style records: P^T L D op(L) P.
template <class T>
std::vector<T> rebuild(int n, const std::vector<T>& f, const std::vector<int>& pivot,
                       bool hermitian) {
  std::vector<T> l(f.size(), T(0)), d(f.size(), T(0)), lt(f.size());
  for (int j = 0; j < n; ++j) {
    l[j + j * n] = T(1);
    for (int i = j + 1; i < n; ++i) l[i + j * n] = f[i + j * n];
    d[j + j * n] = f[j + j * n];
  }
  for (int k = 0; k < n; ++k)
    if (pivot[k] < 0) {  // d21 is kept above the diagonal
      d[k + 1 + k * n] = f[k + (k + 1) * n];
      d[k + (k + 1) * n] = conj_if(f[k + (k + 1) * n], hermitian);
      ++k;
    }
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) lt[i + j * n] = conj_if(l[j + i * n], hermitian);
  auto a = product(n, product(n, l, d), lt);
  for (int k = n - 1; k >= 0; --k) {
    const int place = std::abs(pivot[k]) - 1;
    for (int i = 0; i < n; ++i) std::swap(a[k + i * n], a[place + i * n]);
    for (int i = 0; i < n; ++i) std::swap(a[i + k * n], a[i + place * n]);
    if (pivot[k] < 0) --k;
  }
  return a;
}

TYPED_TEST(KernelTest, SymmetricBlocksAreRebuiltFromTheirFactors) {
  using T = TypeParam;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int n : {1, 2, 5, 16, 45})
      for (int form = 0; form < 4; ++form) {
        const bool hermitian = (form & 1) && this->complex, diagonal = form & 2;
        auto a = random_values<T>(static_cast<std::size_t>(n) * n, this->gen);
        for (int j = 0; j < n; ++j) {
          for (int i = 0; i < j; ++i) a[i + j * n] = conj_if(a[j + i * n], hermitian);
          a[j + j * n] = diagonal ? T(n + j) : n > 4 && j % 2 ? T(0) : T(std::real(a[j + j * n]));
          if (diagonal && j % 3 == 0) a[j + j * n] = -a[j + j * n];
        }
        auto f = a;
        // Updates leave rounding in the imaginary part of a Hermitian diagonal; it has none.
        if constexpr (std::is_same_v<T, zcomplex>)
          for (int j = 0; hermitian && j < n; ++j) f[j + j * n] += T(0, 0.01);
        std::vector<int> pivot(n);
        BlockPivots<T> stats;
        stats.hermitian = hermitian;
        stats.want_logdet = true;
        (diagonal ? kernel->ldlt_diagonal : kernel->ldlt)(n, f.data(), n, pivot.data(), stats);
        ASSERT_LT(distance(rebuild(n, f, pivot, hermitian), a), this->tolerance * n * n)
            << kernel->isa << " n " << n << " form " << form;
        for (int j = 0; hermitian && j < n; ++j)
          ASSERT_EQ(std::imag(f[j + j * n]), 0) << kernel->isa << " column " << j;
        EXPECT_EQ(stats.perturbed, 0);
        if (hermitian || !this->complex) {
          EXPECT_EQ(stats.positive + stats.negative, n);
        }
        if (diagonal) {  // diagonally dominant: the signs are those of the diagonal
          const int negative = (n + 2) / 3;
          EXPECT_EQ(stats.negative, hermitian || !this->complex ? negative : 0);
        }
        std::vector<int> ipiv(n);
        blas::getrf(n, n, a.data(), n, ipiv.data());
        double logdet = 0;
        for (int k = 0; k < n; ++k) logdet += std::log(std::abs(a[k + k * n]));
        EXPECT_NEAR(stats.logdet, logdet, this->tolerance * n * n);
      }
}

TYPED_TEST(KernelTest, CompletePivotingRebuildsTheBlock) {
  using T = TypeParam;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int n : {1, 2, 9, 33, 70}) {
      const auto a = random_values<T>(static_cast<std::size_t>(n) * n, this->gen);
      auto f = a;
      std::vector<int> row(n), column(n);
      std::vector<T> work(n);
      BlockPivots<T> stats;
      kernel->lu_complete(n, f.data(), n, row.data(), column.data(), work.data(), stats);
      std::vector<T> l(f.size(), T(0)), u(f.size(), T(0));
      for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) (i > j ? l : u)[i + j * n] = f[i + j * n];
      for (int j = 0; j < n; ++j) l[j + j * n] = T(1);
      auto back = product(n, l, u);
      for (int k = n - 1; k >= 0; --k) {
        for (int i = 0; i < n; ++i) std::swap(back[k + i * n], back[row[k] - 1 + i * n]);
        for (int i = 0; i < n; ++i) std::swap(back[i + k * n], back[i + (column[k] - 1) * n]);
      }
      ASSERT_LT(distance(back, a), this->tolerance * n * n) << kernel->isa << " n " << n;
      EXPECT_EQ(stats.perturbed, 0);
      double growth = 0;
      for (const T& x : l) growth = std::max<double>(growth, std::abs(x));
      EXPECT_LE(growth, this->complex ? 1.5 : 1.0001);  // complex pivots are ranked by |re|+|im|
    }
}

TYPED_TEST(KernelTest, SmallPivotsAreReplacedAndCounted) {
  using T = TypeParam;
  const int n = 6;
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (double eps : {0.0, 1e-3}) {
      std::vector<T> zero(n * n, T(0)), work(n);
      zero[2 + 2 * n] = T(-eps / 2);
      std::vector<int> row(n), column(n);
      for (int form = 0; form < 3; ++form) {
        auto f = zero;
        BlockPivots<T> stats;
        stats.eps = eps;
        stats.hermitian = this->complex;
        if (form == 0) kernel->ldlt(n, f.data(), n, row.data(), stats);
        if (form == 1) kernel->ldlt_diagonal(n, f.data(), n, row.data(), stats);
        if (form == 2)
          kernel->lu_complete(n, f.data(), n, row.data(), column.data(), work.data(), stats);
        EXPECT_EQ(stats.perturbed, n) << kernel->isa << " form " << form;
        if (form < 2) {
          EXPECT_EQ(stats.negative, eps > 0 ? 1 : 0);
        }
        const double size = form == 2 && eps == 0 && sizeof(T) != 4 ? 1e-13 : eps == 0 ? 1e-8 : eps;
        for (int k = 0; k < n; ++k) EXPECT_FLOAT_EQ(std::abs(f[k + k * n]), size);
      }
    }
  // Not a number never wins a search, and does not vanish either.
  std::vector<T> a(4, T(1));
  a[0] = T(std::nan(""));
  for (const Kernels<T>* kernel : runnable_kernels<T>()) {
    auto f = a;
    std::vector<int> pivot(2);
    BlockPivots<T> stats;
    kernel->ldlt(2, f.data(), 2, pivot.data(), stats);
    EXPECT_TRUE(std::isnan(std::abs(f[0])) || std::isnan(std::abs(f[3])));
  }
}

}  // namespace
}  // namespace vlm
