// SPDX-License-Identifier: BSD-3-Clause
// Schur complements, and coupled systems that are finished with them, against dense elimination:
// all types, pivots, matchings, panels, threads.
#include "numeric/schur.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "caller.hpp"
#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

/// Rows and columns first to first + count - 1 and likewise.
std::vector<cplx> block(const Dense& a, int row, int rows, int column, int columns) {
  std::vector<cplx> out;
  for (int j = column; j < column + columns; ++j)
    for (int i = row; i < row + rows; ++i) out.push_back(a(i, j));
  return out;
}

double largest(const std::vector<cplx>& v) {
  double size = 0;
  for (const cplx x : v) size = std::max(size, std::abs(x));
  return size;
}

/// The complement in full, from rows whose columns have to ascend from `first_column(row)`.
Dense filled(const Matrix& m, const Session::Schur& s) {
  const int ns = static_cast<int>(s.ia.size()) - 1;
  Dense out{ns, std::vector<cplx>(static_cast<std::size_t>(ns) * ns)};
  EXPECT_EQ(s.ia[ns] - 1, static_cast<int>(s.ja.size()));
  for (int i = 0; i < ns; ++i)
    for (int k = s.ia[i] - 1, last = m.triangle() ? i : 0; k < s.ia[i + 1] - 1; ++k) {
      const int j = s.ja[k] - 1;
      EXPECT_GT(s.ja[k], last);
      last = s.ja[k];
      out(i, j) = vector_value(m, s.a, static_cast<std::size_t>(k));
      if (m.triangle() && i != j) out(j, i) = m.hermitian() ? std::conj(out(i, j)) : out(i, j);
    }
  return out;
}

struct Case {
  int pivoting, matching, threads, panel, single;
};

std::vector<Case> cases(int mtype) {
  std::vector<Case> list;
  const bool indefinite = mtype == -2 || mtype == -4 || mtype == 6;
  const bool matched = indefinite || mtype == 11 || mtype == 13;
  for (const int pivoting : {0, 1})
    for (const int matching : {0, 1, 2, 3}) {
      if ((pivoting > 0 && !indefinite) || (matching > 0 && !matched)) continue;
      list.push_back({pivoting, matching, 1, 0, 0});
      list.push_back({pivoting, matching, 2, 8, 0});
    }
  if (mtype == 1 || mtype == -2 || mtype == 11) list.push_back({1, 0, 1, 8, 1});
  return list;
}

void set_up(Session& s, const Case& c, int leading) {
  s.iparm(11) = c.matching > 0 ? 1 : 0;
  s.iparm(13) = c.matching;
  s.iparm(21) = c.pivoting;
  s.iparm(29) = c.single;
  s.iparm(30) = c.panel;
  s.iparm(38) = leading;
}

/// A random solution is not much larger than its right-hand side.
bool is_well_posed(const Dense& a) {
  Rng rng(9);
  std::vector<cplx> b;
  for (int i = 0; i < a.n; ++i) b.push_back(rng.centred(true));
  return largest(dense_solve(a, b, 1)) * largest(a.a) < 1e5;
}

/// Calls visit(m, trailing) for matrices of the type whose leading part is well conditioned.
template <class Visit>
void for_each_split(int mtype, Visit visit) {
  int seen = 0;
  for (const Matrix& m : well_conditioned(mtype))
    for (const int trailing : {1, 17}) {
      if (trailing >= m.n) continue;
      const int leading = m.n - trailing;
      if (!is_well_posed({leading, block(to_dense(m), 0, leading, 0, leading)})) continue;
      SCOPED_TRACE(m.name + " trailing " + std::to_string(trailing));
      visit(m, trailing);
      ++seen;
    }
  EXPECT_GT(seen, 5) << mtype;
}

/// What a factor is exact to, relative to the largest entry.
double exactness(Session& s, const Case& c) {
  return c.single == 1 ? 2e-3 : s.iparm(14) > 0 ? 1e-5 : 1e-10;
}

/// In single precision a perturbed pivot may change a complement, and solutions even after
/// refinement, by as much as they are: nothing to compare.
bool says_nothing(Session& s, const Case& c) { return c.single == 1 && s.iparm(14) > 0; }

std::string name_of(const Case& c) {
  return "pivoting " + std::to_string(c.pivoting) + " matching " + std::to_string(c.matching) +
         " threads " + std::to_string(c.threads) + " panel " + std::to_string(c.panel) +
         " single " + std::to_string(c.single);
}

TEST(Schur, ComplementEqualsDenseElimination) {
  for (const int mtype : all_mtypes)
    for_each_split(mtype, [&](const Matrix& m, int trailing) {
      const Dense right = dense_schur(to_dense(m), m.n - trailing);
      const double size = std::max(largest(right.a), largest(to_dense(m).a));
      for (const Case& c : cases(mtype)) {
        SCOPED_TRACE(name_of(c));
        Session s(m, c.threads);
        set_up(s, c, m.n - trailing);
        ASSERT_EQ(s.run(12), 0);
        if (says_nothing(s, c)) continue;
        const Dense got = filled(m, s.schur());
        for (std::size_t k = 0; k < right.a.size(); ++k)
          ASSERT_LE(std::abs(got.a[k] - right.a[k]), exactness(s, c) * size) << k;
      }
    });
}

/// Replaces the condensed right-hand sides in the trailing entries by the trailing unknowns.
void solve_trailing(const Matrix& m, const Dense& complement, bool transposed, int nrhs,
                    std::vector<double>& half) {
  Dense schur = complement;
  for (int i = 0; i < schur.n && transposed; ++i)
    for (int j = 0; j < i; ++j) std::swap(schur(i, j), schur(j, i));
  for (int k = 0; k < nrhs; ++k) {
    const auto nv = static_cast<std::size_t>(m.nvals());
    const std::size_t at = static_cast<std::size_t>(k + 1) * m.n - schur.n;
    std::vector<cplx> g;
    for (int i = 0; i < schur.n; ++i) g.push_back(vector_value(m, half, at + i));
    g = dense_solve(schur, g, 1);
    for (std::size_t i = 0; i < g.size(); ++i) {
      half[nv * (at + i)] = g[i].real();
      if (nv == 2) half[nv * (at + i) + 1] = g[i].imag();
    }
  }
}

/// Solves the whole system by way of the complement.
std::vector<double> solve_coupled(const Matrix& m, Session& s, const std::vector<double>& b,
                                  int nrhs) {
  s.iparm(26) = 1;
  std::vector<double> half = s.solve(b, nrhs);
  EXPECT_EQ(s.error, 0);
  solve_trailing(m, filled(m, s.schur()), s.iparm(12) == 1, nrhs, half);
  s.iparm(26) = 2;
  std::vector<double> x = s.solve(half, nrhs);
  s.iparm(26) = 0;
  return x;
}

/// A system with its solution, and with that of its leading part alone, zeros behind it.
struct Solved {
  std::vector<double> b;
  std::vector<cplx> whole, alone;
};

Solved solve_densely(const Matrix& m, const Dense& a, int leading, int nrhs) {
  Solved out{random_vector(m, nrhs, 5), {}, {}};
  std::vector<cplx> b, b1;
  for (std::size_t k = 0; k < static_cast<std::size_t>(a.n) * nrhs; ++k) {
    b.push_back(vector_value(m, out.b, k));
    if (static_cast<int>(k % a.n) < leading) b1.push_back(b.back());
  }
  out.whole = dense_solve(a, b, nrhs);
  b1 = dense_solve({leading, block(a, 0, leading, 0, leading)}, b1, nrhs);
  for (int k = 0; k < nrhs; ++k) {
    const auto start = b1.begin() + static_cast<std::ptrdiff_t>(k) * leading;
    out.alone.insert(out.alone.end(), start, start + leading);
    out.alone.resize(static_cast<std::size_t>(k + 1) * a.n);
  }
  return out;
}

void expect_values(const Matrix& m, const std::vector<double>& got, const std::vector<cplx>& right,
                   double exact) {
  const double allowed = exact * largest(right);
  for (std::size_t k = 0; k < got.size() / m.nvals(); ++k)
    ASSERT_LE(std::abs(vector_value(m, got, k) - right[k]), allowed) << k;
}

// The forward step condenses, the trailing unknowns come from the complement, and the backward
// step does the rest; a whole solve has zeros for the trailing unknowns.
TEST(Schur, CoupledSystemEqualsDenseSolve) {
  for (const int mtype : all_mtypes)
    for_each_split(mtype, [&](const Matrix& m, int trailing) {
      for (const int transposed : {0, 1}) {
        if (transposed == 1 && m.triangle()) continue;
        const Dense a = to_dense(transposed == 1 ? test::transposed(m) : m);
        const Solved solved = solve_densely(m, a, m.n - trailing, 3);
        for (const Case& c : cases(mtype)) {
          SCOPED_TRACE(name_of(c) + " transposed " + std::to_string(transposed));
          Session s(m, c.threads);
          set_up(s, c, m.n - trailing);
          s.iparm(12) = transposed;
          ASSERT_EQ(s.run(12), 0);
          if (says_nothing(s, c)) continue;
          const double exact = 10 * exactness(s, c);
          for (const int nrhs : {1, 3}) {
            const std::vector<double> b(
                solved.b.begin(),
                solved.b.begin() + static_cast<std::ptrdiff_t>(nrhs) * m.n * m.nvals());
            expect_values(m, solve_coupled(m, s, b, nrhs), solved.whole, exact);
            // Refinement makes up for perturbed pivots.
            expect_values(m, s.solve(b, nrhs), solved.alone, c.single == 1 ? 1e-5 : 1e-9);
          }
        }
      }
    });
}

// Matrices that are worth two threads, by domains and panel by panel.
TEST(Schur, ThreadsChangeNothing) {
  for (const Matrix& m :
       {elasticity3d(8, 1), shifted_laplacian(13, 1.1, false, 2), magnetic_laplacian(11, 1.7, 3),
        structurally_symmetric(10, 4), convection_diffusion(12, 4, 5, 13)}) {
    const std::vector<double> b = random_vector(m, 1, 6);
    Dense first;
    for (const int threads : {1, 2})
      for (const int domains : {0, 1}) {
        SCOPED_TRACE(m.name + " threads " + std::to_string(threads) + " domains " +
                     std::to_string(domains));
        Session s(m, threads);
        s.iparm(24) = s.iparm(25) = domains;
        s.iparm(38) = m.n - 60;
        ASSERT_EQ(s.run(12), 0);
        const Dense got = filled(m, s.schur());
        if (first.n == 0) first = got;
        const double size = largest(first.a);
        for (std::size_t k = 0; k < got.a.size(); ++k)
          ASSERT_LE(std::abs(got.a[k] - first.a[k]), 1e-11 * size) << k;
        EXPECT_LE(normwise_error(m, solve_coupled(m, s, b, 1), b), 1e-12);
      }
  }
}

// Diagonal and scaled permutation matrices are solved without a factor, unless a complement is
// asked for.
TEST(Schur, DiagonalMatrix) {
  for (const int mtype : all_mtypes)
    for (const int order : {0, 1, 2}) {
      SCOPED_TRACE(std::to_string(mtype) + " order " + std::to_string(order));
      const Matrix m = diagonal_plus_few(12, 0, 3, mtype);
      ASSERT_EQ(m.nnz(), m.n);
      Session s(m);
      s.iparm(2) = order;
      s.iparm(38) = 9;
      ASSERT_EQ(s.run(12), 0);
      const Dense got = filled(m, s.schur());
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(got(i, j), i == j ? m.value(9 + i) : 0);
      const std::vector<double> b = random_vector(m, 1, 4), x = s.solve(b);
      for (std::size_t i = 0; i < 12; ++i)
        EXPECT_LE(std::abs(vector_value(m, x, i) -
                           (i < 9 ? vector_value(m, b, i) / m.value(static_cast<int>(i)) : 0)),
                  1e-14);
      s.iparm(38) = 0;
      EXPECT_EQ(s.solve(b), x);  // the factor is still that of the leading part
    }
}

// What can't be honoured is refused: an order out of range, and a wish that the analysis didn't
// know; a complement that isn't there leaves a message, and what was passed as it was.
TEST(Schur, RequestsThatAreRefused) {
  for (const int wrong : {-1, 11}) {
    Caller c = make_tridiagonal(10, 11);
    c.iparm(38) = wrong;
    EXPECT_NE(c.run_and_read(12).find("iparam(38) " + std::to_string(wrong)), std::string::npos);
    EXPECT_EQ(c.error, -1);
    c.iparm(38) = 10;  // all of it
    EXPECT_EQ(c.run(12), 0);
    EXPECT_EQ(c.iparm(39), 0);
    c.iparm(38) = 4;
    EXPECT_EQ(c.run(22), -7);
    EXPECT_NE(c.run_and_read(33).find("the analysis kept 0 unknowns"), std::string::npos);
  }
  Caller c = make_tridiagonal(10, 6);
  double s = 7;
  int is = 7, js = 7;
  char text[1024];
  const auto message = [&] {
    velmora_schur(c.pt, &c.maxfct, &c.mnum, &c.mtype, &s, &is, &js);
    velmora_last_message(text, sizeof text);
    EXPECT_TRUE(s == 7 && is == 7 && js == 7);
    return std::string(text);
  };
  EXPECT_NE(message().find("no factor"), std::string::npos);
  c.iparm(38) = 4;
  ASSERT_EQ(c.run(11), 0);
  EXPECT_NE(message().find("no factor"), std::string::npos);
  c.iparm(38) = 0;
  ASSERT_EQ(c.run(12), 0);
  EXPECT_NE(message().find("whole matrix"), std::string::npos);
  c.pt = nullptr;
  EXPECT_NE(message().find("null"), std::string::npos);
  c.pt = c.handle.data();
}

}  // namespace
}  // namespace vlm::test
