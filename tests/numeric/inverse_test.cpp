// SPDX-License-Identifier: BSD-3-Clause
// Selected inversion through the entry point: the entries against a dense inverse, for every type,
// pivots, matching, precision, number of threads; and what becomes of the factor.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "gallery.hpp"
#include "matrices.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

Dense dense_inverse(const Matrix& m) {
  const std::size_t n = static_cast<std::size_t>(m.n);
  std::vector<cplx> unit(n * n);
  for (std::size_t k = 0; k < n; ++k) unit[k * n + k] = 1;
  return {m.n, dense_solve(to_dense(m), unit, m.n)};
}

/// Largest |a(p) - inv(i,j)| over the largest entry of the inverse; infinity on NaN.
double inverse_error(const Matrix& selected, const Dense& inverse) {
  double largest = 0, worst = 0;
  for (const cplx& v : inverse.a) largest = std::max(largest, std::abs(v));
  for (int i = 0; i < selected.n; ++i)
    for (int p = selected.ia[i] - 1; p < selected.ia[i + 1] - 1; ++p) {
      const double off = std::abs(selected.value(p) - inverse(i, selected.ja[p] - 1));
      if (!(off <= worst)) worst = std::isnan(off) ? std::numeric_limits<double>::infinity() : off;
    }
  return worst / largest;
}

/// The matrix with the inverse in the place of its values.
Matrix invert(Session& s, const Matrix& m) {
  Matrix out = m;
  s.use(out);
  EXPECT_EQ(s.run(-22), 0);
  s.use(m);
  return out;
}

/// Whether a plain solve loses no more than three digits.  Pivots of narrow panels can, and
/// the inverse then loses twice as many.
bool is_accurate(Session& s, const Matrix& m) {
  const std::vector<double> x = random_vector(m, 1, 1);
  s.iparm(8) = 0;
  return relative_difference(s.solve(product(m, x)), x) <= 1e-13;
}

struct Settings {
  int scaling, matching, pairs, order, panel;
};
constexpr Settings settings[] = {{0, 0, 0, 2, 0}, {0, 0, 1, 2, 0}, {1, 1, 1, 2, 0},
                                 {1, 2, 1, 2, 0}, {0, 1, 1, 0, 0}, {1, 1, 1, 2, 8},
                                 {0, 0, 1, 2, 5}, {1, 2, 1, 0, 7}};

void apply(Session& s, const Settings& how) {
  s.iparm(2) = how.order;
  s.iparm(11) = how.scaling;
  s.iparm(13) = how.matching;
  s.iparm(21) = how.pairs;
  s.iparm(30) = how.panel;  // narrow panels make many of them
}

TEST(SelectedInverse, EqualsTheDenseInverse) {
  int compared = 0;
  for (const int mtype : all_mtypes)
    for (const Matrix& m : well_conditioned(mtype)) {
      if (m.nnz() == m.n) continue;  // diagonal systems have no factor
      const Dense right = dense_inverse(m);
      for (const Settings& how : settings) {
        SCOPED_TRACE(m.name + " type " + std::to_string(mtype) + " case " +
                     std::to_string(&how - settings));
        Session s(m);
        apply(s, how);
        ASSERT_EQ(s.run(12), 0);
        if (s.iparm(14) > 0 || !is_accurate(s, m)) continue;  // the factor is no better
        EXPECT_LE(inverse_error(invert(s, m), right), 1e-9);
        ++compared;
      }
    }
  EXPECT_GT(compared, 300);
}

TEST(SelectedInverse, SinglePrecision) {
  for (const int mtype : {1, -2, 11})
    for (const Matrix& m : well_conditioned(mtype)) {
      if (m.nnz() == m.n) continue;
      SCOPED_TRACE(m.name + " type " + std::to_string(mtype));
      Session s(m);
      apply(s, settings[3]);
      s.iparm(29) = 1;
      ASSERT_EQ(s.run(12), 0);
      const std::vector<double> x = random_vector(m, 1, 1);
      s.iparm(8) = 0;
      const double error = relative_difference(s.solve(product(m, x)), x);
      if (s.iparm(14) > 0 || error > 1e-4) continue;
      const double off = inverse_error(invert(s, m), dense_inverse(m));
      EXPECT_LE(off, 1e-3);
      if (m.n > 2) {
        EXPECT_GT(off, 1e-12);  // it was that factor
      }
    }
}

/// sum a(i,j) inv(j,i) over the entries of a matrix, of a symmetric pattern.
cplx trace_of_product(const Matrix& m, const Matrix& inverse) {
  cplx sum = 0;
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      if (m.triangle()) {
        // inv(j,i) is inv(i,j) or its conjugate, and a(j,i) likewise.
        const cplx v = m.value(p), z = inverse.value(p);
        const cplx mirrored = m.hermitian() ? std::conj(z) : z;
        sum += v * mirrored;
        if (i != j) sum += m.hermitian() ? std::conj(v * mirrored) : v * mirrored;
        continue;
      }
      const int* const row = m.ja.data() + m.ia[j] - 1;
      const int* const end = m.ja.data() + m.ia[j + 1] - 1;
      const int* const found = std::lower_bound(row, end, i + 1);
      if (found != end && *found == i + 1)
        sum += m.value(p) * inverse.value(static_cast<int>(found - m.ja.data()));
    }
  return sum;
}

/// Large enough for separators and domains on several threads; all families.  The panels of the
/// last one are small beside the whole, so that one thread keeps both sides of one in scratch.
std::vector<Matrix> divisible() {
  std::vector<Matrix> all = divisible_by_pattern();
  for (const Matrix& m : {expanded(shifted_laplacian(12, 0.3, false, 4), 11),
                          expanded(helmholtz(11, 0.5, false, 5), 13), expanded(poisson2d(90), 11)})
    all.push_back(m);
  return all;
}

TEST(SelectedInverse, IsTheSameOnAnyNumberOfThreadsAndTimesAIsTheUnitMatrix) {
  for (const Matrix& m : divisible())
    for (const int scheme : {0, 1}) {
      SCOPED_TRACE(m.name + " scheme " + std::to_string(scheme));
      Session s(m, 2);
      if (m.mtype == -2) apply(s, settings[3]);
      s.iparm(24) = scheme;
      s.iparm(36) = 1;
      ASSERT_EQ(s.run(12), 0);
      s.iparm(3) = 1;
      const Matrix alone = invert(s, m);
      if (s.iparm(14) == 0) {
        EXPECT_LE(std::abs(trace_of_product(m, alone) / double(m.n) - 1.0), 1e-10);
      }
      for (const int threads : {2, 3, 7}) {
        s.iparm(3) = threads;
        EXPECT_EQ(invert(s, m).a, alone.a) << threads;
      }
      // One row of the inverse against a solve.
      std::vector<double> unit(static_cast<std::size_t>(m.n) * m.nvals());
      const int column = m.n / 2;
      unit[static_cast<std::size_t>(column) * m.nvals()] = 1;
      const std::vector<double> x = s.solve(unit);
      for (int i = 0; i < m.n; ++i)
        for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p)
          if (m.ja[p] - 1 == column) {
            EXPECT_LE(std::abs(alone.value(p) - vector_value(m, x, i)),
                      1e-8 * (1 + std::abs(vector_value(m, x, i))));
          }
    }
}

// A row permutation takes entries of the pattern out of the pattern of the factor.
TEST(SelectedInverse, EntriesOutsideOfTheFactorsPattern) {
  for (const int mtype : {11, 13})
    for (const Matrix& m : {badly_scaled(60, 2, 1, mtype), badly_scaled(300, 1, 2, mtype),
                            random_unsymmetric(80, 3, 0, 3, mtype)})
      for (const int threads : {1, 3}) {
        SCOPED_TRACE(m.name + " type " + std::to_string(mtype));
        Session s(m, threads);
        s.iparm(13) = 1;
        s.iparm(11) = threads == 1;
        ASSERT_EQ(s.run(12), 0);
        ASSERT_EQ(s.iparm(14), 0);
        EXPECT_LE(inverse_error(invert(s, m), dense_inverse(m)), 1e-10);
      }
}

}  // namespace
}  // namespace vlm::test
