// SPDX-License-Identifier: BSD-3-Clause
// First guesses: the least residual that earlier solutions allow, beside dense least squares.
#include "solve/first_guess.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "gallery.hpp"
#include "matrices.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

/// Earlier solutions of a matrix, and guesses from them.
struct Guesser {
  const Matrix& m;
  int nrhs;
  bool transpose = false;
  int threads = 1;
  EarlierSolutions earlier;
  std::vector<double> x, residual, gain;

  Guesser(const Matrix& matrix, int columns, int room = EarlierSolutions::most)
      : m(matrix), nrhs(columns) {
    provide(static_cast<std::size_t>(room * columns * m.n * m.nvals()) * sizeof(double));
  }
  std::size_t length() const { return static_cast<std::size_t>(m.n * m.nvals()); }
  void provide(std::size_t bytes) { earlier.provide(length(), nrhs, transpose, bytes); }

  bool guess(const std::vector<double>& b) {
    const SparseProduct product{
        {m.n, m.ia.data(), m.ja.data(), m.a.data()}, m.mtype, transpose, threads};
    // Exactly the promised room, so that a sanitizer sees a step beyond it.
    std::vector<double> work(guess_bytes(product, earlier) / sizeof(double), NAN);
    x.assign(b.size(), NAN);
    residual.assign(b.size(), NAN);
    gain.assign(static_cast<std::size_t>(nrhs), NAN);
    return vlm::guess({.earlier = earlier,
                       .product = product,
                       .nrhs = nrhs,
                       .b = b.data(),
                       .x = x.data(),
                       .residual = residual.data(),
                       .gain = gain.data(),
                       .work = work.data()});
  }

  cplx value(const std::vector<double>& v, std::size_t k) const { return vector_value(m, v, k); }
  double norm(const std::vector<double>& v, int column) const {
    const auto begin = v.begin() + static_cast<std::ptrdiff_t>(length()) * column;
    double sum = 0;
    for (auto at = begin; at != begin + static_cast<std::ptrdiff_t>(length()); ++at)
      sum += *at * *at;
    return std::sqrt(sum);
  }
};

std::vector<double> sum(double p, const std::vector<double>& u, double q,
                        const std::vector<double>& v) {
  std::vector<double> out(u.size());
  for (std::size_t k = 0; k < u.size(); ++k) out[k] = p * u[k] + q * v[k];
  return out;
}

TEST(FirstGuess, LeavesTheLeastResidual) {
  for (const Matrix& m :
       {random_spd(60, 4, 3), random_unsymmetric(60, 4, 1, 3), helmholtz(8, 0.6, true, 6)})
    for (const bool transpose : {false, true})
      for (const int threads : {1, 2}) {
        if (transpose && m.triangle()) continue;
        SCOPED_TRACE(m.name + (transpose ? " transposed" : ""));
        const int nrhs = 2;
        Guesser g(m, nrhs);
        g.transpose = transpose;
        g.threads = threads;
        g.provide(static_cast<std::size_t>(3 * nrhs) * g.length() * sizeof(double));
        std::vector<std::vector<double>> solutions, images;
        for (unsigned k = 0; k < 3; ++k) {
          solutions.push_back(random_vector(m, nrhs, k));
          images.push_back(product(m, solutions.back(), nrhs, transpose));
          g.earlier.keep(solutions.back().data());
        }
        // Close to the images' space: what stands at right angles to them is left, and no more.
        const std::vector<double> off = random_vector(m, nrhs, 9);
        const std::vector<double> b = sum(1, sum(2, images[0], -3, images[2]), 0.1, off);
        ASSERT_TRUE(g.guess(b));
        const std::vector<double> image = product(m, g.x, nrhs, transpose);
        EXPECT_LE(relative_difference(sum(1, b, -1, image), g.residual), 1e-12);
        for (int j = 0; j < nrhs; ++j) {
          EXPECT_NEAR(g.gain[static_cast<std::size_t>(j)], g.norm(b, j) / g.norm(g.residual, j),
                      1e-10);
          const std::size_t n = static_cast<std::size_t>(m.n),
                            first = n * static_cast<std::size_t>(j);
          for (const std::vector<double>& w : images) {
            cplx dot = 0;
            for (std::size_t i = first; i < first + n; ++i)
              dot += std::conj(g.value(w, i)) * g.value(g.residual, i);
            EXPECT_LE(std::abs(dot), 1e-11 * g.norm(w, j) * g.norm(b, j));
          }
        }
      }
}

TEST(FirstGuess, SmoothSequencesAreForetold) {
  const Matrix m = random_spd(60, 4, 3);
  const std::vector<double> u = random_vector(m, 1, 1), v = random_vector(m, 1, 2);
  const auto at = [&](double t) { return sum(std::cos(t), u, std::exp(t), v); };
  Guesser g(m, 1);
  double before = 1;
  for (int k = 0; k < 8; ++k) {
    const std::vector<double> b = product(m, at(0.1 * k));
    g.guess(b);
    const double gain = k == 0 ? 1 : g.gain[0];
    if (k > 0 && k < 3) {
      EXPECT_GT(gain, 5 * before);  // one order more with each
    }
    if (k >= 2) {
      EXPECT_GT(gain, 1e10);  // two vectors span it all
    }
    before = gain;
    g.earlier.keep(at(0.1 * k).data());
  }
}

TEST(FirstGuess, NothingIsMadeOfWhatDoesNotHelp) {
  const Matrix m = random_unsymmetric(60, 4, 1, 3);
  Guesser g(m, 2);
  const std::vector<double> b = random_vector(m, 2, 1);
  const auto is_zero = [&](int column) {
    const auto begin = g.x.begin() + static_cast<std::ptrdiff_t>(g.length()) * column;
    return std::all_of(begin, begin + static_cast<std::ptrdiff_t>(g.length()),
                       [](double v) { return v == 0; });
  };
  // Unrelated; the second column alone is known.
  std::vector<double> x = random_vector(m, 2, 2), known = product(m, x, 2);
  g.earlier.keep(x.data());
  EXPECT_FALSE(g.guess(b));
  EXPECT_EQ(g.residual, b);
  EXPECT_TRUE(is_zero(0) && is_zero(1));
  std::copy_n(b.begin(), g.length(), known.begin());
  EXPECT_TRUE(g.guess(known));
  EXPECT_TRUE(is_zero(0));
  EXPECT_EQ(g.gain[0], 1);
  EXPECT_GT(g.gain[1], 1e12);
  // The same solution again and again, zero, and what is no number.
  g.earlier.keep(x.data());
  EXPECT_TRUE(g.guess(known));
  EXPECT_GT(g.gain[1], 1e12);
  const std::vector<double> zero(x.size(), 0.0), nan(x.size(), NAN);
  g.earlier.keep(zero.data());
  EXPECT_TRUE(g.guess(known));
  EXPECT_FALSE(g.guess(zero));
  EXPECT_TRUE(is_zero(0) && is_zero(1));
  EXPECT_FALSE(g.guess(nan));
  g.earlier.keep(nan.data());
  EXPECT_TRUE(g.guess(known));
  EXPECT_LE(relative_difference(product(m, g.x, 2), sum(1, known, -1, g.residual)), 1e-12);
}

TEST(FirstGuess, GuessesInVainRest) {
  const Matrix m = random_spd(60, 4, 3);
  EarlierSolutions earlier;
  const auto provide = [&](int nrhs) {
    earlier.provide(static_cast<std::size_t>(m.n), nrhs, false, std::size_t{1} << 20);
  };
  /// Solves until the next guess.
  const auto rest = [&] {
    int solves = 0;
    do {
      earlier.keep(random_vector(m, 2, 1).data());
      ++solves;
    } while (!earlier.promise());
    return solves;
  };
  provide(1);
  EXPECT_FALSE(earlier.promise());
  EXPECT_EQ(rest(), 1);
  for (const int pause : {1, 2, 4, 8, 8}) {
    earlier.note_guess(false);
    EXPECT_EQ(rest(), pause + 1);
  }
  earlier.note_guess(true);
  EXPECT_EQ(rest(), 1);
  earlier.note_guess(false);
  EXPECT_EQ(rest(), 2);
  // Other shapes begin anew.
  earlier.note_guess(false);
  provide(2);
  EXPECT_EQ(rest(), 1);
}

TEST(FirstGuess, TheOldestGoesAndShapesDontMix) {
  const Matrix m = random_spd(60, 4, 3);
  Guesser g(m, 2, 2);
  const auto knows = [&](unsigned seed) {
    return g.guess(product(m, random_vector(m, g.nrhs, seed), g.nrhs)) && g.gain[0] > 1e10 &&
           g.gain[1] > 1e10;
  };
  EXPECT_EQ(g.earlier.bytes(), 4 * g.length() * sizeof(double));
  for (unsigned seed = 1; seed <= 3; ++seed) g.earlier.keep(random_vector(m, 2, seed).data());
  EXPECT_EQ(g.earlier.count(), 2);
  EXPECT_FALSE(knows(1));
  EXPECT_TRUE(knows(2) && knows(3));
  g.provide(4 * g.length() * sizeof(double));
  EXPECT_TRUE(knows(3));
  g.transpose = true;
  g.provide(4 * g.length() * sizeof(double));
  EXPECT_EQ(g.earlier.count(), 0);
  // No room for even one.
  g.provide(2 * g.length() * sizeof(double) - 1);
  g.earlier.keep(random_vector(m, 2, 1).data());
  EXPECT_EQ(g.earlier.count(), 0);
  EXPECT_EQ(g.earlier.bytes(), 0u);
}

}  // namespace
}  // namespace vlm::test
