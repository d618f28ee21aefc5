// SPDX-License-Identifier: BSD-3-Clause
// The iteration with another matrix's factor: solutions beside dense ones, and every way to end.
#include "solve/stabilised.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "gallery.hpp"
#include "matrices.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

/// An iteration on m whose solver is the dense inverse of another matrix.
struct Trial {
  Matrix m;
  Dense old;
  int nrhs = 1;
  StabiliseOptions options;
  IterationLimits limits{.most = 150, .judged_from = 76};
  std::vector<double> b, x, first;
  int solves = 0;
  std::function<int(int)> status = [](int) { return 0; };  ///< of the k-th solve

  Trial(const Matrix& matrix, const Matrix& other, bool cg, int columns = 1)
      : m(matrix),
        old(to_dense(other)),
        nrhs(columns),
        options{.type = matrix_type(matrix.mtype), .conjugate_gradients = cg},
        b(random_vector(matrix, columns, 7)) {}

  void transpose() {
    options.transpose = true;
    for (int i = 0; i < old.n; ++i)
      for (int j = 0; j < i; ++j) std::swap(old(i, j), old(j, i));
  }

  IterationResult run() {
    const std::vector<double> kept = b;
    const SolveStep solve = [&](int columns, const double* in, double* out) {
      const auto count = static_cast<std::size_t>(m.n) * static_cast<std::size_t>(columns);
      const std::vector<double> rhs(in, in + count * static_cast<std::size_t>(m.nvals()));
      std::vector<cplx> dense(count);
      for (std::size_t k = 0; k < count; ++k) dense[k] = vector_value(m, rhs, k);
      dense = dense_solve(old, dense, columns);
      for (std::size_t k = 0; k < count; ++k) {
        out[k * static_cast<std::size_t>(m.nvals())] = dense[k].real();
        if (m.complex()) out[2 * k + 1] = dense[k].imag();
      }
      return status(++solves);
    };
    x.resize(b.size());
    solve(nrhs, b.data(), x.data());
    first = x;
    solves = 0;
    // Exactly the promised room, so that a sanitizer sees a step beyond it.
    std::vector<double> work(stabilised_bytes(options, m.n, nrhs) / sizeof(double), NAN);
    const IterationResult result = stabilise({.options = options,
                                              .matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()},
                                              .nrhs = nrhs,
                                              .b = b.data(),
                                              .x = x.data(),
                                              .solve = solve,
                                              .work = work.data()},
                                             limits);
    EXPECT_EQ(std::memcmp(b.data(), kept.data(), b.size() * sizeof(double)), 0);
    return result;
  }

  /// Euclidean norm of the residual of one column.
  double residual(const std::vector<double>& solution, int column) const {
    const auto length = static_cast<std::size_t>(m.n * m.nvals());
    const std::vector<double> r = product(m, solution, nrhs, options.transpose);
    double sum = 0;
    for (std::size_t k = length * static_cast<std::size_t>(column), end = k + length; k < end; ++k)
      sum += (r[k] - b[k]) * (r[k] - b[k]);
    return std::sqrt(sum);
  }

  /// The dense solution, as the caller's values.
  double error() const {
    Dense a = to_dense(options.transpose ? transposed(m) : m);
    std::vector<cplx> rhs(static_cast<std::size_t>(m.n * nrhs));
    for (std::size_t k = 0; k < rhs.size(); ++k) rhs[k] = vector_value(m, b, k);
    const std::vector<cplx> right = dense_solve(a, rhs, nrhs);
    double worst = 0, size = 0;
    for (std::size_t k = 0; k < rhs.size(); ++k) {
      worst = std::max(worst, std::abs(vector_value(m, x, k) - right[k]));
      size = std::max(size, std::abs(right[k]));
    }
    return worst / size;
  }
};

/// A well-conditioned matrix of each type.
Matrix sample(int mtype) {
  switch (mtype) {
    case 2:
    case 4:
      return random_spd(60, 4, 3, mtype);
    case 1:
    case 3:
      return random_structurally_symmetric(60, 4, 3, mtype);
    case 11:
    case 13:
      return random_unsymmetric(60, 4, 1, 3, mtype);
    default:
      return dense(40, 3, mtype);
  }
}

TEST(Stabilised, SolutionsAreThoseOfTheNewMatrix) {
  for (const int mtype : all_mtypes)
    for (const bool cg : {false, true})
      for (const int nrhs : {1, 3, 5})
        for (const bool transpose : {false, true}) {
          const MatrixType& type = matrix_type(mtype);
          if ((cg && !type.symmetric) || (transpose && !type.hermitian && type.symmetric)) continue;
          SCOPED_TRACE(std::to_string(mtype) + (cg ? " cg " : " cgs ") + std::to_string(nrhs) +
                       (transpose ? " transposed" : ""));
          const Matrix m = sample(mtype);
          Trial trial(moved(m, 0.01), m, cg, nrhs);
          if (transpose) trial.transpose();
          trial.options.threads = nrhs == 3 ? 2 : 1;
          const IterationResult result = trial.run();
          EXPECT_EQ(result.code, 0);
          EXPECT_GT(result.count, 2);
          EXPECT_LT(result.count, 40);
          EXPECT_EQ(result.figure(), result.count);
          EXPECT_LE(trial.error(), 1e-10);
          // The loop ended as soon as the columns were there, not later.
          EXPECT_LE(trial.solves, (result.count - 1) * trial.options.solves_per_step());
        }
}

TEST(Stabilised, ToleranceIsAPartOfTheFirstResidualOfEachColumn) {
  for (const int mtype : {2, -4, 13})
    for (const double tolerance : {1e-1, 1e-3, 1e-6, 1e-12}) {
      const Matrix m = sample(mtype);
      Trial trial(moved(m, 0.05), m, mtype != 13, 4);
      // Columns of different size.
      const auto length = trial.b.size() / 4;
      for (std::size_t k = 0; k < trial.b.size(); ++k)
        trial.b[k] *= std::pow(10.0, 40 * static_cast<double>(k / length) - 80);
      trial.options.tolerance = tolerance;
      ASSERT_EQ(trial.run().code, 0);
      for (int k = 0; k < 4; ++k) {
        const double ratio = trial.residual(trial.x, k) / trial.residual(trial.first, k);
        EXPECT_LE(ratio, tolerance + 1e-11) << mtype << " column " << k;
        EXPECT_GT(ratio, tolerance * 1e-7) << mtype << " column " << k;
      }
    }
}

TEST(Stabilised, GoodFirstSolutionsAreKept) {
  for (const int mtype : all_mtypes) {
    const Matrix m = sample(mtype);
    Trial same(m, m, matrix_type(mtype).symmetric, 3);
    EXPECT_EQ(same.run().figure(), 1) << mtype;
    EXPECT_EQ(same.solves, 0);

    Trial sufficient(moved(m, 1e-4), m, false, 2);
    sufficient.options.sufficient = 0.1;
    EXPECT_EQ(sufficient.run().figure(), 1) << mtype;

    // A step of refinement goes first where it is asked for, and often is enough; one that makes
    // things worse is not taken.
    Trial corrected(moved(m, 1e-10), m, false, 2);
    corrected.options.corrected = true;
    EXPECT_EQ(corrected.run().figure(), 2) << mtype;
    EXPECT_EQ(corrected.solves, 1);
    EXPECT_LE(corrected.error(), 1e-10);
    Trial worse(m, m, false);
    for (cplx& v : worse.old.a) v *= 0.3;
    worse.options.corrected = true;
    EXPECT_EQ(worse.run().code, 0);
    EXPECT_LE(worse.error(), 1e-10);

    // A multiple of the matrix takes one direction, with CGS the first half of a step.
    Matrix twice = m;
    for (double& v : twice.a) v *= 2;
    Trial multiple(twice, m, matrix_type(mtype).symmetric, 2);
    EXPECT_EQ(multiple.run().figure(), 2) << mtype;
    EXPECT_EQ(multiple.solves, 1);
    EXPECT_LE(multiple.error(), 1e-10);

    // A zero column stays out of it.
    Trial zero(moved(m, 0.01), m, false, 2);
    std::fill_n(zero.b.begin(), zero.b.size() / 2, 0.0);
    EXPECT_EQ(zero.run().code, 0);
    EXPECT_EQ(zero.x[0], 0.0);
    EXPECT_LE(zero.error(), 1e-10);
  }
}

Matrix two_by_two(int mtype, double a, double b, double c, double d) {
  Builder builder("small", mtype, 2);
  builder.add(0, 0, a);
  builder.add(0, 1, b);
  if (mtype == 11) builder.add(1, 0, c);
  builder.add(1, 1, d);
  return builder.finish();
}

struct End {
  const char* name;
  Trial trial;
  std::function<void(Trial&)> change;
  int code, count;
};

TEST(Stabilised, WaysToFail) {
  const Matrix spd = random_spd(60, 4, 3), other = moved(spd, 0.5), unlike = random_spd(60, 9, 5);
  const Matrix unit = two_by_two(11, 1, 0, 0, 1);
  const auto limited = [](IterationLimits limits) { return [=](Trial& t) { t.limits = limits; }; };
  const auto rhs = [](double first, double second) {
    return [=](Trial& t) { t.b = {first, second}; };
  };
  const auto failing = [](int solve) {
    return [=](Trial& t) { t.status = [=](int k) { return k == solve ? -190 : 0; }; };
  };
  const End ends[] = {
      {"NaN", {other, spd, false}, [](Trial& t) { t.b[3] = NAN; }, iteration_diverged, 1},
      {"indefinite matrix",
       {two_by_two(2, 1, 0.1, 0, -1), two_by_two(2, 1, 0, 0, 1), true},
       rhs(0, 1),
       iteration_diverged,
       1},
      {"indefinite factor",
       {two_by_two(2, 1, 0.5, 0, 1), two_by_two(2, 1, 0, 0, -1), true},
       rhs(0, 1),
       iteration_diverged,
       1},
      {"not half of the digits", {other, spd, true}, limited({100, 3}), iteration_slow, 3},
      {"not worth its time", {other, spd, true}, limited({100, 51, 17}), iteration_slow, 4},
      {"not worth a step", {unlike, spd, true}, limited({100, 51, 4}), iteration_slow, 1},
      {"the most steps", {other, spd, true}, limited({4, 5}), iteration_exhausted, 4},
      {"one step at least", {other, spd, false}, limited({1, 3}), iteration_exhausted, 2},
      {"failed solve", {other, spd, true}, failing(2), iteration_solve_failed, 2},
      {"failed correction",
       {other, spd, true},
       [](Trial& t) {
         t.options.corrected = true;
         t.status = [](int k) { return k == 1 ? -190 : 0; };
       },
       iteration_solve_failed,
       1},
      {"failed second solve of a step", {other, spd, false}, failing(4), iteration_solve_failed, 2},
      // The image of the first residual is orthogonal to it.
      {"breakdown", {two_by_two(11, 0, -1, 1, 0), unit, false}, rhs(1, 0), cgs_breakdown, 1},
      {"standstill", {two_by_two(11, 1e12, 0, 1, 1e12), unit, false}, rhs(1, 1), cgs_standstill, 1},
      // No length in the form of an indefinite factor, or of an indefinite matrix.
      {"residual without length",
       {two_by_two(-2, 2, 1, 0, 2), two_by_two(-2, 0, 1, 0, 0), true},
       rhs(1, 0),
       cgs_stagnation,
       1},
      {"direction without length",
       {two_by_two(-2, 0, 1, 0, 2), two_by_two(-2, 1, 0, 0, 1), true},
       rhs(1, -1),
       cgs_breakdown,
       1},
      // The second residual is orthogonal to the first one.
      {"stagnation", {two_by_two(11, 2, 0, 1, 3), unit, false}, rhs(-2, 1), cgs_stagnation, 2},
  };
  for (const End& end : ends) {
    SCOPED_TRACE(end.name);
    Trial trial = end.trial;
    end.change(trial);
    const IterationResult result = trial.run();
    EXPECT_EQ(result.code, end.code);
    EXPECT_EQ(result.count, end.count);
    EXPECT_EQ(result.figure(), end.code - 10 * end.count);
    EXPECT_EQ(result.status, trial.status(trial.solves));
  }
}

/// What CGS makes of the unit matrix and b = (1, 0), begun at x = 0, with a solver that gives
/// these vectors one after the other.
IterationResult iterate_with(std::vector<std::array<double, 2>> answers) {
  const Matrix unit = two_by_two(11, 1, 0, 0, 1);
  const StabiliseOptions options{.type = matrix_type(11)};
  std::vector<double> work(stabilised_bytes(options, 2, 1) / sizeof(double));
  const double b[] = {1, 0};
  double x[] = {0, 0};
  std::size_t solves = 0;
  const SolveStep solve = [&](int, const double*, double* out) {
    std::ranges::copy(answers.at(solves++), out);
    return 0;
  };
  return stabilise({.options = options,
                    .matrix = {2, unit.ia.data(), unit.ja.data(), unit.a.data()},
                    .b = b,
                    .x = x,
                    .solve = solve,
                    .work = work.data()},
                   {100, 100});
}

TEST(Stabilised, SolversThatChangeUnderWay) {
  const IterationResult diverged = iterate_with({{1, 1}, {0.5, -1e5}});
  EXPECT_EQ(diverged.figure(), iteration_diverged - 20);
  // The residual turns orthogonal to the first one, up to a rounding error, and back again.
  const IterationResult grown = iterate_with({{1, 1}, {-0x1p-53, 0}, {0x1p-53, 0}, {-1, 0}});
  EXPECT_EQ(grown.figure(), cgs_growth - 30);
}

}  // namespace
}  // namespace vlm::test
