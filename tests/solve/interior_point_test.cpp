// SPDX-License-Identifier: BSD-3-Clause
// A primal-dual interior-point method on small linear programs: its systems become worse and worse
// conditioned towards the optimum, and each of them has to be solved well.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

using Column = std::vector<std::pair<int, double>>;

/// min c'x, A x = b, x >= 0.
struct Program {
  std::string name;
  std::vector<Column> columns;  ///< of A: row from 0, value
  std::vector<double> b, c;
  double optimum = 0;
  int rows() const { return static_cast<int>(b.size()); }
  int unknowns() const { return static_cast<int>(c.size()); }
};

std::vector<double> times(const Program& p, const std::vector<double>& x) {
  std::vector<double> y(p.b.size(), 0);
  for (int j = 0; j < p.unknowns(); ++j)
    for (const auto& [i, v] : p.columns[j]) y[i] += v * x[j];
  return y;
}

double inner(const Column& column, const std::vector<double>& y) {
  double sum = 0;
  for (const auto& [i, v] : column) sum += v * y[i];
  return sum;
}

double dot(const std::vector<double>& u, const std::vector<double>& v) {
  double sum = 0;
  for (std::size_t k = 0; k < u.size(); ++k) sum += u[k] * v[k];
  return sum;
}

/// Columns in random order that are independent of those before them: as many as there are rows.
std::vector<bool> some_basis(const std::vector<Column>& columns, int rows, Rng& rng) {
  std::vector<bool> basic(columns.size(), false);
  std::vector<std::vector<double>> reduced;  ///< each with a leading entry that later ones lack
  std::vector<int> leading;
  for (const int place : rng.permutation(static_cast<int>(columns.size()))) {
    std::vector<double> v(rows, 0);
    for (const auto& [i, value] : columns[place - 1]) v[i] = value;
    for (std::size_t k = 0; k < reduced.size(); ++k) {
      const double factor = v[leading[k]] / reduced[k][leading[k]];
      for (int i = 0; i < rows; ++i) v[i] -= factor * reduced[k][i];
    }
    const auto top = std::max_element(v.begin(), v.end(),
                                      [](double p, double q) { return std::abs(p) < std::abs(q); });
    double size = 0;
    for (const auto& [i, value] : columns[place - 1]) size = std::max(size, std::abs(value));
    if (!(std::abs(*top) > 1e-3 * size)) continue;
    basic[place - 1] = true;
    leading.push_back(static_cast<int>(top - v.begin()));
    reduced.push_back(std::move(v));
  }
  EXPECT_EQ(static_cast<int>(reduced.size()), rows);
  return basic;
}

/// Gives columns a right-hand side and costs of which the optimum is known: that of a chosen x and
/// of chosen duals, complementary to each other.  A part `degenerate` of both is zero.
Program with_known_optimum(std::string name, std::vector<Column> columns, int rows,
                           double degenerate, Rng& rng) {
  Program p{std::move(name), std::move(columns), std::vector<double>(rows), {}, 0};
  p.c.resize(p.columns.size());
  std::vector<double> x(p.columns.size()), y(rows);
  for (double& v : y) v = rng.uniform(-1, 1);
  const std::vector<bool> basic = some_basis(p.columns, rows, rng);
  for (int j = 0; j < p.unknowns(); ++j) {
    const double size = rng.uniform() < degenerate ? 0 : rng.log10_uniform(-1, 1);
    if (basic[j]) x[j] = size;
    p.c[j] = inner(p.columns[j], y) + (basic[j] ? 0 : size);
  }
  p.b = times(p, x);
  p.optimum = dot(p.c, x);
  return p;
}

/// Two limited products from three workshops; the last columns are what is left of each.
Program workshops() {
  return {"workshops",
          {{{0, 1}, {2, 3}}, {{1, 2}, {2, 2}}, {{0, 1}}, {{1, 1}}, {{2, 1}}},
          {4, 12, 18},
          {-3, -5, 0, 0, 0},
          -36};
}

/// Goods from sources to sinks; the balance of the last sink follows from the others'.
Program transport(int sources, int sinks, Rng& rng) {
  std::vector<Column> columns;
  for (int i = 0; i < sources; ++i)
    for (int j = 0; j < sinks; ++j) {
      columns.push_back({{i, 1}});
      if (j + 1 < sinks) columns.back().emplace_back(sources + j, 1);
    }
  return with_known_optimum("transport", std::move(columns), sources + sinks - 1, 0, rng);
}

/// Flow along the arcs of a ring with chords; the balance of the last node follows.
Program flow(int nodes, int chords, Rng& rng) {
  std::vector<Column> columns;
  const auto arc = [&](int from, int to) {
    columns.emplace_back();
    if (from + 1 < nodes) columns.back().emplace_back(from, 1);
    if (to + 1 < nodes) columns.back().emplace_back(to, -1);
  };
  for (int i = 0; i < nodes; ++i) arc(i, (i + 1) % nodes);
  for (int k = 0; k < chords; ++k) {
    const int from = rng.below(nodes);
    arc(from, (from + 2 + rng.below(nodes - 3)) % nodes);
  }
  return with_known_optimum("flow", std::move(columns), nodes - 1, 0, rng);
}

/// A slack or a scaled unit column for each row, and `degree` entries in each of the others.
Program scattered(std::string name, int rows, int unknowns, int degree, double decades,
                  double degenerate, Rng& rng) {
  std::vector<Column> columns;
  for (int j = 0; j < unknowns; ++j) {
    Column column;
    if (j < rows) {
      column.emplace_back(j, rng.log10_uniform(-decades, decades));
    } else {
      for (int k = 0; k < degree; ++k) {
        const int i = rng.below(rows);
        if (std::none_of(column.begin(), column.end(), [i](const auto& e) { return e.first == i; }))
          column.emplace_back(i, rng.uniform(-1, 1) * rng.log10_uniform(-decades, decades));
      }
    }
    std::sort(column.begin(), column.end());
    columns.push_back(std::move(column));
  }
  return with_known_optimum(std::move(name), std::move(columns), rows, degenerate, rng);
}

/// [-Z/X A'; A 0], the upper triangle.
Matrix augmented(const Program& p) {
  const int n = p.unknowns();
  Builder builder(p.name, -2, n + p.rows());
  for (int j = 0; j < n; ++j) {
    builder.add(j, j, -1);
    for (const auto& [i, v] : p.columns[j]) builder.add(j, n + i, v);
  }
  return builder.finish();
}

struct Outcome {
  double objective = 0, infeasibility = 0;
  int systems = 0;
  int good = 0;         ///< systems with that verdict
  double backward = 0;  ///< largest componentwise backward error, by the reference
};

/// Mehrotra's predictor-corrector method ("On the implementation of a primal-dual interior point
/// method", SIAM J. Optim. 2 (1992)), from a plain starting point.
class InteriorPoint {
 public:
  /// @param robust  matching, scaling, 2x2 pivots and a small perturbation; else all defaults
  explicit InteriorPoint(const Program& program, bool robust)
      : p_(program), n_(p_.unknowns()), m_(p_.rows()), matrix_(augmented(p_)), session_(matrix_) {
    if (robust) {
      session_.iparm(8) = 10;
      session_.iparm(10) = 12;
      session_.iparm(11) = session_.iparm(13) = session_.iparm(21) = 1;
    }
    session_.iparm(40) = robust ? 2 : 1;
    session_.iparm(42) = 1;
  }

  /// Until the gap is closed to eight digits, at most so many systems.
  Outcome run(int systems) {
    Outcome out;
    start(out);
    while (out.systems < systems) {
      const double mu = dot(x_, z_) / n_;
      if (mu * n_ <= 1e-8 * (1 + std::abs(dot(p_.c, x_)))) break;
      factor();
      std::vector<double> target(n_, 0);
      const Step predictor = step_to(target, out);
      const double ahead = gap_after(predictor);
      const double sigma = std::pow(ahead / (mu * n_), 3);
      for (int j = 0; j < n_; ++j) target[j] = sigma * mu - predictor.x[j] * predictor.z[j];
      take(step_to(target, out));
    }
    out.objective = dot(p_.c, x_);
    const std::vector<double> ax = times(p_, x_);
    for (int i = 0; i < m_; ++i)
      out.infeasibility = std::max(out.infeasibility, std::abs(ax[i] - p_.b[i]));
    return out;
  }

 private:
  struct Step {
    std::vector<double> x, y, z;
  };

  void factor() {
    for (int j = 0; j < n_; ++j) matrix_.a[matrix_.ia[j] - 1] = -z_[j] / x_[j];
    EXPECT_EQ(session_.run(12), 0);
  }

  std::vector<double> solve(const std::vector<double>& rhs, Outcome& out) {
    std::vector<double> d = session_.solve(rhs);
    ++out.systems;
    EXPECT_EQ(session_.error, 0);  // a useless solution is an error
    out.good += session_.iparm(41) == 0;
    out.backward = std::max(out.backward, componentwise_error(matrix_, d, rhs));
    return d;
  }

  /// The shortest x and z that satisfy the equations, made positive.
  void start(Outcome& out) {
    x_.assign(n_, 1);
    z_ = x_;
    factor();
    std::vector<double> rhs(n_ + m_, 0);
    std::copy(p_.b.begin(), p_.b.end(), rhs.begin() + n_);
    std::vector<double> d = solve(rhs, out);
    std::copy_n(d.begin(), n_, x_.begin());
    std::fill(rhs.begin(), rhs.end(), 0.0);
    std::copy(p_.c.begin(), p_.c.end(), rhs.begin());
    d = solve(rhs, out);
    y_.assign(d.begin() + n_, d.end());
    for (int j = 0; j < n_; ++j) z_[j] = -d[j];
    for (std::vector<double>* v : {&x_, &z_}) {
      const double least = *std::min_element(v->begin(), v->end());
      for (double& e : *v) e += std::max(0.0, -1.5 * least);
    }
    const double product = dot(x_, z_);
    const auto sum = [](const std::vector<double>& v) {
      return std::accumulate(v.begin(), v.end(), 1e-9);
    };
    const double of_x = 0.5 * product / sum(z_), of_z = 0.5 * product / sum(x_);
    for (double& e : x_) e += of_x + 1e-9;
    for (double& e : z_) e += of_z + 1e-9;
  }

  /// Newton's step towards A x = b, A'y + z = c, x z = target.
  Step step_to(const std::vector<double>& target, Outcome& out) {
    std::vector<double> rhs(n_ + m_);
    const std::vector<double> ax = times(p_, x_);
    for (int j = 0; j < n_; ++j) rhs[j] = p_.c[j] - inner(p_.columns[j], y_) - target[j] / x_[j];
    for (int i = 0; i < m_; ++i) rhs[n_ + i] = p_.b[i] - ax[i];
    const std::vector<double> d = solve(rhs, out);
    Step step{{d.begin(), d.begin() + n_}, {d.begin() + n_, d.end()}, std::vector<double>(n_)};
    for (int j = 0; j < n_; ++j) step.z[j] = target[j] / x_[j] - z_[j] - z_[j] / x_[j] * step.x[j];
    return step;
  }

  /// Longest step up to 1 that keeps v positive.
  static double reach(const std::vector<double>& v, const std::vector<double>& d) {
    double length = 1;
    for (std::size_t k = 0; k < v.size(); ++k)
      if (d[k] < 0) length = std::min(length, -v[k] / d[k]);
    return length;
  }

  double gap_after(const Step& s) const {
    const double primal = reach(x_, s.x), dual = reach(z_, s.z);
    double gap = 0;
    for (int j = 0; j < n_; ++j) gap += (x_[j] + primal * s.x[j]) * (z_[j] + dual * s.z[j]);
    return gap;
  }

  void take(const Step& s) {
    const double primal = std::min(1.0, 0.7 * reach(x_, s.x));
    const double dual = std::min(1.0, 0.7 * reach(z_, s.z));
    for (int j = 0; j < n_; ++j) {
      x_[j] += primal * s.x[j];
      z_[j] += dual * s.z[j];
    }
    for (int i = 0; i < m_; ++i) y_[i] += dual * s.y[i];
  }

  const Program& p_;
  int n_, m_;
  Matrix matrix_;
  Session session_;
  std::vector<double> x_, y_, z_;
};

std::vector<Program> programs() {
  Rng rng(1992);
  return {workshops(),
          transport(8, 12, rng),
          flow(40, 80, rng),
          scattered("scattered", 60, 150, 4, 0, 0, rng),
          scattered("scaled", 50, 120, 4, 2, 0, rng),
          scattered("degenerate", 50, 120, 4, 0, 0.3, rng)};
}

void expect_optimum(const Program& p, const Outcome& out) {
  EXPECT_GE(out.systems, 30);
  EXPECT_LE(out.backward, 1e-12);
  EXPECT_NEAR(out.objective, p.optimum, 1e-7 * (1 + std::abs(p.optimum)));
  EXPECT_LE(out.infeasibility, 1e-6);
}

TEST(InteriorPoint, EverySystemIsSolvedWell) {
  for (const Program& p : programs()) {
    SCOPED_TRACE(p.name);
    const Outcome out = InteriorPoint(p, true).run(90);
    expect_optimum(p, out);
    EXPECT_EQ(out.good, out.systems);
  }
}

// Pivots vanish on the way, which refinement alone does not always repair.
TEST(InteriorPoint, DefaultsGetThereToo) {
  for (const Program& p : programs()) {
    SCOPED_TRACE(p.name);
    expect_optimum(p, InteriorPoint(p, false).run(90));
  }
}

}  // namespace
}  // namespace vlm::test
