// SPDX-License-Identifier: BSD-3-Clause
// Sorting and splitting against the standard library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "norv.h"

namespace {

/// Orders that cut badly, and many equal keys, among random ones.
std::vector<int> keys(int n, int kind, std::mt19937& random) {
  std::vector<int> v(n);
  for (int i = 0; i < n; ++i) {
    switch (kind) {
      case 0:
        v[i] = int(random() % 1000000);
        break;
      case 1:
        v[i] = i;
        break;
      case 2:
        v[i] = n - i;
        break;
      case 3:
        v[i] = int(random() % 3);
        break;
      case 4:
        v[i] = i < n / 2 ? i : n - i;
        break;
      default:
        v[i] = 7;
    }
  }
  return v;
}

constexpr int kinds = 6;
constexpr int lengths[] = {0, 1, 2, 3, 15, 16, 17, 39, 40, 41, 100, 1000, 5000};

TEST(Sort, NumbersAndRowsRise) {
  std::mt19937 random(1);
  for (const int n : lengths) {
    for (int kind = 0; kind < kinds; ++kind) {
      std::vector<int> v = keys(n, kind, random), sorted = v;
      std::sort(sorted.begin(), sorted.end());
      for (const auto routine : {qsort_int, sort_int_array, isort_int}) {
        std::vector<int> w = v;
        routine(n, w.data());
        ASSERT_EQ(w, sorted);
      }
      std::vector<double> d(v.begin(), v.end());
      qsort_real(n, d.data());
      ASSERT_TRUE(std::equal(d.begin(), d.end(), sorted.begin()));
      for (const int cpx : {0, 1}) {
        for (const auto routine : {sort_row_insert, sort_row_qs}) {
          std::vector<int> columns = v;
          std::vector<double> values(std::size_t(n) * (1 + cpx));
          for (int i = 0; i < n; ++i) {
            values[std::size_t(i) * (1 + cpx)] = v[i] + 0.5;
            if (cpx) values[2 * std::size_t(i) + 1] = -v[i];
          }
          routine(n, cpx, values.data(), columns.data());
          ASSERT_EQ(columns, sorted);
          for (int i = 0; i < n; ++i) {
            ASSERT_EQ(values[std::size_t(i) * (1 + cpx)], sorted[i] + 0.5);
            if (cpx) {
              ASSERT_EQ(values[2 * std::size_t(i) + 1], -sorted[i]);
            }
          }
        }
      }
    }
  }
}

/// A factor row whose entry i has the magnitude of key i, a sign or an angle of its own, index i.
struct FactorRow {
  std::vector<double> values;
  std::vector<int> indices;
  std::vector<double> magnitudes;
  int cpx;

  FactorRow(const std::vector<int>& keys, int is_complex) : cpx(is_complex) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const std::complex<double> z = std::polar(double(keys[i]), i * 1.0);
      values.push_back(cpx ? z.real() : (i % 2 ? -1.0 : 1.0) * keys[i]);
      if (cpx) values.push_back(z.imag());
      magnitudes.push_back(cpx ? std::abs(z) : double(keys[i]));
      indices.push_back(int(i));
    }
  }
  double magnitude(int i) const {
    return cpx ? std::abs(std::complex<double>(values[2 * i], values[2 * i + 1]))
               : std::abs(values[i]);
  }
  /// Every index is there once and has its value.
  void expect_whole() const {
    std::vector<int> seen = indices;
    std::sort(seen.begin(), seen.end());
    for (std::size_t i = 0; i < seen.size(); ++i) {
      ASSERT_EQ(seen[i], int(i));
      ASSERT_EQ(magnitude(int(i)), magnitudes[indices[i]]);
    }
  }
};

TEST(Sort, FactorRowsFallAndSplit) {
  std::mt19937 random(2);
  for (const int n : lengths) {
    for (int kind = 0; kind < kinds; ++kind) {
      for (const int cpx : {0, 1}) {
        const std::vector<int> v = keys(n, kind, random);
        FactorRow row(v, cpx);
        sort_factor_row_by_abs_value(n, cpx, row.values.data(), row.indices.data());
        row.expect_whole();
        for (int i = 1; i < n; ++i) ASSERT_GE(row.magnitude(i - 1), row.magnitude(i));
        for (const int k : {0, 1, n / 3, n - 1, n, n + 5}) {
          FactorRow cut(v, cpx);
          split_factor_row_by_abs_value(n, cpx, cut.values.data(), cut.indices.data(), k);
          cut.expect_whole();
          double smallest = INFINITY, largest = 0;
          for (int i = 0; i < n; ++i) {
            if (i < k)
              smallest = std::min(smallest, cut.magnitude(i));
            else
              largest = std::max(largest, cut.magnitude(i));
          }
          ASSERT_GE(smallest, largest) << n << " " << kind << " " << k;
        }
      }
    }
  }
}

// A row of NaN comes back, in finite time and with its entries.
TEST(Sort, NotANumber) {
  std::vector<double> v(200);
  std::vector<int> index(200);
  for (int i = 0; i < 200; ++i) v[i] = i % 3 ? NAN : i, index[i] = i;
  split_factor_row_by_abs_value(200, 0, v.data(), index.data(), 20);
  sort_factor_row_by_abs_value(200, 0, v.data(), index.data());
  std::sort(index.begin(), index.end());
  for (int i = 0; i < 200; ++i) EXPECT_EQ(index[i], i);
}

}  // namespace
