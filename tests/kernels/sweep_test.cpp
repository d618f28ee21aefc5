// SPDX-License-Identifier: BSD-3-Clause
// What works on several right-hand sides at once, of every instruction set that the processor runs,
// beside plain loops: the steps of a sweep with a panel, and residuals.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <random>
#include <type_traits>
#include <vector>

#include "kernels/choice.hpp"

namespace {

using namespace vlm;

template <class T>
T random_value(std::mt19937& gen) {
  std::uniform_real_distribution<double> part(-1, 1);
  if constexpr (std::is_same_v<T, zcomplex>)
    return {part(gen), part(gen)};
  else
    return static_cast<T>(part(gen));
}

template <class T>
T conjugated_if(T x, bool flag) {
  if constexpr (std::is_same_v<T, zcomplex>)
    return flag ? std::conj(x) : x;
  else
    return x;
}

/// A panel with its triangle at one place and the rows below at another, and what it acts on.
template <class T>
struct Case {
  int width, below, nb, front;
  bool by_rows, unit, conjugate;
  std::vector<int> row;
  std::vector<T> block, rest, y, c;

  Case(int w, int b, int values, int flags, std::mt19937& gen)
      : width(w),
        below(b),
        nb(values),
        front(b / 3),
        by_rows((flags & 1) != 0),
        unit((flags & 2) != 0),
        conjugate((flags & 4) != 0) {
    for (int i = 0, at = 0; i < below; ++i) row.push_back(at += 1 + static_cast<int>(gen() % 3));
    const auto fill = [&](std::vector<T>& v, int length) {
      v.resize(static_cast<std::size_t>(length));
      std::ranges::generate(v, [&] { return random_value<T>(gen); });
    };
    fill(block, width * width);
    for (T& v : block) v /= T(static_cast<float>(width));
    for (int j = 0; j < width; ++j) block[static_cast<std::size_t>(j * width + j)] += T(2);
    fill(rest, (below + 1) * width);
    fill(y, width * nb);
    fill(c, (below == 0 ? 1 : row.back() + 1) * nb);
  }

  T l(int j, int k) const {
    const int at = by_rows ? j * width + k : j + k * width;
    return conjugated_if(block[static_cast<std::size_t>(at)], conjugate);
  }
  T entry(int i, int k) const {
    return conjugated_if(rest[static_cast<std::size_t>(i + k * (below + 1))], conjugate);
  }
  T& unknown(int j, int k) { return y[static_cast<std::size_t>(j * nb + k)]; }
  T& other(int i, int k) {
    return c[static_cast<std::size_t>(row[static_cast<std::size_t>(i)] * nb + k)];
  }

  PanelSweep<T> step(std::vector<T>& tail) {
    return {.width = width,
            .below = below,
            .nb = nb,
            .l = block.data(),
            .l_row = by_rows ? width : 1,
            .l_col = by_rows ? 1 : width,
            .unit = unit,
            .conjugate = conjugate,
            .rest = rest.data(),
            .ld_rest = below + 1,
            .y = y.data(),
            .row = row.data(),
            .front = front,
            .c = c.data(),
            .tail = tail.data()};
  }

  void forward() {
    for (int k = 0; k < nb; ++k) {
      for (int j = 0; j < width; ++j) {
        for (int i = 0; i < j; ++i) unknown(j, k) -= l(j, i) * unknown(i, k);
        if (!unit) unknown(j, k) /= l(j, j);
      }
      for (int i = 0; i < below; ++i)
        for (int j = 0; j < width; ++j) other(i, k) -= entry(i, j) * unknown(j, k);
    }
  }
  void backward() {
    for (int k = 0; k < nb; ++k)
      for (int j = width - 1; j >= 0; --j) {
        for (int i = 0; i < below; ++i) unknown(j, k) -= entry(i, j) * other(i, k);
        for (int i = j + 1; i < width; ++i) unknown(j, k) -= l(i, j) * unknown(i, k);
        if (!unit) unknown(j, k) /= l(j, j);
      }
  }
};

template <class T>
double distance(const std::vector<T>& a, const std::vector<T>& b) {
  double most = 0;
  for (std::size_t k = 0; k < a.size(); ++k)
    most = std::max(most, static_cast<double>(std::abs(a[k] - b[k])));
  return most;
}

template <class T>
class SweepKernelTest : public ::testing::Test {};
using Kinds = ::testing::Types<double, float, zcomplex>;
TYPED_TEST_SUITE(SweepKernelTest, Kinds);

/// Forward steps split their rows between two places, of which the second begins as zeros.
TYPED_TEST(SweepKernelTest, StepsAreThoseOfPlainLoops) {
  using T = TypeParam;
  std::mt19937 gen{20261124};
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (const int width : {1, 2, 3, 5, 6, 7, 13, 40})
      for (const int below : {0, 1, 2, 7, 33, 310})
        for (const int vectors : {1, 2, 3, 4, 7})
          for (int flags = 0; flags < 8; ++flags) {
            Case<T> want(width, below, vectors * kernel->sweep_unit, flags, gen);
            const double tolerance =
                (std::is_same_v<T, float> ? 1e-6 : 1e-15) * 40 * static_cast<double>(below + width);
            Case<T> forward = want, backward = want;
            std::vector<T> tail(want.c.size(), T(0));
            kernel->sweep_forward(forward.step(tail));
            kernel->sweep_backward(backward.step(tail));
            for (std::size_t k = 0; k < tail.size(); ++k) forward.c[k] += tail[k];
            Case<T> plain = want;
            plain.forward();
            ASSERT_LT(distance(forward.y, plain.y), tolerance) << kernel->isa;
            ASSERT_LT(distance(forward.c, plain.c), tolerance)
                << kernel->isa << " width " << width << " below " << below;
            if (below > 0) {  // rows from the front on were left where they stood
              const auto split =
                  static_cast<std::size_t>(want.row[static_cast<std::size_t>(want.front)]) *
                  static_cast<std::size_t>(want.nb);
              ASSERT_TRUE(std::all_of(tail.begin(),
                                      tail.begin() + static_cast<std::ptrdiff_t>(split),
                                      [](const T& v) { return v == T(0); }));
            }
            plain = want;
            plain.backward();
            ASSERT_LT(distance(backward.y, plain.y), tolerance)
                << kernel->isa << " width " << width << " below " << below;
            ASSERT_EQ(backward.c, want.c);
          }
}

/// A triangle, a matrix by rows and one by columns, 40 rows with up to 5 entries off the diagonal.
TYPED_TEST(SweepKernelTest, ResidualsAndTheirSizesAreThoseOfPlainLoops) {
  using T = TypeParam;
  using Real = typename ResidualRows<T>::Real;
  constexpr int n = 40, group = residual_group, parts = sizeof(T) / sizeof(Real);
  std::mt19937 gen{7};
  std::vector<int> ia{1}, ja;
  for (int i = 0; i < n; ++i) {
    ja.push_back(i + 1);
    for (int j = i + 1; j < n && j < i + 12; j += 1 + static_cast<int>(gen() % 4))
      ja.push_back(j + 1);
    ia.push_back(static_cast<int>(ja.size()) + 1);
  }
  std::vector<T> a(ja.size()), x(n * group);
  for (T& v : a) v = random_value<T>(gen);
  for (T& v : x) v = random_value<T>(gen);
  const auto size = [](T v) { return std::abs(std::real(v)) + std::abs(std::imag(v)); };
  std::vector<Real> mixed(static_cast<std::size_t>(n * group * parts));
  const auto place = [](int i, int k, int part) {
    return static_cast<std::size_t>((i * parts + part) * group + k);
  };
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < group; ++k) {
      const T v = x[static_cast<std::size_t>(i * group + k)];
      mixed[place(i, k, 0)] = std::real(v);
      if (parts == 2) mixed[place(i, k, parts - 1)] = std::imag(v);
    }
  for (const Kernels<T>* kernel : runnable_kernels<T>())
    for (int flags = 1; flags < 16; ++flags) {
      ResidualRows<T> p{.first = 2, .last = n - 1, .ia = ia.data(), .ja = ja.data(), .a = a.data()};
      p.gathers = (flags & 1) != 0;
      p.scatters = (flags & 2) != 0;
      p.conjugate_here = (flags & 4) != 0;
      p.conjugate_there = (flags & 8) != 0;
      if (!p.gathers && !p.scatters) continue;
      std::vector<T> want(n * group, T(1));
      std::vector<Real> want_scale(n * group, Real(2)), scale(want_scale);
      std::vector<Real> residual(mixed.size(), Real(0));
      for (int i = 0; i < n; ++i)
        for (int k = 0; k < group; ++k) residual[place(i, k, 0)] = Real(1);
      const auto take = [&](int to, int from, T entry) {
        for (int k = 0; k < group; ++k) {
          const auto at = static_cast<std::size_t>(to * group + k);
          const T v = x[static_cast<std::size_t>(from * group + k)];
          want[at] -= entry * v;
          want_scale[at] += static_cast<Real>(size(entry) * size(v));
        }
      };
      for (int i = p.first; i < p.last; ++i)
        for (int at = ia[static_cast<std::size_t>(i)]; at < ia[static_cast<std::size_t>(i + 1)];
             ++at) {
          const int j = ja[static_cast<std::size_t>(at - 1)] - 1;
          const T entry = a[static_cast<std::size_t>(at - 1)];
          if (p.gathers) take(i, j, conjugated_if(entry, p.conjugate_here));
          if (p.scatters && !(p.gathers && i == j))
            take(j, i, conjugated_if(entry, p.conjugate_there));
        }
      p.x = mixed.data();
      p.residual = residual.data();
      p.scale = scale.data();
      kernel->residual_rows(p);
      const double tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-13;
      ASSERT_LT(distance(scale, want_scale), tolerance) << kernel->isa << flags;
      for (int i = 0; i < n; ++i)
        for (int k = 0; k < group; ++k) {
          const T v = want[static_cast<std::size_t>(i * group + k)];
          ASSERT_NEAR(residual[place(i, k, 0)], std::real(v), tolerance) << kernel->isa << flags;
          if (parts == 2) {
            ASSERT_NEAR(residual[place(i, k, parts - 1)], std::imag(v), tolerance);
          }
        }
    }
}

}  // namespace
