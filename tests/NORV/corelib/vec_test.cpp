// SPDX-License-Identifier: BSD-3-Clause
// vec against std::vector<std::complex<double>>, real and complex cases by the same text.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "norv.h"
#include "norv_log.hpp"

namespace {

using Complex = std::complex<double>;
using Values = std::vector<Complex>;

Values values(const vec* x) {
  Values result(x->n);
  for (unsigned i = 0; i < x->n; ++i)
    result[i] = x->is_complex ? Complex(x->v[2 * i], x->v[2 * i + 1]) : Complex(x->v[i]);
  return result;
}

vec* random_vec(unsigned n, bool is_complex, std::mt19937& random) {
  std::uniform_real_distribution<double> number(-2.0, 2.0);
  vec* x = is_complex ? vec_new_cpx(n) : vec_new(n);
  std::generate_n(x->v, is_complex ? 2 * n : n, [&] { return number(random); });
  return x;
}

void expect_near(const vec* x, const Values& expected) {
  const Values found = values(x);
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i)
    ASSERT_LE(std::abs(found[i] - expected[i]), 1e-13 * (1 + std::abs(expected[i]))) << i;
}

/// Runs a routine that writes and returns its dst, with a null dst and with its first operand.
void expect_result(const std::function<vec*(vec*)>& routine, vec* operand,
                   const std::function<Complex(std::size_t)>& element) {
  Values expected(operand->n);
  for (std::size_t i = 0; i < expected.size(); ++i) expected[i] = element(i);
  vec* fresh = routine(nullptr);
  expect_near(fresh, expected);
  vec_release(fresh);
  vec* saved = vec_copy(nullptr, operand);
  EXPECT_EQ(routine(operand), operand);
  expect_near(operand, expected);
  vec_copy(operand, saved);
  vec_release(saved);
}

/// Kind of the vectors, and their length.
class VecAlgebra : public ::testing::TestWithParam<std::tuple<bool, unsigned>> {
 protected:
  bool is_complex = std::get<0>(GetParam());
  unsigned n = std::get<1>(GetParam());
  std::mt19937 random{n + 1};
  vec* x = random_vec(n, is_complex, random);
  vec* y = random_vec(n, is_complex, random);
  vec* s = random_vec(n, false, random);
  Values vx = values(x), vy = values(y), vs = values(s);
  void TearDown() override {
    for (vec* each : {x, y, s}) vec_release(each);
  }
};

TEST_P(VecAlgebra, Combinations) {
  expect_result([&](vec* d) { return vec_add(d, x, y); }, x, [&](auto i) { return vx[i] + vy[i]; });
  expect_result([&](vec* d) { return vec_sub(d, x, y); }, y, [&](auto i) { return vx[i] - vy[i]; });
  expect_result([&](vec* d) { return vec_mul(d, x, y); }, x, [&](auto i) { return vx[i] * vy[i]; });
  expect_result([&](vec* d) { return vec_axpy(3.5, d, x, y); }, y,
                [&](auto i) { return 3.5 * vx[i] + vy[i]; });
  expect_result([&](vec* d) { return vec_axpby(-2.0, 0.25, d, x, y); }, x,
                [&](auto i) { return -2.0 * vx[i] + 0.25 * vy[i]; });
  expect_result([&](vec* d) { return vec_copy_scaled(-1.5, d, x); }, x,
                [&](auto i) { return -1.5 * vx[i]; });
  expect_result([&](vec* d) { return vec_copy_scale_vec(d, x, s); }, x,
                [&](auto i) { return vx[i] * vs[i]; });
  expect_result([&](vec* d) { return vec_copy_scale_vec(d, x, y); }, y,
                [&](auto i) { return vx[i] * vy[i]; });
  expect_result([&](vec* d) { return vec_copy_scale_vec_squared(d, x, s); }, x,
                [&](auto i) { return vx[i] * vs[i] * vs[i]; });
  if (!is_complex) return;
  const Complex alpha(0.5, -2.0);
  expect_result([&](vec* d) { return vec_axpy_cpx(0.5, -2.0, d, x, y); }, y,
                [&](auto i) { return alpha * vx[i] + vy[i]; });
  expect_result([&](vec* d) { return vec_axpby_cpx(0.5, -2.0, 3.0, d, x, y); }, x,
                [&](auto i) { return alpha * vx[i] + 3.0 * vy[i]; });
  expect_result([&](vec* d) { return vec_copy_scaled_cpx(0.5, -2.0, d, x); }, x,
                [&](auto i) { return alpha * vx[i]; });
}

TEST_P(VecAlgebra, InPlace) {
  const auto in_place = [&](const std::function<void()>& routine,
                            const std::function<Complex(std::size_t)>& element) {
    expect_result(
        [&](vec* d) {
          if (!d) {  // these routines have no dst: work on x and hand a copy back
            vec* saved = vec_copy(nullptr, x);
            routine();
            vec* result = vec_copy(nullptr, x);
            vec_copy(x, saved);
            vec_release(saved);
            return result;
          }
          routine();
          return d;
        },
        x, element);
  };
  in_place([&] { vec_scale(1.25, x); }, [&](auto i) { return 1.25 * vx[i]; });
  in_place([&] { vec_scale_vec(x, y); }, [&](auto i) { return vx[i] * vy[i]; });
  in_place([&] { vec_scale_vec_squared(x, y); }, [&](auto i) { return vx[i] * vy[i] * vy[i]; });
  in_place([&] { vec_scale_vec_recip(x, s); }, [&](auto i) { return vx[i] / vs[i]; });
  in_place([&] { vec_recip(x); }, [&](auto i) { return 1.0 / vx[i]; });
  in_place([&] { vec_scale_vec(x, x), vec_sqrt(x); },
           [&](auto i) { return std::sqrt(vx[i] * vx[i]); });
  in_place([&] { vec_clear(x); }, [&](auto) { return 0.0; });
  in_place([&] { vec_init(x); }, [&](auto) { return 0.0; });
  in_place([&] { vec_set(-7.0, x); }, [&](auto) { return -7.0; });
  if (is_complex)
    in_place([&] { vec_set_cpx(1.0, 2.0, x); }, [&](auto) { return Complex(1.0, 2.0); });
  else
    in_place([&] { vec_apply_func(x, std::exp); }, [&](auto i) { return std::exp(vx[i]); });
}

TEST_P(VecAlgebra, ProductsAndNorms) {
  Complex dot = 0.0;
  double one = 0.0, two = 0.0, largest = 0.0, smallest = n ? 1e300 : 0.0;
  for (unsigned i = 0; i < n; ++i) {
    dot += vx[i] * vy[i];
    one += std::abs(vx[i]);
    two += std::norm(vx[i]);
    largest = std::max(largest, std::abs(vx[i]));
    smallest = std::min(smallest, std::abs(vx[i]));
  }
  const double tolerance = 1e-14 * (n + 1);
  if (is_complex) {
    double re = 0.0, im = 0.0;
    vec_dot_cpx(x, y, &re, &im);
    EXPECT_LE(std::abs(Complex(re, im) - dot), 4 * tolerance);
    EXPECT_NEAR(vec_euclid_norm_cpx(x), std::sqrt(two), tolerance);
  } else {
    EXPECT_NEAR(vec_dot(x, y), dot.real(), 4 * tolerance);
  }
  EXPECT_NEAR(vec_1_norm(x), one, 2 * tolerance);
  EXPECT_NEAR(vec_euclid_norm(x), std::sqrt(two), tolerance);
  EXPECT_EQ(vec_inf_norm(x), largest);
  EXPECT_EQ(vec_min_norm(x), smallest);
  EXPECT_TRUE(vec_check_bound(x, largest));
  EXPECT_EQ(vec_check_bound(x, 0.99 * largest) != 0, n == 0);

  // Values whose squares leave the range of doubles.
  for (double factor : {1e200, 1e-200}) {
    vec* scaled = vec_copy_scaled(factor, nullptr, x);
    EXPECT_NEAR(vec_euclid_norm(scaled) / factor, std::sqrt(two), tolerance);
    vec_release(scaled);
  }
  if (n > 1) {  // a value that is not a number is not lost
    x->v[0] = std::numeric_limits<double>::quiet_NaN();
    for (double norm : {vec_1_norm(x), vec_euclid_norm(x), vec_inf_norm(x), vec_min_norm(x)})
      EXPECT_TRUE(std::isnan(norm));
    EXPECT_FALSE(vec_equal(x, x));
  }
}

TEST_P(VecAlgebra, PermutationsGoThereAndBack) {
  for (unsigned bs : {1u, 3u}) {
    if (n % bs) continue;
    perm* p = perm_new(static_cast<int>(n / bs));
    perm_ident(p);
    std::shuffle(p->p, p->p + p->n, random);
    vec* moved = vec_copy_block_permute(nullptr, x, p, bs);
    Values expected(n);
    for (unsigned i = 0; i < n; ++i)
      expected[static_cast<unsigned>(p->p[i / bs]) * bs + i % bs] = vx[i];
    expect_near(moved, expected);
    vec* back = vec_copy_block_permute_inverse(nullptr, moved, p, bs);
    EXPECT_TRUE(vec_equal(back, x));
    if (bs == 1) {
      vec_copy_permute(back, x, p);
      EXPECT_TRUE(vec_equal(back, moved));
      vec_copy_permute_inverse(back, moved, p);
      EXPECT_TRUE(vec_equal(back, x));
      vec_permute(back, p);
      EXPECT_TRUE(vec_equal(back, moved));
      vec_permute_inverse(back, p);
      EXPECT_TRUE(vec_equal(back, x));
    }
    vec_release(moved);
    vec_release(back);
    perm_free(p);
  }
}

TEST_P(VecAlgebra, CopiesComparesAndJoins) {
  vec* copy = vec_copy_from(vec_copy(nullptr, y), n, x->v);
  EXPECT_TRUE(vec_equal(copy, x));
  if (n > 0) {
    copy->v[0] += 0.5;
    EXPECT_FALSE(vec_equal(copy, x));
    EXPECT_TRUE(vec_equal_up_to(copy, x, 0.5 + 1e-12));
    EXPECT_FALSE(vec_equal_up_to(copy, x, 0.49));
  }
  vec* joined = vec_concat(nullptr, x, copy);
  Values expected = vx;
  for (const Complex& value : values(copy)) expected.push_back(value);
  expect_near(joined, expected);
  EXPECT_EQ(vec_equal(joined, x) != 0, n == 0);
  vec_release(joined);
  vec_release(copy);
}

INSTANTIATE_TEST_SUITE_P(RealAndComplex, VecAlgebra,
                         ::testing::Combine(::testing::Bool(),
                                            ::testing::Values(0u, 1u, 2u, 27u, 300u)));

TEST(Vec, ResizingKeepsTheBlock) {
  for (int is_complex : {0, 1}) {
    vec* x = is_complex ? vec_new_zero_cpx(10) : vec_new_zero(10);
    EXPECT_EQ(vec_inf_norm(x), 0.0);
    vec_set(3.0, x);
    double* const block = x->v;
    vec_resize(x, 4);
    EXPECT_EQ(x->capacity, 10u);
    vec_resize(x, 10);
    EXPECT_EQ(x->v, block);
    vec_resize(x, 5000);
    EXPECT_EQ(x->capacity, 5000u);
    vec_resize(x, 10);
    EXPECT_EQ(vec_1_norm(x), 30.0);
    EXPECT_EQ(x->is_complex, is_complex);
    vec_release(x);
  }
  vec_release(nullptr);
}

TEST(Vec, RandomValuesAndWrappedArrays) {
  double array[8];
  vec* real = vec_new_from(8, array);
  vec* pairs = vec_new_from_cpx(4, array);
  std::srand(5);
  vec_rand(real);
  std::srand(5);
  for (double value : array) EXPECT_EQ(value, std::rand() * std::pow(2.0, -31));
  EXPECT_TRUE(vec_check_positive(real));
  EXPECT_TRUE(vec_check_bound(real, 1.0));
  vec_rand(pairs);
  EXPECT_EQ(array[1], 0.0);
  EXPECT_GT(array[2], 0.0);
  array[3] = -1e-300;
  EXPECT_FALSE(vec_check_positive(real));
  free(real);
  free(pairs);
}

TEST(Vec, PrintsShortVectorsInFull) {
  NorvLog log(1);
  const auto lines = [&](unsigned n, void (*print)(const vec*)) {
    vec* x = vec_new(n);
    for (unsigned i = 0; i < n; ++i) x->v[i] = i;
    print(x);
    vec_release(x);
    return log.take();
  };
  const auto numbers = [](unsigned from, unsigned to) {
    std::string text;
    char number[32];
    for (unsigned i = from; i < to; ++i) {
      snprintf(number, sizeof number, "%15.8f ", static_cast<double>(i));
      text += number;
    }
    return text;
  };
  const std::string head = "[VELMORA/ML]>> Inf_Norm of Vector ", next = "\n[VELMORA/ML]>> ";
  EXPECT_EQ(lines(26, vec_print), head + "2.500000e+01" + next + numbers(0, 26) + "\n");
  const std::string all_27 = numbers(0, 13) + " ... " + numbers(14, 27) + "\n";
  EXPECT_EQ(lines(27, vec_print), head + "2.600000e+01" + next + all_27);
  EXPECT_EQ(lines(27, vec_print_full), head + "2.600000e+01" + next + numbers(0, 27) + "\n");
  double pair[2] = {3.0, -4.0};
  vec* x = vec_new_from_cpx(1, pair);
  vec_print_named(x, "x");
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> x:\n" + head + "5.000000e+00" + next +
                            "     3.00000000-4.00000000i \n");
  free(x);
}

// Long vectors are worked on by several threads; the sums then depend on their number alone.
TEST(Vec, LongOnesBySeveralThreads) {
  std::mt19937 random(9);
  const unsigned n = 300001;
  for (const bool cpx : {false, true}) {
    vec *x = random_vec(n, cpx, random), *y = random_vec(n, cpx, random);
    const Values a = values(x), b = values(y);
    Complex dot = 0;
    double square = 0;
    for (unsigned i = 0; i < n; ++i) dot += a[i] * b[i], square += std::norm(a[i]);
    for (const int threads : {1, 2, 3}) {
      omp_set_num_threads(threads);
      double re[2] = {}, im[2] = {}, norm[2] = {};
      for (const int run : {0, 1}) {
        if (cpx)
          vec_dot_cpx(x, y, &re[run], &im[run]);
        else
          re[run] = vec_dot(x, y);
        norm[run] = vec_euclid_norm(x);
      }
      EXPECT_TRUE(re[0] == re[1] && im[0] == im[1] && norm[0] == norm[1]);
      EXPECT_LE(std::abs(Complex(re[0], im[0]) - dot), 1e-9);
      EXPECT_NEAR(norm[0], std::sqrt(square), 1e-9);
      vec* const sum = vec_axpby(2.0, -3.0, nullptr, x, y);
      const Values of_sum = values(sum);
      for (unsigned i = 0; i < n; i += 997)
        EXPECT_LE(std::abs(of_sum[i] - (2.0 * a[i] - 3.0 * b[i])), 1e-13);
      vec_release(sum);
    }
    omp_set_num_threads(1);
    vec_release(x);
    vec_release(y);
  }
}

TEST(VecDeathTest, TrapsFaultsOfTheCaller) {
  vec* x = vec_new_zero(3);
  vec* y = vec_new_zero(4);
  vec* z = vec_new_zero_cpx(3);
  perm* p = perm_new(3);
  EXPECT_DEATH(vec_add(nullptr, x, y), "x->n == y->n");
  EXPECT_DEATH(vec_add(y, x, x), "dst->n == n");
  EXPECT_DEATH(vec_dot(x, z), "is_complex");
  EXPECT_DEATH(vec_scale_vec(x, z), "src->is_complex \\|\\| !s->is_complex");
  EXPECT_DEATH(vec_copy_permute(x, x, p), "dst != src");
  EXPECT_DEATH(vec_copy(nullptr, nullptr), "v != 0");
  x->is_complex = 2;
  EXPECT_DEATH(vec_inf_norm(x), "v->is_complex == 0 \\|\\| v->is_complex == 1");
  x->is_complex = 0;
  perm_set(p, 3);
  EXPECT_DEATH(vec_permute(x, p), "p->p\\[i\\] < p->n");
  // 2^29 doubles are 2^32 bytes.
  EXPECT_EXIT(vec_new(1u << 29), ::testing::ExitedWithCode(7), "");
  EXPECT_EXIT(vec_new_cpx(1u << 31), ::testing::ExitedWithCode(7), "");
  EXPECT_EXIT(vec_resize(x, ~0u), ::testing::ExitedWithCode(7), "");
  for (vec* each : {x, y, z}) vec_release(each);
  perm_free(p);
}

TEST(Vec, SavesOneValueALine) {
  NorvLog log;
  const auto read = [&](const char* name) {
    std::stringstream text;
    text << std::ifstream(log.directory() / name).rdbuf();
    return text.str();
  };
  double real[] = {1, -2.5}, complex[] = {1, 2, -3, 4};
  vec *x = vec_new_from(2, real), *z = vec_new_from_cpx(2, complex);
  vec_save_debug(x, "x", 0);
  EXPECT_EQ(read("x"), "  1.0000000000000000e+00\n -2.5000000000000000e+00\n");
  vec_save_debug(z, "z", 1);
  EXPECT_EQ(read("z"),
            "  1.0000000000000000e+00\n -3.0000000000000000e+00\n complex values \n"
            "  2.0000000000000000e+00\n  4.0000000000000000e+00\n");
  EXPECT_DEATH(vec_save_debug(x, "no/such/folder", 0), "file != 0");
  free(x);
  free(z);
}

TEST(Vec, ComplexRoot) {
  for (Complex z : {Complex(3, 4), Complex(-4, 0), Complex(-1, -1e-12), Complex(0, 0)}) {
    double re = 0.0, im = 0.0;
    norv_cpx_sqrt(z.real(), z.imag(), &re, &im);
    EXPECT_LE(std::abs(Complex(re, im) * Complex(re, im) - z), 1e-14);
    EXPECT_GE(re, 0.0);
  }
}

}  // namespace
