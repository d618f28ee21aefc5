// SPDX-License-Identifier: BSD-3-Clause
/// Parts of an incomplete factor sweep as the whole one, to the same bits for any number of threads.
#include "NORV/precons/factor_parts.hpp"

#include "NORV/precons/ildlt.hpp"
#include "NORV/precons/preorder.hpp"
#include "gallery.hpp"
#include "norv_log.hpp"
#include "reference.hpp"
#include "smat_dense.hpp"

namespace {

using namespace vlm::norv;
using namespace vlm::test;

/// Pairs, delayed rows and dropped entries.
template <class T>
LdltFactor<T> factor_of(Matrix m) {
  for (int& index : m.ia) --index;
  for (int& index : m.ja) --index;
  smat* const A = smat_new_from(unsigned(m.n), unsigned(m.n), m.ia.data(), m.ja.data(), m.a.data(),
                                m.mtype == 6 ? NORV_CPX_SYM : NORV_REAL_SYM, 0);
  UpperRows<T> rows = permuted_upper<T>(A, nullptr, nullptr);
  std::free(A);
  const LevelOrder order = order_level(rows, Preordering::metis_matched);
  IldltOptions options;
  options.drop = 1e-3;
  options.kappa = 1.5;
  options.pivot_2x2 = 0.616;
  options.keep_schur = true;
  return factorize_ildlt(permuted_upper(rows, order.place.data(), order.scale.data()), options,
                         static_cast<const T*>(nullptr))
      .factor;
}

template <class T>
void compare(const LdltFactor<T>& whole) {
  ASSERT_LT(whole.pivots, whole.n);
  FactorParts<T> parts(whole);
  vlm::Vector<T> start(whole.n);
  for (int i = 0; i < whole.n; ++i) start[i] = T(std::sin(1.0 + i));
  vlm::Vector<T> forward = start, back;
  solve_forward(whole, forward.data());
  back = forward;
  solve_diagonal_backward(whole, back.data());
  const auto farthest = [](const vlm::Vector<T>& x, const vlm::Vector<T>& y) {
    double most = 0, size = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
      most = std::max(most, std::abs(x[i] - y[i]));
      size = std::max(size, std::abs(y[i]));
    }
    return most / size;
  };
  vlm::Vector<T> first;
  for (const int threads : {1, 2, 5}) {
    vlm::Vector<T> y = start;
    parts.forward(y.data(), threads);
    EXPECT_LT(farthest(y, forward), 1e-13);
    parts.diagonal_backward(y.data(), threads);
    EXPECT_LT(farthest(y, back), 1e-13);
    if (first.empty()) first = y;
    EXPECT_EQ(y, first) << threads << " threads";
  }
}

TEST(FactorParts, SweepAsTheWhole) {
  NorvLog log(0);
  compare(factor_of<double>(shifted_laplacian(40, 1.3, true, 3)));
  compare(factor_of<vlm::zcomplex>(helmholtz(30, 4.0, true, 6)));
}

// Fewer pivots than parts, and none.
TEST(FactorParts, SmallFactors) {
  LdltFactor<double> f;
  f.n = 3;
  f.pivots = 0;
  f.start = {0};
  vlm::Vector<double> y = {1, 2, 3};
  FactorParts<double> none(f);
  none.forward(y.data(), 2);
  none.diagonal_backward(y.data(), 2);
  EXPECT_EQ(y, (vlm::Vector<double>{1, 2, 3}));
  f.pivots = 2;  // the pair [1 2; 2 1], coupled with the last row
  f.d = {1, 1};
  f.e = {2, 0};
  f.is_pair = {1, 0};
  f.start = {0, 2, 2};
  std::fill_n(f.column.extend(2), 2, 2);
  f.value.extend(2)[0] = 3;
  f.value[1] = 5;
  FactorParts<double> pair(f);
  pair.forward(y.data(), 2);
  EXPECT_EQ(y[2], 3 - 3 * 1 - 5 * 2);
  pair.diagonal_backward(y.data(), 2);
  EXPECT_NEAR(y[0], 1 + 3 * 10, 1e-12);
  EXPECT_NEAR(y[1], 0 + 5 * 10, 1e-12);
}

}  // namespace
