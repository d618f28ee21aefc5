// SPDX-License-Identifier: BSD-3-Clause
// The frame of the preconditioners, and the diagonal.
#include "NORV/precons/precons.hpp"

#include <gtest/gtest.h>

#include "norv_log.hpp"
#include "norv_objects.hpp"
#include "smat_dense.hpp"

namespace vlm::test {
namespace {

const char* const names[] = {
    "DUMMY",   "XFSAI", "MFSAI",    "AUGBLOCK",  "CP_DIRECT", "SPAINDIAG", "SPAIONE",  "ILUT",
    "ILU0",    "ILUC",  "LU",       "DIAG",      "SOR",       "AML",       "AMG",      "BLOCKLU",
    "BLOCKGS", "ICHOL", "PARILDLT", "ILDLT_CP",  "ILDLT_SP",  "ILDLT_WS",  "ILDLT_BK", "ILDLT",
    "MILDLT",  "SAINV", "BAINV",    "SCHILDERS", "SMAGGR",    "MPS_DIAG"};

TEST(PreconTable, EveryRowAnswers) {
  NorvLog log(1);
  for (const std::string name : names) {
    std::string lower = name;
    for (char& c : lower) c = char(std::tolower(c));
    const Precon M(precon_new_by_name(lower.c_str()));
    ASSERT_NE(M, nullptr) << name;
    EXPECT_NE(M->create, nullptr) << name;
    EXPECT_EQ(log.take(), "");
  }
  EXPECT_EQ(precon_new_by_name("ILDLT_"), nullptr);  // the whole name
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(std::string(Precon(precon_new_by_name("dummy"))->name), "DUMMY");
}

/// A class of a user's own: twice x, and for the transpose nothing.
vec* twice(vec* result, precon*, const vec* x) { return vec_copy_scaled(2.0, result, x); }

TEST(PreconFrame, GoesThroughTheRecord) {
  NorvLog log;
  precon mine{};
  mine.apply = twice;
  EXPECT_EQ(precon_setup(&mine, nullptr), 1);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> \tNORV/corelib/precons: No setup necessary.\n");
  for (const bool cpx : {false, true}) {
    const Vec b(cpx ? vec_new_cpx(7) : vec_new(7)), other(cpx ? vec_new_cpx(7) : vec_new(7));
    for (unsigned i = 0; i < 7u * (1 + cpx); ++i) b->v[i] = i + 1.0;
    const Vec fresh(precon_solve(nullptr, &mine, b.get()));
    EXPECT_EQ(precon_solve(other.get(), &mine, b.get()), other.get());
    EXPECT_EQ(fresh->is_complex, int(cpx));
    EXPECT_EQ(fresh->v[6], 14.0);
    EXPECT_TRUE(vec_equal(fresh.get(), other.get()));
    const Vec unchanged(precon_solve(nullptr, nullptr, b.get()));
    EXPECT_TRUE(vec_equal(unchanged.get(), b.get()));
    EXPECT_EQ(precon_solve(b.get(), &mine, b.get()), b.get());
    EXPECT_TRUE(vec_equal(fresh.get(), b.get()));
  }
  precon_free(nullptr, -1);
}

TEST(PreconFrameDeathTest, TellsTheCallersFaults) {
  precon mine{};
  mine.apply = twice;
  const Vec b(vec_new_zero(3));
  EXPECT_DEATH(precon_setup(nullptr, nullptr), "precon != 0");
  EXPECT_DEATH(precon_solve(nullptr, &mine, nullptr), "b != 0");
  EXPECT_DEATH(precon_solve_trans(nullptr, &mine, b.get()), "apply_trans != 0");
}

TEST(PreconDiag, DividesByTheDiagonal) {
  std::mt19937 random(3);
  for (const int type : {NORV_REAL_UNSYM, NORV_REAL_SYM, NORV_CPX_UNSYM, NORV_CPX_SYM}) {
    const int cpx = type >= NORV_CPX_UNSYM;
    const int row[] = {0, 0, 1, 2}, col[] = {0, 2, 1, 2};
    const double real[] = {2, 9, -4, 0}, complex[] = {3, 4, 9, 9, 0, -2, 0, 0};
    const Smat A(smat_new_from_coord(3, 3, 4, row, col, cpx ? complex : real, type));
    const Precon M(precon_diag_create());
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);  // again, in place of the first
    const Vec b(cpx ? vec_new_cpx(3) : vec_new(3));
    vec_set(1.0, b.get());
    const Vec x(precon_solve(nullptr, M.get(), b.get())),
        xt(precon_solve_trans(nullptr, M.get(), b.get()));
    EXPECT_TRUE(vec_equal(x.get(), xt.get()));
    for (int i = 0; i < 3; ++i) {
      const cplx d = value(A->a, cpx, i == 0 ? 0 : std::size_t(i) + 1);
      EXPECT_LE(std::abs(value(x->v, cpx, std::size_t(i)) - 1.0 / (d == 0.0 ? 1.0 : d)), 1e-15);
    }
    EXPECT_EQ(M->nperturbed, 1);
    EXPECT_EQ(M->npos, cpx ? 0 : 2);
    EXPECT_EQ(M->nneg, cpx ? 0 : 1);
  }
}

}  // namespace
}  // namespace vlm::test
