// SPDX-License-Identifier: BSD-3-Clause
// The checker names the first fault and its place, for real and complex values.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "gallery.hpp"
#include "velmora.h"

namespace {

using vlm::test::Matrix;
using vlm::test::Rng;

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double inf_value = std::numeric_limits<double>::infinity();

struct Outcome {
  int error = -1;
  std::string err, out;
};

template <class Operation>
Outcome captured(const Operation& operation) {
  Outcome outcome;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  operation(&outcome.error);
  outcome.out = testing::internal::GetCapturedStdout();
  outcome.err = testing::internal::GetCapturedStderr();
  return outcome;
}

Outcome check_matrix(const Matrix& m, bool complex_form) {
  return captured([&](int* error) {
    (complex_form ? velmora_chkmatrix_z : velmora_chkmatrix)(&m.mtype, &m.n, m.a.data(),
                                                             m.ia.data(), m.ja.data(), error);
  });
}
Outcome check_matrix(const Matrix& m) { return check_matrix(m, m.complex()); }

Outcome check_vector(int n, int nrhs, const double* b, bool complex_form) {
  return captured(
      [&](int* error) { (complex_form ? velmora_chkvec_z : velmora_chkvec)(&n, &nrhs, b, error); });
}

Outcome print_stats(const Matrix& m, int nrhs, const double* b) {
  return captured([&](int* error) {
    (m.complex() ? velmora_printstats_z : velmora_printstats)(
        &m.mtype, &m.n, m.a.data(), m.ia.data(), m.ja.data(), &nrhs, b, error);
  });
}

/// A small matrix given row by row; all values 1.
Matrix by_rows(int mtype, const std::vector<std::vector<int>>& rows) {
  Matrix m;
  m.mtype = mtype;
  m.n = static_cast<int>(rows.size());
  m.ia.push_back(1);
  m.ja.reserve(1);  // an empty matrix still has arrays
  m.a.reserve(1);
  for (const auto& row : rows) {
    m.ja.insert(m.ja.end(), row.begin(), row.end());
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  }
  m.a.assign(m.ja.size() * static_cast<std::size_t>(m.nvals()), 1.0);
  return m;
}

void expect_fault(const Outcome& outcome, int error, const std::string& message) {
  EXPECT_EQ(outcome.error, error);
  EXPECT_EQ(outcome.err, message + "\n");
  EXPECT_EQ(outcome.out, "");
}

TEST(Checker, AcceptsGoodMatricesInTheirFormOnly) {
  for (const int mtype : vlm::test::all_mtypes) {
    for (const Matrix& m : vlm::test::well_conditioned(mtype)) {
      const Outcome good = check_matrix(m);
      EXPECT_EQ(good.error, 0) << m.name;
      EXPECT_EQ(good.err, "") << m.name;
    }
    Matrix m = by_rows(mtype, {{1}});
    m.a.resize(2);
    expect_fault(check_matrix(m, !m.complex()), 10,
                 std::string("[VELMORA]: CHK Given matrix type is not ") +
                     (m.complex() ? "real: " : "complex: ") + std::to_string(mtype));
  }
  Matrix none = by_rows(5, {{1}});
  expect_fault(check_matrix(none, false), 10, "[VELMORA]: CHK Given matrix type is not real: 5");
  // Full storage without symmetry asks for no diagonal, and a row may be empty.
  EXPECT_EQ(check_matrix(by_rows(11, {{2}, {}, {1, 3}})).error, 0);
  EXPECT_EQ(check_matrix(by_rows(13, {{2}, {}, {1, 3}})).error, 0);
  EXPECT_EQ(check_matrix(by_rows(11, {{}})).error, 0);
}

TEST(Checker, NamesTheFirstStructuralFault) {
  for (const int mtype : {2, 6}) {
    const std::vector<std::vector<int>> rows = {{1, 2, 4}, {2, 3}, {3, 4}, {4}};
    const Matrix good = by_rows(mtype, rows);
    ASSERT_EQ(check_matrix(good).error, 0);

    Matrix m = good;
    m.n = 0;
    expect_fault(check_matrix(m), 10,
                 "[VELMORA]: CHK Invalid dimension argument: 0 (required: >1)");
    m = good;
    m.ia[0] = 0;
    expect_fault(check_matrix(m), 100,
                 "[VELMORA]: CHK CSR pointer array entry not ge 1;first error at row index 1");
    m = good;
    m.ia[4] = -7;  // also decreasing, but the sign is looked at first
    expect_fault(check_matrix(m), 100,
                 "[VELMORA]: CHK CSR pointer array entry not ge 1;first error at row index 5");
    m = good;
    m.ia[2] = 2000000000;  // must not be followed into ja
    expect_fault(check_matrix(m), 100,
                 "[VELMORA]: CHK CSR pointer array not monotonic; first error at row index 3");
    m = good;
    m.ja[7] = 5;
    expect_fault(check_matrix(m), 101,
                 "[VELMORA]: CHK CSR column index out-of-bounds; first error at position 8 "
                 "(index: 5)");
    m.ja[6] = 5;
    expect_fault(check_matrix(m), 101,
                 "[VELMORA]: CHK CSR column index out-of-bounds; first error at position 7 "
                 "(index: 5)");
    m.ja[3] = -2147483647;
    expect_fault(check_matrix(m), 101,
                 "[VELMORA]: CHK CSR column index out-of-bounds; first error at position 4 "
                 "(index: -2147483647)");
    m = good;
    m.ja[6] = 3;  // equal columns do not ascend
    expect_fault(check_matrix(m), 200,
                 "[VELMORA]: CHK Column indices in row 3 not strictly increasing");
    expect_fault(check_matrix(by_rows(mtype, {{1, 2}, {3}, {3}})), 201,
                 "[VELMORA]: CHK Missing diagonal element; first error in row 2");
    expect_fault(check_matrix(by_rows(mtype, {{1, 2}, {}, {3}})), 201,
                 "[VELMORA]: CHK Missing diagonal element; first error in row 2");
    expect_fault(
        check_matrix(by_rows(mtype, {{1, 2}, {2}, {1, 3}})), 202,
        "[VELMORA]: CHK Matrix is not given in upper triangular form. First offending row: 3");
  }
  // Structural symmetry asks for the diagonal, not for a triangle.
  for (const int mtype : {1, 3}) {
    EXPECT_EQ(check_matrix(by_rows(mtype, {{1, 2}, {1, 2}})).error, 0);
    EXPECT_EQ(check_matrix(by_rows(mtype, {{1, 2}, {1}})).error, 201);
  }
  const Matrix m = by_rows(11, {{1}});
  const auto with_nulls = [&](const int* ia, const int* ja, const double* a) {
    return captured([&](int* e) { velmora_chkmatrix(&m.mtype, &m.n, a, ia, ja, e); });
  };
  const std::string null_message = "[VELMORA]: CHK Invalid NULL pointer argument";
  expect_fault(with_nulls(nullptr, m.ja.data(), m.a.data()), 10, null_message);
  expect_fault(with_nulls(m.ia.data(), nullptr, m.a.data()), 10, null_message);
  expect_fault(with_nulls(m.ia.data(), m.ja.data(), nullptr), 10, null_message);
}

TEST(Checker, FindsTheFirstBadValue) {
  Rng rng(11);
  for (const int mtype : vlm::test::all_mtypes) {
    for (int trial = 0; trial < 20; ++trial) {
      Matrix m = vlm::test::well_conditioned(mtype).back();
      std::vector<double> b(static_cast<std::size_t>(3 * m.n * m.nvals()), 1.0);
      const int hit = rng.below(static_cast<int>(m.a.size()));
      const int rhs_hit = rng.below(static_cast<int>(b.size()));
      const int at = rhs_hit / m.nvals();
      const bool is_nan = trial % 2 == 0;
      m.a[static_cast<std::size_t>(hit)] = is_nan ? nan_value : -inf_value;
      b[static_cast<std::size_t>(rhs_hit)] = is_nan ? nan_value : inf_value;
      const std::string position = std::to_string(hit / m.nvals() + 1);
      expect_fault(check_matrix(m), is_nan ? 300 : 301,
                   "[VELMORA]: CHK Matrix contains " +
                       (is_nan ? "NaN elements; first Nan at index " + position
                               : "inf elements; first inf at index " + position) +
                       " ");
      expect_fault(check_vector(m.n, 3, b.data(), m.complex()), is_nan ? 300 : 301,
                   std::string("[VELMORA]: CHK: RHS contains ") + (is_nan ? "NaN" : "inf") +
                       " elements; first inf in RHS " + std::to_string(at / m.n + 1) +
                       " at index " + std::to_string(at) + " ");
    }
  }
  // A NaN anywhere is reported before an infinity in front of it.
  Matrix m = by_rows(11, {{1, 2, 3}, {2}, {3}});
  m.a = {1, inf_value, 1, nan_value, 1};
  EXPECT_EQ(check_matrix(m).error, 300);
}

TEST(Checker, VectorArguments) {
  const std::vector<double> b = {nan_value, nan_value};
  for (const bool complex_form : {false, true}) {
    EXPECT_EQ(check_vector(0, 0, b.data(), complex_form).error, 0);
    EXPECT_EQ(check_vector(1, -1, b.data(), complex_form).error, 0);
    EXPECT_EQ(check_vector(0, 1, nullptr, complex_form).error, 0);
    expect_fault(check_vector(0, 1, b.data(), complex_form), 10,
                 "[VELMORA]: CHK: Invalid dimension: 0 (must be >=1)");
  }
}

TEST(Checker, StatisticsShowTheRanges) {
  Matrix m = by_rows(-2, {{1, 2}, {2}});
  m.a = {-4, 0.5, 1e-3};
  const std::vector<double> b = {1, -8, 0, 2};
  const std::string matrix_lines =
      "[VELMORA]: Matrix type      : real symmetric\n"
      "[VELMORA]: Matrix dimension : 2\n"
      "[VELMORA]: Matrix non-zeros : 3\n"
      "[VELMORA]: Abs. coeff. range: min 1.00e-03  max 4.00e+00\n";
  const Outcome shown = print_stats(m, 2, b.data());
  EXPECT_EQ(shown.error, 0);
  EXPECT_EQ(shown.out, matrix_lines +
                           "[VELMORA]: RHS no. 1:  min 1.00e+00  max 8.00e+00\n"
                           "[VELMORA]: RHS no. 2:  min 0.00e+00  max 2.00e+00\n");
  EXPECT_EQ(print_stats(m, 2, nullptr).out, matrix_lines);

  Matrix z = by_rows(13, {{1}});
  z.a = {3, -4};
  const std::vector<double> zb = {5, 12};
  EXPECT_EQ(print_stats(z, 1, zb.data()).out,
            "[VELMORA]: Matrix type      : general complex\n"
            "[VELMORA]: Matrix dimension : 1\n"
            "[VELMORA]: Matrix non-zeros : 1\n"
            "[VELMORA]: Abs. coeff. range: min 5.00e+00  max 5.00e+00\n"
            "[VELMORA]: RHS no. 1:  min 1.30e+01  max 1.30e+01\n");

  const Outcome empty = print_stats(by_rows(11, {{}}), 1, nullptr);
  EXPECT_EQ(empty.error, 0);
  EXPECT_EQ(empty.out.find("Abs. coeff."), std::string::npos);

  const std::vector<double> bad = {1, inf_value};
  EXPECT_EQ(print_stats(m, 1, bad.data()).error, 301);
  EXPECT_EQ(print_stats(m, 1, bad.data()).out, "");
  m.ja[1] = 9;
  EXPECT_EQ(print_stats(m, 1, b.data()).error, 101);
}

TEST(Checker, EverySpellingReachesItsForm) {
  const int n = 1, nrhs = 1, real = 11, complex = 13;
  const std::vector<int> ia = {1, 2}, ja = {1};
  // The second double belongs to the value in the complex forms only.
  const std::vector<double> a = {1, nan_value};
#define FIVE(lower, upper) {lower, lower##_, lower##__, upper, upper##_}
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (auto* f : FIVE(velmora_chkmatrix, VELMORA_CHKMATRIX)) {
    int error = -1;
    f(&real, &n, a.data(), ia.data(), ja.data(), &error);
    EXPECT_EQ(error, 0);
  }
  for (auto* f : FIVE(velmora_chkmatrix_z, VELMORA_CHKMATRIX_Z)) {
    int error = -1;
    f(&complex, &n, a.data(), ia.data(), ja.data(), &error);
    EXPECT_EQ(error, 300);
  }
  for (auto* f : FIVE(velmora_chkvec, VELMORA_CHKVEC)) {
    int error = -1;
    f(&n, &nrhs, a.data(), &error);
    EXPECT_EQ(error, 0);
  }
  for (auto* f : FIVE(velmora_chkvec_z, VELMORA_CHKVEC_Z)) {
    int error = -1;
    f(&n, &nrhs, a.data(), &error);
    EXPECT_EQ(error, 300);
  }
  for (auto* f : FIVE(velmora_printstats, VELMORA_PRINTSTATS)) {
    int error = -1;
    f(&real, &n, a.data(), ia.data(), ja.data(), &nrhs, a.data(), &error);
    EXPECT_EQ(error, 0);
  }
  for (auto* f : FIVE(velmora_printstats_z, VELMORA_PRINTSTATS_Z)) {
    int error = -1;
    f(&complex, &n, a.data(), ia.data(), ja.data(), &nrhs, a.data(), &error);
    EXPECT_EQ(error, 300);
  }
#undef FIVE
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
}

}  // namespace
