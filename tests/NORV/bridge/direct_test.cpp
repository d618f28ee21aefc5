// SPDX-License-Identifier: BSD-3-Clause
// The bridge to the direct solver, against dense solutions.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <numeric>

#include "norv.h"
#include "norv_log.hpp"
#include "smat_dense.hpp"

namespace vlm::test {
namespace {

/// OMP_NUM_THREADS for the time of a test.
class ThreadsOf {
 public:
  explicit ThreadsOf(const char* threads) {
    if (const char* const before = getenv("OMP_NUM_THREADS")) before_ = before;
    threads ? setenv("OMP_NUM_THREADS", threads, 1) : unsetenv("OMP_NUM_THREADS");
  }
  ~ThreadsOf() { setenv("OMP_NUM_THREADS", before_.c_str(), 1); }

 private:
  std::string before_ = "1";
};

/// A random sparse matrix of a type, with a full diagonal of both signs.
Smat random_matrix(int n, int type, std::mt19937& random) {
  const bool cpx = type >= NORV_CPX_UNSYM, sym = type % 2 == 1;
  std::uniform_real_distribution<double> number(-1, 1);
  std::vector<int> row, col;
  std::vector<double> a;
  for (int i = 0; i < n; ++i)
    for (int j = sym ? i : 0; j < n; ++j) {
      if (i != j && random() % 5 != 0) continue;
      row.push_back(i), col.push_back(j);
      a.push_back(i == j ? (i % 2 ? 4.0 : -4.0) : number(random));
      if (cpx) a.push_back(number(random));
    }
  return Smat(
      smat_new_from_coord(n, n, unsigned(row.size()), row.data(), col.data(), a.data(), type));
}

Vec random_vec(unsigned n, int cpx, std::mt19937& random) {
  std::uniform_real_distribution<double> number(-1, 1);
  Vec x(cpx ? vec_new_cpx(n) : vec_new(n));
  for (unsigned i = 0; i < n * (1 + cpx); ++i) x->v[i] = number(random);
  return x;
}

double relative_residual(const smat* A, const vec* x, const vec* b) {
  const Vec r(smat_calc_residual(nullptr, A, x, b));
  return vec_euclid_norm(r.get()) / vec_euclid_norm(b);
}

TEST(Direct, SolvesEveryTypeAndLeavesTheMatrix) {
  const ThreadsOf one("1");
  std::mt19937 random(5);
  for (const int type : {NORV_REAL_UNSYM, NORV_REAL_SYM, NORV_CPX_UNSYM, NORV_CPX_SYM}) {
    const Smat A = random_matrix(40, type, random), before(smat_copy(A.get()));
    const int cpx = A->is_complex;
    direct_factorization* const f = direct_factorize_using(A.get(), "velmora");
    ASSERT_NE(f, nullptr);
    EXPECT_STREQ(f->name, "VELMORA");
    EXPECT_GT(direct_factor_entries(f), 40);
    EXPECT_GT(direct_factor_kilobytes(f), 0);
    const Vec b = random_vec(40, cpx, random), x(cpx ? vec_new_cpx(40) : vec_new(40));
    EXPECT_EQ(direct_solve(f, x.get(), b.get()), 0);
    EXPECT_LT(relative_residual(A.get(), x.get(), b.get()), 1e-12);
    const Vec over(vec_copy(nullptr, b.get()));
    EXPECT_EQ(direct_solve(f, over.get(), over.get()), 0);
    EXPECT_TRUE(vec_equal(over.get(), x.get()));

    const Vec several = random_vec(120, cpx, random), answers(vec_copy(nullptr, several.get()));
    EXPECT_EQ(direct_solve_multiple_rhs(f, answers.get(), several.get(), 3), 0);
    for (unsigned k = 0; k < 3; ++k) {
      const std::size_t at = 40 * k * (1 + std::size_t(cpx));
      vec bk{40, several->v + at, 40, cpx}, xk{40, answers->v + at, 40, cpx};
      EXPECT_LT(relative_residual(A.get(), &xk, &bk), 1e-12);
    }
    EXPECT_TRUE(smat_equal_structure(A.get(), before.get()));
    if (type == NORV_REAL_SYM) {
      EXPECT_EQ(A->npos, 20);  // by the diagonal, which dominates little: checked below
      EXPECT_EQ(A->npos + A->nneg, 40);
    } else {
      EXPECT_EQ(A->npos + A->nneg + A->nperturbed, 0);
    }
    // New values on the old analysis.
    smat_scale_scalar(2.0, A.get());
    norv_velmora_factorize(f, A.get());
    const Vec half(vec_copy(nullptr, b.get()));
    direct_solve(f, half.get(), b.get());
    vec_scale(2.0, half.get());
    EXPECT_TRUE(vec_equal_up_to(half.get(), x.get(), 1e-12));
    direct_free(f);
    EXPECT_EQ(direct_fact_solve(before.get(), half.get(), b.get()), 0);
    EXPECT_TRUE(vec_equal_up_to(half.get(), x.get(), 1e-12));
  }
  EXPECT_EQ(direct_solve(nullptr, nullptr, nullptr), -1);
  direct_free(nullptr);
  direct_free(direct_factorization_new());
}

TEST(Direct, OrderOfTheUser) {
  const ThreadsOf one("1");
  std::mt19937 random(6);
  const Smat A = random_matrix(30, NORV_REAL_SYM, random);
  const Perm p(perm_new(30));
  std::iota(p->p, p->p + 30, 0);
  std::shuffle(p->p, p->p + 30, random);
  direct_factorization* const f = norv_velmora_analyse_iparam(A.get(), p.get(), "12:0,10:0");
  ASSERT_NE(f->perm, nullptr);
  for (int i = 0; i < 30; ++i) EXPECT_EQ(f->perm->p[p->p[i]], i + 1);
  norv_velmora_factorize(f, A.get());
  const Vec b = random_vec(30, 0, random), x(vec_new(30));
  EXPECT_EQ(norv_velmora_solve(f, x.get(), b.get()), 0);
  EXPECT_LT(relative_residual(A.get(), x.get(), b.get()), 1e-12);
  norv_velmora_free(f);
}

TEST(Direct, ZerosOfADiagonalMatrixBecomeSmallPivots) {
  const ThreadsOf one("1");
  for (const int cpx : {0, 1}) {
    NorvLog log(1);
    const int index[] = {0, 1, 2};
    const double real[] = {2, 0, -4}, complex[] = {2, 0, 0, 0, 0, 1};
    const Smat A(smat_new_from_coord(3, 3, 3, index, index, cpx ? complex : real,
                                     cpx ? NORV_CPX_SYM : NORV_REAL_SYM));
    direct_factorization* const f = direct_factorize(A.get());
    EXPECT_NE(log.take().find("Coarse Grid Diagonal Matrix is singularin row 1 apply perturbation "
                              "with 1.000000e-08"),
              std::string::npos);
    EXPECT_EQ(value(A->a, cpx, 1), 1e-8);
    if (!cpx) {
      EXPECT_EQ(A->npos, 2);
    }
    const Vec b(cpx ? vec_new_cpx(3) : vec_new(3)), x(vec_copy(nullptr, b.get()));
    vec_set(1.0, b.get());
    direct_solve(f, x.get(), b.get());
    EXPECT_NEAR(std::abs(value(x->v, cpx, 1)), 1e8, 1);
    direct_free(f);
  }
}

TEST(Direct, Defaults) {
  const ThreadsOf three("3");
  std::mt19937 random(7);
  for (const int type : {NORV_REAL_UNSYM, NORV_REAL_SYM, NORV_CPX_UNSYM, NORV_CPX_SYM}) {
    const Smat A = random_matrix(3, type, random);
    std::vector<int> iparm(65, 7);
    double dparm[64];
    int mtype = 0;
    velmora_set_default(A.get(), iparm.data() + 1, dparm, &mtype);  // iparm[k] is iparm(k)
    std::vector<int> expected(65, 0);
    expected[0] = 7, expected[1] = 1, expected[2] = 2, expected[3] = 3;
    expected[11] = expected[13] = expected[24] = expected[25] = 1, expected[35] = 10;
    expected[18] = expected[19] = -1;
    if (A->sym)
      expected[10] = 8, expected[21] = 1;
    else
      expected[8] = 2, expected[10] = 13;
    iparm[0] = 7;
    EXPECT_EQ(iparm, expected);
    const int types[] = {11, -2, 13, 6};
    EXPECT_EQ(mtype, types[type]);
  }
}

TEST(Direct, CustomString) {
  NorvLog log(1);
  const auto parse = [&](const char* text, std::vector<std::pair<int, int>> set, const char* said) {
    std::vector<int> iparm(64, 0), expected(64, 0);
    velmora_set_custom_iparam(text, iparm.data());
    for (const auto& [index, value] : set) expected[index] = value;
    EXPECT_EQ(iparm, expected) << text;
    EXPECT_NE(log.take().find(said), std::string::npos) << text;
  };
  parse("2:5,10:-3", {{2, 5}, {10, -3}}, "Setting  iparam[10] = -3\n");
  parse("2;5", {}, "Invalid IPARM string.  Expected `:', found `;'.");
  parse("2:x", {}, "Invalid IPARM string.  Expected value, found `x'.");
  parse("2:5;3:1", {{2, 5}}, "Invalid IPARM string.  Expected `,', found `;'.");
  parse("64:5", {}, "Invalid IPARM string.");
  parse("", {}, "");
}

TEST(DirectDeathTest, EndsTheProcess) {
  std::mt19937 random(8);
  const Smat A = random_matrix(5, NORV_REAL_SYM, random);
  {
    const ThreadsOf nothing(nullptr);
    EXPECT_EXIT(
        {
          dup2(STDERR_FILENO, STDOUT_FILENO);
          direct_factorize(A.get());
        },
        ::testing::ExitedWithCode(9),
        "\n\\[VELMORA/ML\\]>> Set OMP_NUM_THREADS by e.g. export OMP_NUM_THREADS=1\n");
  }
  const ThreadsOf one("1");
  NorvLog log(1);
  A->a[1] = NAN;
  EXPECT_EXIT(direct_factorize(A.get()), ::testing::ExitedWithCode(9), "");
  EXPECT_EQ(direct_factorize_using(A.get(), "other"), nullptr);
  EXPECT_NE(log.take().find("Direct solver other not available!"), std::string::npos);
}

TEST(PreconLu, IsTheInverse) {
  const ThreadsOf one("1");
  std::mt19937 random(9);
  const Smat A = random_matrix(50, NORV_REAL_SYM, random);
  precon* const M = precon_new_by_name("lu");
  ASSERT_EQ(precon_setup(M, A.get()), 1);
  const Vec b = random_vec(50, 0, random), x(precon_solve(nullptr, M, b.get()));
  EXPECT_LT(relative_residual(A.get(), x.get(), b.get()), 1e-12);
  EXPECT_EQ(M->npos + M->nneg, 50);
  EXPECT_GT(M->nnz, 50);
  precon_free(M, -1);
}

}  // namespace
}  // namespace vlm::test
