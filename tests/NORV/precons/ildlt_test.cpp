// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete LDL^T: without dropping it is an exact factorization, whatever is delayed, paired or
/// left as Schur complement; what dropping, fill limit and compensation take away is what they say.
#include "NORV/precons/ildlt.hpp"

#include "norv_log.hpp"
#include "reference.hpp"
#include "smat_dense.hpp"

namespace {

using namespace vlm::norv;
using namespace vlm::test;

template <class T>
struct TypeOf {
  static constexpr int value = std::is_same_v<T, double> ? NORV_REAL_SYM : NORV_CPX_SYM;
};

/// Symmetric, about half of its diagonal zero.
template <class T>
Smat indefinite(RandomContainers& random, int n, double density) {
  Smat A = random.matrix(unsigned(n), unsigned(n), TypeOf<T>::value, density, true);
  for (int i = 0; i < n; ++i)
    if (random.number() < 0) vlm::values_as<T>(A->a)[A->ia[i]] = T();
  return A;
}

IldltOptions exact() {
  IldltOptions o;
  o.drop = 0;
  o.max_fill = 0;
  return o;
}

template <class T>
IldltResult<T> factorize(const Smat& A, const IldltOptions& options, const T* target = nullptr) {
  return factorize_ildlt(permuted_upper<T>(A.get(), nullptr, nullptr), options, target);
}

template <class T>
Picture lower(const LdltFactor<T>& f) {
  Picture L(f.n, f.n);
  for (int i = 0; i < f.n; ++i) L(i, i) = 1;
  for (int k = 0; k < f.pivots; ++k) {
    for (auto p = f.start[k]; p < f.start[k + 1]; p += f.is_pair[k] ? 2 : 1) {
      L(f.column[p], k) = f.value[p];
      if (f.is_pair[k]) L(f.column[p], k + 1) = f.value[p + 1];
    }
    if (f.is_pair[k]) ++k;
  }
  return L;
}

/// D, and behind it the Schur complement.
template <class T>
Picture middle(const IldltResult<T>& r) {
  const LdltFactor<T>& f = r.factor;
  Picture D(f.n, f.n);
  for (int k = 0; k < f.pivots; ++k) {
    D(k, k) = f.d[k];
    if (f.is_pair[k]) D(k, k + 1) = D(k + 1, k) = f.e[k];
  }
  for (int i = 0; i < r.schur.n; ++i)
    for (auto p = r.schur.start[i]; p < r.schur.start[i + 1]; ++p) {
      const int j = r.schur.column[p];
      D(f.pivots + i, f.pivots + j) = D(f.pivots + j, f.pivots + i) = r.schur.value[p];
    }
  return D;
}

/// L D L^T in the order of the matrix, relative to the growth of L.
template <class T>
double error_of(const Smat& A, const IldltResult<T>& r) {
  const Picture L = lower(r.factor), P = L * middle(r) * transposed(L), D = picture(A);
  double worst = 0, growth = 1;
  for (const cplx& x : L.v) growth = std::max(growth, std::abs(x));
  for (int i = 0; i < D.m; ++i)
    for (int j = 0; j < D.m; ++j)
      worst = std::max(worst, std::abs(P(r.place[i], r.place[j]) - D(i, j)));
  return worst / (growth * growth);
}

vlm::test::Dense dense(const Picture& P) {
  vlm::test::Dense D;
  D.n = P.m;
  D.a.assign(P.v.begin(), P.v.end());  // symmetric: rows are columns
  return D;
}

template <class T>
class IldltExact : public ::testing::Test {};
using Scalars = ::testing::Types<double, vlm::zcomplex>;
TYPED_TEST_SUITE(IldltExact, Scalars);

TYPED_TEST(IldltExact, ReproducesTheMatrixUnderAllStrategies) {
  using T = TypeParam;
  RandomContainers random(17);
  int pairs = 0, delays = 0, exchanges = 0, schurs = 0;
  for (const PairChoice choice :
       {PairChoice::none, PairChoice::tridiagonal, PairChoice::column, PairChoice::dominance}) {
    if (choice == PairChoice::dominance && vlm::is_complex_v<T>) continue;
    for (const bool schur : {false, true})
      for (int run = 0; run < 60; ++run) {
        const Smat A = indefinite<T>(random, 1 + run % 25, 0.25);
        IldltOptions o = exact();
        o.pair_choice = choice;
        o.pivot_2x2 = 1.5;
        o.keep_schur = schur;
        o.kappa = run % 3 == 0 ? 0 : run % 3 == 1 ? 1.3 : 4;
        o.condest = static_cast<CondestStrategy>(run % (vlm::is_complex_v<T> ? 4 : 6));
        if (run % 5 == 4) o.estimator = Estimator::fixed;
        const IldltResult<T> r = factorize<T>(A, o);
        // A singular matrix has pivots that are replaced by the threshold.
        EXPECT_LT(error_of(A, r), r.statistics.perturbed > 0 ? 2 * o.pivot_1x1 : 1e-10)
            << "choice " << int(choice) << " schur " << schur << " run " << run;
        pairs += int(r.statistics.pairs);
        exchanges += int(r.statistics.exchanges);
        delays += int(r.statistics.delayed_scalar + r.statistics.delayed_eigenvalue_1x1);
        schurs += r.schur.n > 0;
        EXPECT_EQ(r.schur.n, schur ? A->m - r.factor.pivots : 0);
      }
  }
  EXPECT_GT(pairs, 100);
  EXPECT_GT(delays, 100);
  EXPECT_GT(exchanges, 20);
  EXPECT_GT(schurs, 50);
}

/// Eliminates the dense matrix pivot by pivot in the order that was found, with the entries that
/// the factor kept: largest distance from its values and from the Schur complement.
/// @param left_out  whether what was dropped takes part in the updates, times what was kept
template <class T>
double replayed(const Smat& A, const IldltResult<T>& r, bool left_out) {
  const LdltFactor<T>& f = r.factor;
  const int n = f.n;
  const Picture original = picture(A), L = lower(f), D = middle(r);
  Picture W(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) W(r.place[i], r.place[j]) = original(i, j);
  double worst = 0;
  for (int k = 0; k < f.pivots;) {
    const int width = f.is_pair[k] ? 2 : 1, next = k + width;
    const cplx d = W(k, k), e = width == 2 ? W(k, k + 1) : 0, g = width == 2 ? W(k + 1, k + 1) : 1;
    for (int p = k; p < next; ++p)
      for (int q = k; q < next; ++q) worst = std::max(worst, std::abs(W(p, q) - D(p, q)));
    Picture all(n, width), kept(n, width);  // rows of L^T, before and after dropping
    for (int j = next; j < n; ++j) {
      const cplx x = W(k, j), y = width == 2 ? W(k + 1, j) : 0;
      all(j, 0) = (g * x - e * y) / (d * g - e * e);
      if (width == 2) all(j, 1) = (d * y - e * x) / (d * g - e * e);
      for (int w = 0; w < width; ++w)
        if ((kept(j, w) = L(j, k + w)) != cplx())
          worst = std::max(worst, std::abs(kept(j, w) - all(j, w)));
    }
    const Picture block = window(W, k, next, k, next), KD = kept * block, AD = all * block;
    const Picture KK = KD * transposed(kept), AK = AD * transposed(kept), KA = KD * transposed(all);
    for (int i = next; i < n; ++i)
      for (int j = next; j < n; ++j)
        W(i, j) -= left_out ? AK(i, j) + KA(i, j) - KK(i, j) : KK(i, j);
    k = next;
  }
  for (int i = f.pivots; i < n; ++i)
    for (int j = f.pivots; j < n; ++j) worst = std::max(worst, std::abs(W(i, j) - D(i, j)));
  return worst;
}

TYPED_TEST(IldltExact, DroppedEntriesActAsTheyShould) {
  using T = TypeParam;
  RandomContainers random(29);
  std::int64_t dropped = 0, delays = 0, pairs = 0;
  for (const bool left_out : {false, true})
    for (int run = 0; run < 80; ++run) {
      const Smat A = indefinite<T>(random, 5 + run % 25, 0.3);
      IldltOptions o = exact();
      o.drop = 0.1;
      o.max_fill = run % 2 ? 0.8 : 0;
      o.pivot_2x2 = 1.5;
      o.keep_schur = run % 4 > 1;
      o.kappa = run % 3 ? 3 : 0;
      o.second_drop = left_out ? 0 : -1;
      const IldltResult<T> r = factorize<T>(A, o);
      if (r.statistics.perturbed > 0 || r.statistics.bad_delayed > 0) continue;
      EXPECT_LT(replayed(A, r, left_out), 1e-8) << "run " << run << " left out " << left_out;
      dropped += r.statistics.dropped_1x1 + r.statistics.dropped_2x2 + r.statistics.clipped;
      delays += r.statistics.delayed_scalar + r.statistics.delayed_pairs;
      pairs += r.statistics.pairs;
    }
  EXPECT_GT(dropped, 500);
  EXPECT_GT(delays, 50);
  EXPECT_GT(pairs, 100);
}

TEST(Ildlt, CountsTheInertia) {
  RandomContainers random(5);
  for (int run = 0; run < 40; ++run) {
    const Smat A = indefinite<double>(random, 20, 0.3);
    IldltOptions o = exact();
    o.kappa = run % 2 ? 2 : 0;
    o.pivot_2x2 = 0.6;
    const IldltResult<double> r = factorize<double>(A, o);
    if (r.statistics.perturbed > 0) continue;
    const Inertia expected = dense_inertia(dense(picture(A)));
    EXPECT_EQ((Inertia{r.factor.npos, r.factor.nneg}), expected) << run;
  }
}

TEST(Ildlt, SweepsSolve) {
  RandomContainers random(9);
  const int n = 30;
  const Smat A = indefinite<double>(random, n, 0.2);
  IldltOptions o = exact();
  o.pivot_2x2 = 1;
  const IldltResult<double> r = factorize<double>(A, o);
  ASSERT_GT(r.statistics.pairs, 0);
  Picture x(n, 1);
  for (int i = 0; i < n; ++i) x(i, 0) = random.number();
  const Picture b = picture(A) * x;
  std::vector<double> w(n);
  for (int i = 0; i < n; ++i) w[r.place[i]] = b(i, 0).real();
  std::vector<double> v = w;
  solve_forward(r.factor, w.data());
  solve_diagonal_backward(r.factor, w.data());
  solve_forward(r.factor, v.data());  // the same in three steps
  solve_diagonal(r.factor, v.data());
  solve_backward(r.factor, v.data());
  for (int i = 0; i < n; ++i) {
    EXPECT_NEAR(w[r.place[i]], x(i, 0).real(), 1e-9);
    EXPECT_NEAR(v[i], w[i], 1e-9);
  }
}

/// n by n matrix from its upper entries.
Smat symmetric(int n, std::vector<int> i, std::vector<int> j, std::vector<double> a) {
  return Smat(smat_new_from_coord(unsigned(n), unsigned(n), unsigned(i.size()), i.data(), j.data(),
                                  a.data(), NORV_REAL_SYM));
}

TEST(Ildlt, TridiagonalRulePairsZeroDiagonals) {
  const Smat A = symmetric(2, {0, 0, 1}, {0, 1, 1}, {0, 1, 0});
  const IldltResult<double> r = factorize<double>(A, exact());
  EXPECT_EQ(r.statistics.pairs, 1);
  EXPECT_EQ(r.factor.npos, 1);
  EXPECT_EQ(r.factor.nneg, 1);
  // |d| = 0.5 against 0.6 |e|^2 = 0.6: a pair; against 0.4: none
  const Smat B = symmetric(2, {0, 0, 1}, {0, 1, 1}, {0.5, 1, 0.3});
  IldltOptions o = exact();
  o.pivot_2x2 = 0.6;
  EXPECT_EQ(factorize<double>(B, o).statistics.pairs, 1);
  o.pivot_2x2 = 0.4;
  EXPECT_EQ(factorize<double>(B, o).statistics.pairs, 0);
}

TEST(Ildlt, DominanceRuleComparesAsItStands) {
  // d = 4, e = 1, f = 4: dom1 = 1/4; the block's inverse has row sums (4+1)/15, dom2 = 1/3 with
  // nothing behind the pair: the pair is taken although 1x1 pivots would do.
  const Smat A = symmetric(2, {0, 0, 1}, {0, 1, 1}, {4, 1, 4});
  IldltOptions o = exact();
  o.pair_choice = PairChoice::dominance;
  EXPECT_EQ(factorize<double>(A, o).statistics.pairs, 1);
  // e = 0: dom2 stays 0.
  const Smat B = symmetric(3, {0, 0, 1, 2}, {0, 2, 1, 2}, {4, 1, 4, 4});
  EXPECT_EQ(factorize<double>(B, o).statistics.pairs, 0);
}

TEST(Ildlt, ModesOfSmallPivots) {
  const Smat A = symmetric(3, {0, 0, 1, 1, 2}, {0, 2, 1, 2, 2}, {1e-3, 0.2, 1, 0.3, 2});
  IldltOptions o = exact();
  o.pair_choice = PairChoice::none;
  o.pivot_1x1 = 1e-2;
  o.small_pivot = SmallPivot::ignore;
  IldltResult<double> r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.d[0], 1e-3);
  EXPECT_EQ(r.statistics.perturbed, 0);
  o.small_pivot = SmallPivot::perturb;
  r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.d[0], 1e-2);
  EXPECT_EQ(r.statistics.perturbed, 1);
  EXPECT_EQ(r.statistics.first_perturbed, 0);
  o.small_pivot = SmallPivot::delay;
  r = factorize<double>(A, o);
  EXPECT_EQ(r.statistics.delayed_scalar, 1);
  EXPECT_EQ(r.place[0], 2);  // behind the others, where it is no longer small
  EXPECT_LT(error_of(A, r), 1e-12);
  o.keep_schur = true;
  r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.pivots, 2);
  EXPECT_EQ(r.schur.n, 1);
  // A pivot of 0.005 is no small one for this threshold, but its eigenvalue is.
  const Smat B = symmetric(2, {0, 0, 1}, {0, 1, 1}, {0.005, 0.5, 1});
  o.pivot_1x1 = 1e-8;
  EXPECT_EQ(factorize<double>(B, o).statistics.delayed_eigenvalue_1x1, 1);
  o.small_pivot = SmallPivot::perturb;
  EXPECT_EQ(factorize<double>(B, o).statistics.delayed_eigenvalue_1x1, 0);
}

TEST(Ildlt, LastRowGoesToTheSchurComplement) {
  const Smat A = symmetric(2, {0, 1}, {0, 1}, {1, 0});
  IldltOptions o = exact();
  o.keep_schur = true;
  const IldltResult<double> r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.pivots, 1);
  EXPECT_EQ(r.schur.n, 1);
  o.keep_schur = false;  // nowhere to go
  NorvLog log(1);
  const IldltResult<double> s = factorize<double>(A, o);
  EXPECT_EQ(s.statistics.bad_delayed, 1);
  EXPECT_NE(log.take().find("SHOULD NOT HAPPEN..."), std::string::npos);
  EXPECT_TRUE(std::isfinite(1 / s.factor.d[1]));
}

TEST(Ildlt, KappaBoundsTheInverse) {
  // Rows of L^-1 that double from row to row: without a bound they reach 2^20.
  const int n = 21;
  std::vector<int> i, j;
  std::vector<double> a;
  for (int k = 0; k < n; ++k) {
    i.push_back(k), j.push_back(k), a.push_back(1 + 4.0 * (k > 0));
    if (k + 1 < n) i.push_back(k), j.push_back(k + 1), a.push_back(-2);
  }
  const Smat A = symmetric(n, i, j, a);
  IldltOptions o = exact();
  o.keep_schur = true;
  o.pair_choice = PairChoice::none;
  EXPECT_EQ(factorize<double>(A, o).schur.n, 0);
  EXPECT_GT(factorize<double>(A, o).statistics.norm, 1e5);
  o.kappa = 10;
  const IldltResult<double> r = factorize<double>(A, o);
  EXPECT_GT(r.schur.n, 0);
  EXPECT_LE(r.statistics.norm, 10);
  EXPECT_LT(error_of(A, r), 1e-10);
  // The true norm of the leading block's inverse stays near the bound.
  Picture L = window(lower(r.factor), 0, r.factor.pivots, 0, r.factor.pivots);
  double worst = 0;
  for (int c = 0; c < L.n; ++c) {
    std::vector<cplx> x(std::size_t(L.n));
    x[std::size_t(c)] = 1;
    for (int k = 0; k < L.n; ++k)
      for (int l = k + 1; l < L.n; ++l) x[std::size_t(l)] -= L(l, k) * x[std::size_t(k)];
    for (const cplx& v : x) worst = std::max(worst, std::abs(v));
  }
  EXPECT_LE(worst, 100);
}

TEST(Ildlt, DropsByThresholdAndLimit) {
  // First row 10, 1, 0.2, 0.05 (largest 1): diagonal threshold 0.01 |d| = 0.1.
  const Smat A =
      symmetric(4, {0, 0, 0, 0, 1, 2, 3}, {0, 1, 2, 3, 1, 2, 3}, {10, 1, 0.2, 0.05, 5, 5, 5});
  IldltOptions o = exact();
  o.pair_choice = PairChoice::none;
  o.drop = 0.01;
  o.drop_style = DropStyle::diagonal;
  IldltResult<double> r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.start[1], 2);
  EXPECT_EQ(r.factor.value[0], 0.1);
  // Inverse-based: 0.01 * 10 / (norm * 1) with norm max(|z|) = 1 for the first row.
  o.drop_style = DropStyle::inverse;
  o.drop = 0.004;
  r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.start[1], 3);
  // 10 of 16 entries are stored in full: 0.4 * 10 / 4 = 1 entry a row.
  o.drop = 0;
  o.max_fill = 0.4;
  r = factorize<double>(A, o);
  EXPECT_EQ(r.factor.start[1], 1);
  EXPECT_EQ(r.factor.column[0], 1);  // the largest
  EXPECT_EQ(r.statistics.clipped_rows, 1);
  EXPECT_EQ(r.statistics.clipped, 2);
}

TYPED_TEST(IldltExact, CompensationKeepsTheEffectOnTheTarget) {
  using T = TypeParam;
  RandomContainers random(3);
  const int n = 25;
  Smat A = random.matrix(n, n, TypeOf<T>::value, 0.3, true);
  for (int i = 0; i < n; ++i) vlm::values_as<T>(A->a)[A->ia[i]] += T(8);
  std::vector<T> target(n);
  for (T& t : target) t = T(1 + 0.5 * random.number());
  IldltOptions o = exact();
  o.pair_choice = PairChoice::none;
  o.drop = 0.02;
  o.compensate = true;
  const IldltResult<T> r = factorize<T>(A, o, target.data());
  ASSERT_GT(r.statistics.dropped_1x1, 20);
  const Picture L = lower(r.factor), M = L * middle(r) * transposed(L);
  Picture t(n, 1), s(n, 1);
  for (int i = 0; i < n; ++i) t(r.place[i], 0) = s(i, 0) = target[std::size_t(i)];
  const Picture kept = M * t, wanted = picture(A) * s;
  for (int i = 0; i < n; ++i) EXPECT_LT(std::abs(kept(r.place[i], 0) - wanted(i, 0)), 1e-10) << i;
}

TEST(Ildlt, SkippedRowsAreCutOff) {
  const Smat A = symmetric(3, {0, 0, 1, 1, 2}, {0, 1, 1, 2, 2}, {0, 1, 2, 1, 3});
  IldltOptions o = exact();
  o.pair_choice = PairChoice::none;
  o.postponing = Postponing::skip;
  const IldltResult<double> r = factorize<double>(A, o);
  EXPECT_EQ(r.statistics.skipped, 1);
  EXPECT_EQ(r.factor.start[1], 0);
  EXPECT_EQ(r.factor.d[1], 2);  // no update from the skipped row
  EXPECT_EQ(r.place[0], 0);
}

TEST(Ildlt, LeadingRowsAloneLeaveTheExactSchurComplement) {
  RandomContainers random(4);
  const int n = 20, leading = 12;
  Smat A = random.matrix(n, n, NORV_REAL_SYM, 0.3, true);
  for (int i = 0; i < n; ++i) A->a[A->ia[i]] += 5;
  IldltOptions o = exact();
  o.keep_schur = true;
  o.leading = leading;
  const IldltResult<double> r = factorize<double>(A, o);
  ASSERT_EQ(r.factor.pivots, leading);
  const vlm::test::Dense S = dense_schur(dense(picture(A)), leading);
  const Picture M = middle(r);
  for (int i = 0; i < n - leading; ++i)
    for (int j = 0; j < n - leading; ++j)
      EXPECT_LT(std::abs(M(leading + i, leading + j) - S(i, j)), 1e-10);
}

}  // namespace
