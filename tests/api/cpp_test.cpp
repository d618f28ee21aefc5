// SPDX-License-Identifier: BSD-3-Clause
/// The C++ interface: whatever form a matrix comes in, the system that it means is solved; what is
/// handed out against dense references; failures; solvers in threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>
#include <tuple>
#include <velmora.hpp>

#include "reference.hpp"

namespace vlm::test {
namespace {

using velm::Kind;
using velm::Layout;
using velm::Operation;

template <class T>
T scalar(cplx v) {
  if constexpr (velm::detail::Scalar<T>::complex)
    return T(v);
  else
    return static_cast<T>(v.real());
}

enum class Part { all, upper, lower };

/// A form of a matrix, as some program might hold it.
template <class T, class I>
struct Form {
  std::vector<I> start, index;
  std::vector<T> value;
  Layout layout = Layout::rows;
  auto view() const {
    return layout == Layout::rows ? velm::rows(start, index, value)
                                  : velm::columns(start, index, value);
  }
};

/// Lines in random order; where asked for, a third of the entries in two halves of their value.
template <class T, class I>
Form<T, I> make_form(const Dense& a, Layout layout, int base, Part part, bool shuffled,
                     std::uint64_t seed) {
  gallery::Rng rng(seed);
  Form<T, I> form{{static_cast<I>(base)}, {}, {}, layout};
  for (int i = 0; i < a.n; ++i) {
    std::vector<std::pair<int, cplx>> line;
    for (int j = 0; j < a.n; ++j) {
      const int row = layout == Layout::rows ? i : j, column = layout == Layout::rows ? j : i;
      if ((part == Part::upper && row > column) || (part == Part::lower && row < column)) continue;
      const cplx value = a(row, column);
      if (value == 0.0) continue;
      if (shuffled && rng.below(3) == 0) {
        line.emplace_back(j, 0.5 * value);
        line.emplace_back(j, 0.5 * value);
      } else {
        line.emplace_back(j, value);
      }
    }
    if (shuffled)
      for (std::size_t k = line.size(); k > 1; --k)
        std::swap(line[k - 1], line[static_cast<std::size_t>(rng.below(static_cast<int>(k)))]);
    for (const auto& [j, value] : line) {
      form.index.push_back(static_cast<I>(j + base));
      form.value.push_back(scalar<T>(value));
    }
    form.start.push_back(static_cast<I>(base + static_cast<int>(form.index.size())));
  }
  return form;
}

/// Largest |b - op(A) x| beside |A||x| + |b|, maximum norms, of all columns.
template <class T>
double backward_error(const Dense& a, const std::vector<T>& x, const std::vector<T>& b,
                      Operation operation) {
  double worst = 0;
  for (std::size_t column = 0; column < b.size(); column += static_cast<std::size_t>(a.n)) {
    double residual = 0, size = 0;
    for (int i = 0; i < a.n; ++i) {
      cplx sum = b[column + i];
      double terms = std::abs(sum);
      for (int j = 0; j < a.n; ++j) {
        const cplx value = operation == Operation::plain        ? a(i, j)
                           : operation == Operation::transposed ? a(j, i)
                                                                : std::conj(a(j, i));
        sum -= value * cplx(x[column + j]);
        terms += std::abs(value) * std::abs(x[column + j]);
      }
      residual = std::max(residual, std::abs(sum));
      size = std::max(size, terms);
    }
    worst = std::max(worst, residual / size);
  }
  return worst;
}

template <class T>
std::vector<T> numbers(std::size_t count, std::uint64_t seed) {
  gallery::Rng rng(seed);
  std::vector<T> out(count);
  for (T& value : out) value = scalar<T>(rng.centred(velm::detail::Scalar<T>::complex));
  return out;
}

velm::Options on_one_thread() {
  velm::Options options;
  options.threads = 1;
  return options;
}

Kind kind_of(int mtype) {
  switch (mtype) {
    case 2:
    case 4:
      return Kind::positive_definite;
    case -4:
      return Kind::hermitian;
    case -2:
    case 6:
      return Kind::symmetric;
    case 1:
    case 3:
      return Kind::structurally_symmetric;
    default:
      return Kind::general;
  }
}

/// One small system of each type, with zeros on the diagonal of the indefinite ones.
std::vector<Matrix> one_of_each() {
  return {gallery::random_spd(30, 3, 1),
          gallery::random_spd(30, 3, 2, 4),
          gallery::random_indefinite(30, 0.2, 0.3, 3),
          gallery::random_indefinite(30, 0.2, 0.3, 4, -4),
          gallery::random_indefinite(30, 0.2, 0.3, 5, 6),
          gallery::random_structurally_symmetric(30, 3, 6),
          gallery::random_structurally_symmetric(30, 3, 7, 3),
          gallery::random_unsymmetric(30, 4, 0.5, 8),
          gallery::random_unsymmetric(30, 4, 0.5, 9, 13)};
}

template <class T, class I>
void solve_every_form(const Matrix& m) {
  const Dense dense = to_dense(m);
  const auto b = numbers<T>(2 * static_cast<std::size_t>(m.n), 11);
  for (const Layout layout : {Layout::rows, Layout::columns})
    for (const int base : {0, 1})
      for (const Part part : {Part::all, Part::upper, Part::lower})
        for (const bool shuffled : {false, true}) {
          if (part != Part::all && !m.triangle()) continue;
          SCOPED_TRACE(std::to_string(m.mtype) + (layout == Layout::rows ? " rows" : " columns") +
                       " from " + std::to_string(base) + ", part " +
                       std::to_string(static_cast<int>(part)) + (shuffled ? ", shuffled" : ""));
          const auto form = make_form<T, I>(dense, layout, base, part, shuffled, 5);
          velm::Options options = on_one_thread();
          options.kind = kind_of(m.mtype);
          velm::Solver<T> solver(form.view(), options);
          for (const Operation operation :
               {Operation::plain, Operation::transposed, Operation::adjoint})
            EXPECT_LT(backward_error(dense, solver.solve(b, operation), b, operation), 1e-13);
          if (part != Part::all) continue;
          velm::Solver<T> free_choice(form.view(), on_one_thread());
          EXPECT_EQ(free_choice.kind(), options.kind) << free_choice.reason();
          auto x = b;
          free_choice.solve(x, x);  // in place
          EXPECT_LT(backward_error(dense, x, b, Operation::plain), 1e-13);
        }
}

TEST(Cpp, EveryFormOfAMatrixIsSolved) {
  for (const Matrix& m : one_of_each()) {
    if (m.complex()) {
      solve_every_form<cplx, int>(m);
      solve_every_form<cplx, std::int64_t>(m);
    } else {
      solve_every_form<double, int>(m);
      solve_every_form<double, std::size_t>(m);
    }
  }
}

TEST(Cpp, ArraysOfTheLibrarysFormAreBorrowed) {
  const Matrix m = gallery::poisson2d(6);
  velm::Options options = on_one_thread();
  options.kind = Kind::positive_definite;
  const velm::Solver borrower(velm::rows(m.ia, m.ja, m.a), options);
  EXPECT_TRUE(borrower.borrows());
  options.own = true;
  const velm::Solver owner(velm::rows(m.ia, m.ja, m.a), options);
  EXPECT_FALSE(owner.borrows());
  // Values alone are borrowed where indices count from 0.
  std::vector<int> ia = m.ia, ja = m.ja;
  for (int& i : ia) --i;
  for (int& j : ja) --j;
  options.own = false;
  EXPECT_TRUE(velm::Solver(velm::rows(ia, ja, m.a), options).borrows());
  // A temporary object's arrays are gone after the call.
  velm::Solver keeper(velm::Compressed<double>{m.n, ia, ja, m.a}, options);
  EXPECT_FALSE(keeper.borrows());
  const auto b = numbers<double>(static_cast<std::size_t>(m.n), 3);
  EXPECT_LT(backward_error(to_dense(m), keeper.solve(b), b, Operation::plain), 1e-14);
  // After a refactorization with other arrays the first ones are not read any more.
  auto first = std::make_unique<Matrix>(m);
  velm::Solver mover(velm::rows(first->ia, first->ja, first->a), options);
  const Matrix second = gallery::with_new_values(m, 4);
  mover.refactor(velm::rows(second.ia, second.ja, second.a));
  first.reset();
  EXPECT_LT(backward_error(to_dense(second), mover.solve(b), b, Operation::plain), 1e-14);
}

/// Shapes under which classes of sparse matrices offer their arrays.
struct ByCalls {
  enum { IsRowMajor = 0 };
  std::vector<int> outer, inner;
  std::vector<double> values;
  long rows() const { return static_cast<long>(outer.size()) - 1; }
  long cols() const { return rows(); }
  bool isCompressed() const { return true; }
  const int* outerIndexPtr() const { return outer.data(); }
  const int* innerIndexPtr() const { return inner.data(); }
  const double* valuePtr() const { return values.data(); }
};
struct ByColumns {
  const unsigned long *col_ptrs, *row_indices;
  const double* values;
  unsigned long n_rows, n_cols;
};
struct ByMembers {
  std::vector<long> ptr, col;
  std::vector<double> val;
  std::size_t nrows, ncols;
};

TEST(Cpp, ObjectsWithThreeArraysNeedNoAdapter) {
  const Matrix m = gallery::random_unsymmetric(40, 4, 0.5, 21);
  const Dense dense = to_dense(m);
  const auto b = numbers<double>(40, 2);
  const auto expect_solved = [&](auto&& matrix) {
    velm::Solver solver(matrix, on_one_thread());
    EXPECT_LT(backward_error(dense, solver.solve(b), b, Operation::plain), 1e-13);
  };
  const auto rows = make_form<double, long>(dense, Layout::rows, 0, Part::all, false, 1);
  const auto columns =
      make_form<double, unsigned long>(dense, Layout::columns, 0, Part::all, true, 2);
  const auto narrow = make_form<double, int>(dense, Layout::columns, 0, Part::all, false, 3);
  expect_solved(ByCalls{narrow.start, narrow.index, narrow.value});
  expect_solved(
      ByColumns{columns.start.data(), columns.index.data(), columns.value.data(), 40, 40});
  expect_solved(ByMembers{rows.start, rows.index, rows.value, 40, 40});
  EXPECT_THROW(velm::Solver(ByMembers{rows.start, rows.index, rows.value, 40, 41}), velm::Error);
}

TEST(Cpp, ResultsAreThoseOfDenseReferences) {
  for (const Matrix& m : one_of_each()) {
    SCOPED_TRACE(m.mtype);
    const Dense dense = to_dense(m);
    const auto form = make_form<cplx, int>(dense, Layout::columns, 0, Part::all, false, 1);
    velm::Options options = on_one_thread();
    options.kind =
        m.complex() || kind_of(m.mtype) != Kind::symmetric ? kind_of(m.mtype) : Kind::hermitian;
    options.accuracy = 2;
    velm::Solver solver(form.view(), options);
    EXPECT_NEAR(solver.log_determinant(), dense_log_abs_det(dense), 1e-9);
    if (options.kind == Kind::positive_definite || options.kind == Kind::hermitian) {
      const velm::Inertia inertia = solver.inertia();
      EXPECT_EQ((Inertia{inertia.positive, inertia.negative}), dense_inertia(dense));
    } else {
      EXPECT_THROW(solver.inertia(), velm::Error);
    }
    const auto b = numbers<cplx>(static_cast<std::size_t>(m.n), 7);
    solver.solve(b);
    EXPECT_EQ(solver.accuracy().verdict, velm::Accuracy::good);
    EXPECT_GT(solver.accuracy().condition, 1);

    const velm::Compressed<cplx> inverse = solver.inverse();
    EXPECT_EQ(inverse.layout == Layout::columns,
              options.kind == Kind::general || options.kind == Kind::structurally_symmetric);
    for (int j = 0; j < m.n; ++j) {
      std::vector<cplx> unit(static_cast<std::size_t>(m.n), 0.0);
      unit[static_cast<std::size_t>(j)] = 1;
      const auto column = dense_solve(dense, unit, 1);
      for (int i = 0; i < m.n; ++i) {
        const int line = inverse.layout == Layout::columns ? j : i, other = i + j - line;
        for (int p = inverse.start[line]; p < inverse.start[line + 1]; ++p) {
          if (inverse.index[p] == other) {
            EXPECT_LT(std::abs(inverse.value[p] - column[i]), 1e-8);
          }
        }
      }
    }
  }
}

TEST(Cpp, DiagonalSystemsHaveAllResultsToo) {
  const std::vector<int> start = {0, 1, 2, 3}, index = {0, 1, 2};
  const std::vector<double> value = {4, -2, 8}, b = {1, 2, 3};
  velm::Solver solver(velm::rows(start, index, value), on_one_thread());
  EXPECT_EQ(solver.solve(b), (std::vector<double>{0.25, -1, 0.375}));
  EXPECT_EQ(solver.solve(b, Operation::transposed), (std::vector<double>{0.25, -1, 0.375}));
  EXPECT_EQ(solver.inertia().negative, 1);
  EXPECT_DOUBLE_EQ(solver.log_determinant(), std::log(64));
  EXPECT_EQ(solver.inverse().value, (std::vector<double>{0.25, -0.5, 0.125}));
}

TEST(Cpp, SchurComplementAndItsStepsSolveTheWhole) {
  for (const Matrix& m : {gallery::random_spd(40, 3, 1), gallery::random_spd(40, 3, 2, 4),
                          gallery::random_unsymmetric(40, 4, 1, 8, 13)}) {
    SCOPED_TRACE(m.mtype);
    const int keep = 6, first = m.n - keep;
    const Dense dense = to_dense(m), reference = dense_schur(dense, first);
    for (const Layout layout : {Layout::rows, Layout::columns}) {
      const auto form = make_form<cplx, int>(dense, layout, 1, Part::all, false, 1);
      velm::Options options = on_one_thread();
      options.kind = kind_of(m.mtype);
      options.keep = keep;
      velm::Solver solver(form.view(), options);
      const auto schur = solver.schur();
      Dense found{keep, std::vector<cplx>(static_cast<std::size_t>(keep * keep), 0.0)};
      for (int i = 0; i < keep; ++i)
        for (int p = schur.start[i]; p < schur.start[i + 1]; ++p)
          (schur.layout == Layout::rows ? found(i, schur.index[p]) : found(schur.index[p], i)) =
              schur.value[p];
      for (std::size_t k = 0; k < found.a.size(); ++k)
        EXPECT_LT(std::abs(found.a[k] - reference.a[k]), 1e-11);
      const auto b = numbers<cplx>(static_cast<std::size_t>(m.n), 9);
      auto half = solver.condense(b);
      const auto kept = dense_solve(found, {half.begin() + first, half.end()}, 1);
      std::copy(kept.begin(), kept.end(), half.begin() + first);
      EXPECT_LT(backward_error(dense, solver.expand(half), b, Operation::plain), 1e-12);
    }
  }
}

TEST(Cpp, NewValuesKeepTheAnalysisOrAreRefused) {
  const Matrix m = gallery::random_spd(50, 4, 3), other = gallery::with_new_values(m, 4);
  const Dense dense = to_dense(m), moved = to_dense(other);
  const auto b = numbers<double>(50, 1);
  const auto form = make_form<double, long>(dense, Layout::rows, 0, Part::all, false, 1);
  velm::Solver solver(form.view(), on_one_thread());
  EXPECT_EQ(solver.kind(), Kind::positive_definite);
  const auto next = make_form<double, long>(moved, Layout::rows, 0, Part::all, false, 1);
  solver.refactor(next.view());
  EXPECT_LT(backward_error(moved, solver.solve(b), b, Operation::plain), 1e-14);

  // No longer definite: goes on with its signs.
  auto negative = next;
  for (double& value : negative.value) value = -value;
  solver.refactor(negative.view());
  EXPECT_EQ(solver.kind(), Kind::symmetric);
  EXPECT_EQ(solver.inertia().negative, 50);

  // No longer symmetric: what was found does not hold.
  auto skewed = next;
  skewed.value[1] += 1;
  EXPECT_THROW(solver.refactor(skewed.view()), velm::Error);
  EXPECT_THROW(solver.solve(b), velm::Error);
  // Another pattern; then the solver is good for what fits.
  const auto foreign = make_form<double, long>(to_dense(gallery::random_spd(50, 4, 9)),
                                               Layout::rows, 0, Part::all, false, 1);
  EXPECT_THROW(solver.refactor(foreign.view()), velm::Error);
  solver.compute(foreign.view());
  EXPECT_EQ(solver.solve(b).size(), 50u);
}

TEST(Cpp, AnOldFactorThatDoesNotServeIsNoSolution) {
  const Matrix m = gallery::poisson2d(20);
  Matrix far = m;
  gallery::Rng rng(3);
  for (double& value : far.a) value *= rng.log10_uniform(-6, 0);
  for (int i = 0; i < far.n; ++i) far.a[far.ia[i] - 1] += 4e-3 * (i % 2);
  const auto b = numbers<double>(static_cast<std::size_t>(m.n), 2);
  velm::Options options = on_one_thread();
  options.kind = Kind::symmetric;
  for (const int old_factor : {1, -1})
    for (const bool ladder : {false, true}) {
      options.old_factor = old_factor;
      options.iparm = {{42, ladder ? 1 : 0}};
      velm::Solver solver(velm::rows(m.ia, m.ja, m.a), options);
      solver.solve(b);
      try {
        solver.refactor(velm::rows(far.ia, far.ja, far.a));
        EXPECT_LT(backward_error(to_dense(far), solver.solve(b), b, Operation::plain), 1e-9);
      } catch (const velm::Error& error) {
        EXPECT_TRUE(old_factor < 0 && !ladder) << error.what();
        EXPECT_EQ(error.code(), -4);
      }
    }
}

TEST(Cpp, FailuresTellCodeReasonAndAdvice) {
  const std::vector<int> start = {0, 2, 4}, index = {0, 1, 0, 1};
  const std::vector<double> singular = {1, 1, 1, 1}, indefinite = {1, 2, 2, 1};
  velm::Options options = on_one_thread();
  options.kind = Kind::positive_definite;
  try {
    velm::Solver solver(velm::rows(start, index, indefinite), options);
    FAIL() << "an indefinite matrix was factored by Cholesky";
  } catch (const velm::Error& error) {
    EXPECT_EQ(error.code(), -4);
    EXPECT_NE(error.message().find("not spd"), std::string::npos) << error.what();
    EXPECT_FALSE(error.advice().empty());
  }
  EXPECT_THROW(
      velm::solve(velm::rows(start, index, singular), std::vector<double>{1, 2}, on_one_thread()),
      velm::Error);
  const std::vector<double> b = {1, 1};
  const auto throws = [&](std::vector<int> starts, std::vector<int> indices) {
    EXPECT_THROW(velm::solve(velm::rows(starts, indices, indefinite), b), velm::Error);
  };
  throws({2, 4, 6}, {2, 3, 2, 3});
  throws({0, 2, 4}, {0, 1, 0, 2});
  throws({0, 3, 2}, {0, 1, 0, 1});
  throws({0, 2, 5}, {0, 1, 0, 1});
  throws({}, {});
  velm::Solver<double> empty;
  EXPECT_THROW(empty.solve(b), velm::Error);
  velm::Solver solver(velm::rows(start, index, indefinite), on_one_thread());
  EXPECT_THROW(solver.solve(std::vector<double>{1, 2, 3}), velm::Error);
  EXPECT_THROW(solver.schur(), velm::Error);
  velm::Solver taken = std::move(solver);
  EXPECT_THROW(solver.solve(b), velm::Error);  // NOLINT(bugprone-use-after-move)
  EXPECT_NEAR(taken.solve(b)[0], 1.0 / 3, 1e-15);
}

TEST(Cpp, AListenerIsToldAndMayEndTheCall) {
  const Matrix m = gallery::poisson2d(30);
  const auto b = numbers<double>(900, 1);
  velm::Options options = on_one_thread();
  velm::Solver<double> solver(options);
  std::vector<velm::Phase> phases;
  bool ends = false;
  solver.listen([&](velm::Phase phase, double share) {
    // On a slow machine a share of 0 may be told more than once.
    if (share == 0 && (phases.empty() || phases.back() != phase)) phases.push_back(phase);
    return !ends;
  });
  const auto matrix = make_form<double, int>(to_dense(m), Layout::rows, 0, Part::all, false, 1);
  solver.compute(matrix.view());
  const auto x = solver.solve(b);
  EXPECT_EQ(phases, (std::vector{velm::Phase::analysis, velm::Phase::factorization,
                                 velm::Phase::solution}));
  ends = true;
  EXPECT_THROW(solver.refactor(matrix.view()), velm::Cancelled);
  EXPECT_THROW(solver.solve(b), velm::Error);  // the factor is gone
  solver.listen([](velm::Phase, double) -> bool { throw std::string("mine"); });
  EXPECT_THROW(solver.refactor(matrix.view()), std::string);
  solver.listen({});
  solver.refactor(matrix.view());
  EXPECT_EQ(solver.solve(b), x);
}

TEST(Cpp, SinglePrecisionComesBackInItsOwnKind) {
  const Matrix m = gallery::random_unsymmetric(60, 4, 1, 5);
  const Dense dense = to_dense(m);
  const auto form = make_form<float, int>(dense, Layout::rows, 0, Part::all, false, 1);
  velm::Solver solver(form.view(), on_one_thread());
  static_assert(std::is_same_v<decltype(solver), velm::Solver<float>>);
  EXPECT_EQ(solver.iparm(29), 1);
  const auto b = numbers<float>(60, 3);
  EXPECT_LT(backward_error(dense, solver.solve(b), b, Operation::plain), 1e-6);
}

TEST(Cpp, SolversWorkInThreadsOfTheirOwn) {
  const Matrix matrices[] = {gallery::poisson2d(20), gallery::random_indefinite(60, 0.1, 0.3, 3)};
  const double expected[] = {0, 0};
  double worst[] = {1, 1};
  std::vector<std::thread> threads;
  for (int k = 0; k < 2; ++k)
    threads.emplace_back([&, k] {
      const Matrix& m = matrices[k];
      const auto b = numbers<double>(static_cast<std::size_t>(m.n), 1);
      velm::Options options = on_one_thread();
      options.kind = kind_of(m.mtype);
      velm::Solver solver(velm::rows(m.ia, m.ja, m.a), options);
      for (int round = 0; round < 3; ++round) solver.refactor(velm::rows(m.ia, m.ja, m.a));
      worst[k] = backward_error(to_dense(m), solver.solve(b), b, Operation::plain);
    });
  for (std::thread& thread : threads) thread.join();
  for (int k = 0; k < 2; ++k) EXPECT_NEAR(worst[k], expected[k], 1e-13);
}

}  // namespace
}  // namespace vlm::test
