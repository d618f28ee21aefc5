// SPDX-License-Identifier: BSD-3-Clause
/// Ruge-Stueben multigrid and smoothed aggregation: transfers, cycles as a linear symmetric map,
/// convergence on the problems that they are for, and the ends of a hierarchy.
#include <map>
#include <set>

#include "NORV/multilevel/aggregation.hpp"
#include "multigrid_support.hpp"
#include "norv_log.hpp"

namespace vlm::test {
namespace {

class MultigridTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("OMP_NUM_THREADS", "1", 0); }

  /// By name, with levels down to a few unknowns.
  static Precon create(const char* name, int block_size = 1) {
    Precon M(precon_new_by_name(name));
    M->iparam[0] = block_size;
    M->iparam[2] = 20;
    return M;
  }
  static const aml* hierarchy(const Precon& M) { return static_cast<const aml*>(M->data); }

  RandomContainers random{17};
};

/// Coordinates of the gallery's elastic cube.
std::vector<double> cube_coordinates(int g) {
  std::vector<double> c;
  for (int z = 0; z < g; ++z)
    for (int y = 0; y < g; ++y)
      for (int x = 0; x < g; ++x) c.insert(c.end(), {double(x), double(y), double(z)});
  return c;
}

// The splitting against its definition: no two sides of a strong coupling are missed, and each fine
// unknown sees a coarse one at a distance of two at most.
TEST_F(MultigridTest, FineUnknownsSeeCoarseOnes) {
  for (const Matrix& m :
       {poisson2d(17), poisson3d(9), convection_diffusion(9, 20.0, 3), random_spd(300, 6, 4)}) {
    SCOPED_TRACE(m.name);
    const Smat A = full(m);
    const norv::Graph S = norv::strong_couplings(norv::rows<double>(A.get()), {});
    const norv::Splitting split = norv::coarsen_rs(S);
    EXPECT_GT(split.coarse, 0);
    EXPECT_LT(split.coarse, m.n * 3 / 4);
    const Picture P = picture(A);
    for (int i = 0; i < m.n; ++i) {
      double negative = 0, any = 0;
      for (int j = 0; j < m.n; ++j)
        if (j != i) {
          negative = std::max(negative, -P(i, j).real());
          any = std::max(any, std::abs(P(i, j)));
        }
      std::vector<int> strong;
      for (int j = 0; j < m.n; ++j) {
        const double a = P(i, j).real();
        if (j != i && a != 0 && (a < 0 ? -a >= 0.25 * negative : a >= 0.25 * any))
          strong.push_back(j);
      }
      ASSERT_EQ(strong,
                std::vector<int>(S.target.begin() + S.start[i], S.target.begin() + S.start[i + 1]));
      bool sees = strong.empty() || split.number[i] >= 0;
      for (const int j : strong) {
        sees |= split.number[j] >= 0;
        for (int k = S.start[j]; k < S.start[j + 1]; ++k) sees |= split.number[S.target[k]] >= 0;
      }
      EXPECT_TRUE(sees) << i;
    }
  }
}

/// Extended interpolation by its formula on dense matrices, untruncated.
Picture plain_interpolation(const Picture& A, const norv::Graph& S, const norv::Splitting& split) {
  Picture P(A.m, split.coarse);
  const auto strong = [&](int i, int j) {
    return std::binary_search(S.target.begin() + S.start[i], S.target.begin() + S.start[i + 1], j);
  };
  for (int i = 0; i < A.m; ++i) {
    if (split.number[i] >= 0) {
      P(i, split.number[i]) = 1;
      continue;
    }
    std::set<int> near;
    for (int k = 0; k < A.m; ++k) {
      if (!strong(i, k)) continue;
      if (split.number[k] >= 0) near.insert(k);
      for (int l = 0; l < A.m; ++l)
        if (split.number[k] < 0 && strong(k, l) && split.number[l] >= 0) near.insert(l);
    }
    const auto opposite = [&](int k, int l) {
      return (A(k, l) * std::conj(A(k, k))).real() < 0 ? A(k, l) : cplx(0);
    };
    cplx diagonal = A(i, i);
    std::map<int, cplx> weight;
    for (const int j : near) weight[j] = A(i, j);
    for (int k = 0; k < A.m; ++k) {
      if (k == i || near.contains(k)) continue;
      cplx sum = 0;
      if (strong(i, k)) {
        sum = opposite(k, i);
        for (const int l : near) sum += opposite(k, l);
      }
      if (sum == 0.0) {
        diagonal += A(i, k);
        continue;
      }
      for (const int l : near) weight[l] += A(i, k) * opposite(k, l) / sum;
      diagonal += A(i, k) * opposite(k, i) / sum;
    }
    for (const int j : near) P(i, split.number[j]) = -weight[j] / diagonal;
  }
  return P;
}

TEST_F(MultigridTest, InterpolatesAsTheFormula) {
  for (const Matrix& m : {poisson2d(9), convection_diffusion(5, 5.0, 2), random_spd(90, 6, 8),
                          helmholtz(5, 0.5, false, 6)}) {
    SCOPED_TRACE(m.name);
    const Smat A = full(m);
    by_kind(A->is_complex, [&](auto kind) {
      const auto rows = norv::rows<decltype(kind)>(A.get());
      const norv::Graph S = norv::strong_couplings(rows, {});
      const norv::Splitting split = norv::coarsen_rs(S);
      const auto P = norv::extended_interpolation(rows, S, split, 1, m.n);
      EXPECT_TRUE(well_formed(P.get()));
      EXPECT_LT(distance(picture(P.get()), plain_interpolation(picture(A), S, split)), 1e-12);
      // What stays of a row keeps the sum of the row.
      const auto few = norv::extended_interpolation(rows, S, split, 1, 2);
      const Picture whole = picture(P.get()), part = picture(few.get());
      for (int i = 0; i < m.n; ++i) {
        EXPECT_LE(few->ia[i + 1] - few->ia[i], 2);
        double all = 0, kept = 0, least = 0;
        for (int j = 0; j < split.coarse; ++j) {
          const double weight = whole(i, j).real();
          all += weight;
          kept += part(i, j).real();
          least = std::min(least, weight);
        }
        if (least < 0 || A->is_complex) continue;  // of both signs
        EXPECT_NEAR(all, kept, 1e-12);
      }
    });
  }
}

// Unsmoothed: orthonormal columns, which span the modes.  Smoothed: by a Jacobi step with the
// matrix itself where all couplings are strong.
TEST_F(MultigridTest, AggregationRepresentsTheModes) {
  constexpr int g = 6;
  const Smat A = full(elasticity3d(g, 2));
  const int n = int(A->n);
  const std::vector<double> c = cube_coordinates(g);
  std::vector<double> rigid(std::size_t(6 * n));
  ASSERT_EQ(norv_rigid_body_modes(3, unsigned(n / 3), c.data(), rigid.data()), 6);
  norv::Modes<double> modes;
  modes.count = 6;
  Picture B(n, 6);
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < 6; ++k) {
      modes.values.push_back(rigid[std::size_t(k * n + i)]);
      B(i, k) = modes.values.back();
    }
  const Smat condensed(smat_block_condense_max(A.get(), 3));
  const norv::StrongNodes<double> strong(norv::rows<double>(condensed.get()), 0.0);
  const norv::Aggregates aggregates = norv::aggregate_vmb(strong);
  EXPECT_GT(aggregates.count, 1);
  for (const int of : aggregates.of) EXPECT_TRUE(of >= 0 && of < aggregates.count);
  norv::Modes<double> next = modes;
  const auto tentative =
      norv::smoothed_prolongation(A.get(), strong, aggregates, {.block_size = 3, .omega = 0}, next);
  const Picture P = picture(tentative.get()), PtP = transposed(P) * P;
  for (int i = 0; i < PtP.m; ++i)
    for (int j = 0; j < PtP.n; ++j) EXPECT_NEAR(std::abs(PtP(i, j)), i == j ? 1.0 : 0.0, 1e-12);
  Picture coarse(P.n, 6);
  for (int i = 0; i < P.n; ++i)
    for (int k = 0; k < 6; ++k) coarse(i, k) = next.values[std::size_t(i * 6 + k)];
  EXPECT_LT(distance(P * coarse, B), 1e-10);
  norv::Modes<double> again = modes;
  const auto smoothed = norv::smoothed_prolongation(A.get(), strong, aggregates,
                                                    {.block_size = 3, .omega = 0.5}, again);
  const Picture full_matrix = picture(A), AP = full_matrix * P;
  const Picture S = picture(smoothed.get());
  double step = 0;  // the same for all rows
  for (int i = 0; i < P.m; ++i)
    for (int j = 0; j < P.n; ++j) {
      const double change = (P(i, j) - S(i, j)).real();
      const double jacobi = (AP(i, j) / full_matrix(i, i)).real();
      if (step == 0 && std::fabs(jacobi) > 0.1) step = change / jacobi;
      ASSERT_NEAR(change, step * jacobi, 1e-10);
    }
  // 2 omega over the largest eigenvalue, which the bars make larger than 1.
  EXPECT_GT(step, 0.05);
  EXPECT_LT(step, 1.0);
}

TEST(RigidBodyModes, DoNotStretch) {
  for (const int dim : {2, 3}) {
    RandomContainers random(3);
    const unsigned nodes = 7;
    std::vector<double> c(nodes * unsigned(dim));
    for (double& v : c) v = 10 * random.number();
    std::vector<double> modes(std::size_t(dim == 2 ? 3 : 6) * c.size());
    const int count = norv_rigid_body_modes(dim, nodes, c.data(), modes.data());
    ASSERT_EQ(count, dim == 2 ? 3 : 6);
    Picture gram(count, count);
    for (int k = 0; k < count; ++k) {
      const double* const u = modes.data() + std::size_t(k) * c.size();
      for (unsigned p = 0; p < nodes; ++p)
        for (unsigned q = 0; q < p; ++q) {
          double stretch = 0;
          for (unsigned axis = 0; axis < unsigned(dim); ++axis) {
            const unsigned i = p * unsigned(dim) + axis, j = q * unsigned(dim) + axis;
            stretch += (u[i] - u[j]) * (c[i] - c[j]);
          }
          EXPECT_NEAR(stretch, 0, 1e-10);
        }
      EXPECT_GT(*std::max_element(u, u + c.size()), 0.5);
    }
  }
}

// A cycle is linear, and its own transpose where the matrix is.
TEST_F(MultigridTest, CyclesOfSymmetricMatricesAreSymmetric) {
  const Threads two(2);
  for (const char* name : {"AMG", "SMAGGR"})
    for (const Matrix& m : {poisson2d(30), poisson3d(34), helmholtz(12, 0.5, true, 6)}) {
      SCOPED_TRACE(m.name + name);
      const Smat A = full(m);
      const Precon M = create(name);
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      EXPECT_GE(hierarchy(M)->num_levels, 2);
      const Vec u = random.vector(A->m, A->is_complex), v = random.vector(A->m, A->is_complex);
      const Vec Bu(precon_solve(nullptr, M.get(), u.get())),
          Bv(precon_solve(nullptr, M.get(), v.get()));
      const double size = std::abs(dot(Bu, u));
      EXPECT_LT(std::abs(dot(Bu, v) - dot(u, Bv)), 1e-9 * size);
      const Vec again(precon_solve(nullptr, M.get(), u.get()));
      EXPECT_TRUE(vec_equal(again.get(), Bu.get()));
    }
}

/// A problem and the iterations that are enough.
struct Case {
  Matrix matrix;
  int block_size, amg, smaggr;
};

TEST_F(MultigridTest, PreconditionsConjugateGradients) {
  const Case cases[] = {{poisson2d(40), 1, 10, 12},
                        {poisson3d(14), 1, 10, 12},
                        {elasticity3d(8, 1), 3, 40, 40},
                        {random_spd(500, 5, 2), 1, 15, 15},
                        {helmholtz(12, 0.5, true, 6), 1, 20, 25},
                        {diagonal_plus_few(400, 6, 1, 2), 1, 15, 15}};
  for (const Case& c : cases)
    for (const bool amg : {true, false}) {
      SCOPED_TRACE(c.matrix.name + (amg ? " AMG" : " SMAGGR"));
      const Smat A = full(c.matrix);
      const Vec b = random.vector(A->m, A->is_complex);
      const Precon M = create(amg ? "AMG" : "SMAGGR", c.block_size);
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      EXPECT_LE(conjugate_gradients(A, M.get(), b), amg ? c.amg : c.smaggr);
    }
}

// The rigid body modes are what makes the coarse levels of an elastic body good.
TEST_F(MultigridTest, ModesMakeElasticityConverge) {
  constexpr int g = 10;
  const Smat A = full(elasticity3d(g, 1));
  const Vec b = random.vector(A->m, 0);
  const std::vector<double> c = cube_coordinates(g);
  std::vector<double> modes(std::size_t(6) * A->n);
  norv_rigid_body_modes(3, A->n / 3, c.data(), modes.data());
  const Precon M = create("SMAGGR", 3);
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  const int without = conjugate_gradients(A, M.get(), b);
  precon_smaggr_set_modes(M.get(), A->n, 6, modes.data());
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  EXPECT_LT(conjugate_gradients(A, M.get(), b), without);
  precon_smaggr_set_modes(M.get(), 0, 0, nullptr);
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  EXPECT_EQ(conjugate_gradients(A, M.get(), b), without);
}

// As solvers, also of matrices that are not symmetric; from a guess; and the trivial ends.
TEST_F(MultigridTest, CyclesSolve) {
  for (const bool amg : {true, false})
    for (const Matrix& m : {poisson2d(30), convection_diffusion(11, 2.0, 1)}) {
      SCOPED_TRACE(m.name + (amg ? " AMG" : " SMAGGR"));
      const Smat A = full(m);
      const OwnAml h(amg ? amg_new() : smaggr_new());
      h->min_size = 30;
      h->params.pre_smooth = h->params.pst_smooth = 0;  // at least one all the same
      h->params.smoothing_method = 0;
      ASSERT_EQ((amg ? amg_setup_matrix : smaggr_setup_matrix)(h.get(), A.get(), 1), 1);
      const auto solve = amg ? amg_solve : smaggr_solve;
      const Vec b = random.vector(A->m, 0), x = random.vector(A->m, 0);
      const int cycles = solve(h.get(), x.get(), b.get(), 1e-8, 100);
      EXPECT_LT(cycles, 40);
      EXPECT_LT(relative_residual(A, x, b), 1e-8);
      EXPECT_EQ(solve(h.get(), x.get(), b.get(), 1e-8, 100), 0);
      vec_clear(x.get());
      EXPECT_EQ(solve(h.get(), x.get(), b.get(), 1e-8, 2), 2);
      vec_clear(b.get());
      EXPECT_EQ(solve(h.get(), x.get(), b.get(), 1e-8, 100), 0);
      EXPECT_EQ(vec_inf_norm(x.get()), 0.0);
    }
}

// Levels that can't be coarsened, of a few unknowns, or of none that are coupled: the direct solver
// takes them, and one level is a direct solve.
TEST_F(MultigridTest, EndsOfAHierarchy) {
  const auto check = [&](const Precon& M, const Smat& A, int levels) {
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_EQ(hierarchy(M)->num_levels, levels);
    const Vec b = random.vector(A->m, 0), x(precon_solve(nullptr, M.get(), b.get()));
    EXPECT_LT(relative_residual(A, x, b), 1e-10);
  };
  for (const char* name : {"AMG", "SMAGGR"}) {
    SCOPED_TRACE(name);
    const Precon M = create(name);
    M->iparam[2] = 0;
    check(M, full(block_diagonal(30, 1, 1, 2)), 1);
    check(M, full(tridiagonal(1, 1, 2)), 1);
    M->iparam[1] = 1;
    check(M, full(poisson2d(12)), 1);
    // Unknowns without couplings among others: all but the last level leave them to the sweeps.
    M->iparam[1] = 2;
    Smat A = full(poisson2d(12));
    for (const int i : {0, 5, 77})
      for (int k = A->ia[i]; k < A->ia[i + 1]; ++k)
        if (const int j = A->ja[k]; j != i) {
          A->a[k] = 0;
          for (int l = A->ia[j]; l < A->ia[j + 1]; ++l)
            if (A->ja[l] == i) A->a[l] = 0;
        }
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_EQ(hierarchy(M)->num_levels, 2);
    EXPECT_LT(conjugate_gradients(A, M.get(), random.vector(A->m, 0)), 15);
  }
}

TEST_F(MultigridTest, DirectSolverTakesTheMatrixAsItIsWhereItsDiagonalLeads) {
  NorvLog log(2);
  const auto residual_of = [&](const Smat& A) {
    const Precon M = create("SMAGGR");
    M->iparam[2] = 1000;
    EXPECT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_EQ(hierarchy(M)->num_levels, 1);
    const Vec b = random.vector(A->m, A->is_complex), x(precon_solve(nullptr, M.get(), b.get()));
    return relative_residual(A, x, b);
  };
  const std::string no_matching = "iparam[12] = 0";
  for (const Matrix& m : {poisson2d(12), elasticity3d(4, 1)}) {
    EXPECT_LT(residual_of(full(m)), 1e-12);
    EXPECT_NE(log.take().find(no_matching), std::string::npos);
  }
  // Zeros on the diagonal, entries beyond it, a diagonal that spreads: a matching and scaling help.
  Smat large = full(poisson2d(12));
  for (int k = large->ia[0]; k < large->ia[1]; ++k) large->a[k] *= large->ja[k] == 0 ? 1e-3 : 1;
  Smat spread = full(poisson2d(12));
  for (int i = 0; i < static_cast<int>(spread->m); ++i)
    for (int k = spread->ia[i]; k < spread->ia[i + 1]; ++k)
      spread->a[k] *= (i % 2 ? 1e6 : 1.0) * (spread->ja[k] % 2 ? 1e6 : 1.0);
  for (const Smat* A : {&large, &spread}) {
    EXPECT_LT(residual_of(*A), 1e-8);
    EXPECT_EQ(log.take().find(no_matching), std::string::npos);
  }
  EXPECT_LT(residual_of(full(stokes(6))), 1e-8);
  EXPECT_EQ(log.take().find(no_matching), std::string::npos);
}

TEST_F(MultigridTest, BlockSizesThatDoNotDivide) {
  NorvLog log(1);
  const Smat A = full(poisson2d(11));  // 121 unknowns
  const Precon amg = create("AMG", 5), smaggr = create("SMAGGR", 5);
  EXPECT_EQ(precon_setup(amg.get(), A.get()), 0);
  EXPECT_NE(log.take().find("Block size 5 doesn't divide the order 121."), std::string::npos);
  ASSERT_EQ(precon_setup(smaggr.get(), A.get()), 1);
  EXPECT_NE(log.take().find("bs: 1,"), std::string::npos);
}

TEST_F(MultigridTest, WritesFilesOnRequestOnly) {
  const Smat A = full(elasticity3d(5, 1));
  for (const int level : {1, 2}) {
    NorvLog log(level);
    const Precon M = create("AMG", 3);
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_EQ(std::filesystem::exists(log.directory() / "amg_level_cond_0.csrd"), level == 2);
  }
}

}  // namespace
}  // namespace vlm::test
