// SPDX-License-Identifier: BSD-3-Clause
/// Block elimination by levels: exact where nothing is dropped, its choices, its ends.
#include "multigrid_support.hpp"
#include "norv_log.hpp"

namespace vlm::test {
namespace {

class AmlTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("OMP_NUM_THREADS", "1", 0); }

  /// Without dropping and smoothing.
  static OwnAml exact(int max_levels) {
    OwnAml h(aml_new());
    h->max_levels = max_levels;
    h->min_size = 2;
    h->params.sparsify_fact = 0;
    h->params.smoothing_method = 0;
    return h;
  }

  RandomContainers random{41};
};

// Single unknowns leave a diagonal block, whose elimination is exact: one cycle solves, by either
// projection, in every kind.
TEST_F(AmlTest, ExactWithoutDropping) {
  for (const int type : {NORV_REAL_UNSYM, NORV_CPX_UNSYM})
    for (const int projection : {0, 1}) {
      Smat A = random.matrix(60, 60, type, 0.05, true);
      smat_add_diag(A.get(), 4.0);
      const Smat before(smat_copy(A.get()));
      OwnAml h = exact(6);
      h->params.projection_method = projection;
      ASSERT_EQ(aml_setup(h.get(), A.get()), 1);
      EXPECT_GT(h->num_levels, 2);
      const Vec b = random.vector(60, A->is_complex);
      const Vec x(aml_solve(h.get(), nullptr, b.get()));
      EXPECT_LT(relative_residual(A, x, b), 1e-12) << type << " " << projection;
      EXPECT_TRUE(smat_equal(A.get(), before.get()));
    }
}

TEST_F(AmlTest, OneLevelIsADirectSolve) {
  const Smat A = full(convection_diffusion(7, 10.0, 1));
  const Precon M(precon_new_by_name("AML"));
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  const Vec b = random.vector(A->m, 0), x(precon_solve(nullptr, M.get(), b.get()));
  EXPECT_LT(relative_residual(A, x, b), 1e-12);
}

// What is dropped, groups whose inner couplings are neglected, and a correction without the
// eliminated unknowns are all made good by smoothed cycles.
TEST_F(AmlTest, CyclesConverge) {
  for (const Matrix& m : {poisson2d(30), poisson3d(12), convection_diffusion(12, 4.0, 1),
                          helmholtz(20, 0.5, true, 6)})
    for (const int choice : {0, 1, 2, 3, 4, 5, 6, 7}) {
      const int groups = choice & 1, correction = choice >> 1 & 1, smoothing = 1 + (choice >> 2);
      SCOPED_TRACE(m.name + " " + std::to_string(groups) + std::to_string(correction) +
                   std::to_string(smoothing));
      const Smat A = full(m);
      if (groups == 1 || A->is_complex) smat_add_diag(A.get(), 3.0);  // definite, dominant
      OwnAml h(aml_new());
      h->params.sparsify_fact = 1e-5;
      h->params.coarsening_method = groups;
      h->params.correction_method = correction;
      h->params.smoothing_method = smoothing;  // ILUT, Gauss-Seidel
      h->params.pre_smooth = h->params.pst_smooth = 1;
      ASSERT_EQ(aml_setup(h.get(), A.get()), 1);
      EXPECT_GE(h->num_levels, 3);
      const Vec b = random.vector(A->m, A->is_complex), x = zeros(A->m, A->is_complex);
      EXPECT_LT(solve_aml(h.get(), x.get(), b.get(), 1e-9, 100), 40);
      EXPECT_LT(relative_residual(A, x, b), 1e-9);
    }
}

// No entry connects two groups, and the next level is R A P.
TEST_F(AmlTest, EliminatesGroupsThatAreApart) {
  for (const int size : {1, 2, 5}) {
    Smat A = random.matrix(80, 80, NORV_REAL_UNSYM, 0.03, true);
    smat_add_diag(A.get(), 4.0);
    OwnAml h = exact(2);
    h->params.coarsening_method = 1;
    h->params.coarsening_bis_bsize = size;
    ASSERT_EQ(aml_setup(h.get(), A.get()), 1);
    const auto& levels = *h->levels->of<double>();
    const Picture P = picture(levels.prolongation(0)), R = picture(levels.restriction(0));
    EXPECT_LT(distance(R * picture(A) * P, picture(levels.matrix(1))), 1e-12);
    // Unknowns that stay have a row of the identity; the others, joined along entries, the groups.
    const Picture M = picture(A);
    const auto stays = [&](int i) {
      for (int j = 0; j < P.n; ++j)
        if (P(i, j) == 1.0 && R(j, i) == 1.0) return true;
      return false;
    };
    std::vector<int> group(80, -1);
    for (int i = 0; i < 80; ++i) {
      if (group[std::size_t(i)] >= 0 || stays(i)) continue;
      std::vector<int> members = {i};
      group[std::size_t(i)] = i;
      for (std::size_t at = 0; at < members.size(); ++at)
        for (int j = 0; j < 80; ++j)
          if ((M(members[at], j) != 0.0 || M(j, members[at]) != 0.0) && !stays(j) &&
              group[std::size_t(j)] < 0) {
            group[std::size_t(j)] = i;
            members.push_back(j);
          }
      EXPECT_LE(int(members.size()), size);
    }
    EXPECT_LT(P.n, 70);
  }
}

// A matrix in which all are coupled with all has nothing to eliminate but one unknown; one whose
// diagonal is no pivot, nothing at all.
TEST_F(AmlTest, EndsWhereNothingIsLeftToEliminate) {
  Smat A = random.matrix(12, 12, NORV_REAL_UNSYM, 1.0, true);
  for (int k = 0; k < 12; ++k) A->a[13 * k] = 0.001;
  OwnAml h = exact(5);
  ASSERT_EQ(aml_setup(h.get(), A.get()), 1);
  EXPECT_EQ(h->num_levels, 1);
  const Vec b = random.vector(12, 0), x(aml_solve(h.get(), nullptr, b.get()));
  EXPECT_LT(relative_residual(A, x, b), 1e-10);
}

TEST_F(AmlTest, UnknownChoicesEndTheProcess) {
  const Smat A = full(poisson2d(12));
  const auto end = [&](int aml_params::*choice) {
    OwnAml h(aml_new());
    h->params.smoothing_method = 2;
    h->params.*choice = 7;
    aml_setup(h.get(), A.get());
  };
  for (const auto choice : {&aml_params::coarsening_method, &aml_params::aff_inversion_method,
                            &aml_params::projection_method, &aml_params::smoothing_method,
                            &aml_params::correction_method})
    EXPECT_EXIT(end(choice), ::testing::ExitedWithCode(1), "");
  NorvLog log(1);
  aml_params p{};
  p.smoothing_method = 2;
  p.projection_method = 9;
  aml_param_print(&p);
  const std::string text = log.take();
  EXPECT_NE(text.find("2 SMOOTHING_GS"), std::string::npos);
  EXPECT_NE(text.find("9 unknown"), std::string::npos);
}

}  // namespace
}  // namespace vlm::test
