// SPDX-License-Identifier: BSD-3-Clause
/// Rows of a factored approximate inverse, see fsai.hpp and fsai_row.hpp.
#include "NORV/precons/fsai_row.hpp"

#include <algorithm>
#include <limits>

#include "NORV/precons/small_dense.hpp"
#include "base/clock.hpp"

namespace vlm::norv {
namespace {

/// Adds the seconds of a block to a sum.
class Lap {
 public:
  explicit Lap(double& sum) : sum_(sum), start_(timer_velmora()) {}
  ~Lap() { sum_ += timer_velmora() - start_; }
  Lap(const Lap&) = delete;
  Lap& operator=(const Lap&) = delete;

 private:
  double& sum_;
  const double start_;
};

}  // namespace

template <class T>
FsaiRows<T>::FsaiRows(const Rows<T>& A, const FsaiOptions& options)
    : A_(A),
      options_(options),
      weight_(A.m, 1.0),
      diagonal_(A.m, 0.0),
      taken_(A.m, 0),
      place_(A.m, -1),
      mark_(A.m, 0),
      residual_(2 * static_cast<std::size_t>(A.m)) {
  for (int i = 0; i < A.m; ++i) {
    double largest = 0;
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      largest = std::max(largest, magnitude(A.a[k]));
      if (A.ja[k] == i) diagonal_[i] = magnitude(A.a[k]);
    }
    if (largest > 0) weight_[i] = std::sqrt(largest);
    if (diagonal_[i] == 0) diagonal_[i] = weight_[i] * weight_[i];
  }
}

template <class T>
void FsaiRows<T>::take(const FsaiBlock<T>& block) {
  for (int c = 0; c < block.count; ++c) taken_[block.row[c]] = 1;
}

template <class T>
int FsaiRows<T>::partner_of(int i) const {
  int partner = -1;
  double largest = 0;
  for (int k = A_.ia[i]; k < A_.ia[i + 1]; ++k) {
    const int j = A_.ja[k];
    if (j == i || taken_[j] || scaled(i, k) <= largest) continue;
    largest = scaled(i, k);
    partner = j;
  }
  return partner;
}

template <class T>
void FsaiRows<T>::form(int i, int j, FsaiBlock<T>& block) {
  block.count = j < 0 ? 1 : 2;
  block.row[0] = i;
  block.row[1] = j;
  block.pattern.clear();
  block.g.clear();
  if (options_.pattern == FsaiPattern::adaptive) {
    by_growth(block);
  } else {
    const bool whole = options_.pattern == FsaiPattern::inverse;
    by_paths(block, whole ? std::numeric_limits<int>::max() : options_.power, whole);
    solve(block);
  }
  drop(block);
  form_pivot(block);
}

/// The taken rows within so many steps, all or no more than the limit of the nearest.
/// @param through_taken  a path goes through these alone, over couplings of any size
template <class T>
void FsaiRows<T>::by_paths(FsaiBlock<T>& block, int steps, bool through_taken) {
  const Lap watch(pattern_seconds);
  ++stamp_;
  touched_.assign(block.row, block.row + block.count);
  for (const int i : touched_) mark_[i] = stamp_;
  std::size_t begin = 0;
  for (int step = 0; step < steps && begin < touched_.size(); ++step) {
    const std::size_t end = touched_.size();
    for (std::size_t at = begin; at < end; ++at) {
      const int i = touched_[at];
      for (int k = A_.ia[i]; k < A_.ia[i + 1]; ++k) {
        const int j = A_.ja[k];
        if (mark_[j] == stamp_ || (through_taken && !taken_[j])) continue;
        if (!through_taken && !(scaled(i, k) > options_.threshold)) continue;
        mark_[j] = stamp_;
        touched_.push_back(j);
        if (!taken_[j]) continue;
        if (!through_taken && static_cast<int>(block.pattern.size()) >= options_.limit) return;
        block.pattern.push_back(j);
      }
    }
    begin = end;
  }
}

/// f() with the places of the pattern in place_, and behind them those of the block's rows.
template <class T>
template <class F>
void FsaiRows<T>::with_places(const FsaiBlock<T>& block, const F& f) {
  const int width = static_cast<int>(block.pattern.size());
  for (int k = 0; k < width; ++k) place_[block.pattern[k]] = k;
  for (int c = 0; c < block.count; ++c) place_[block.row[c]] = width + c;
  f();
  for (const int j : block.pattern) place_[j] = -1;
  for (int c = 0; c < block.count; ++c) place_[block.row[c]] = -1;
}

/// The pattern in rounds: each takes the rows where the gradient of the quadratic form promises to
/// lower D most, and solves anew.
template <class T>
void FsaiRows<T>::by_growth(FsaiBlock<T>& block) {
  const int rounds = std::max(1, options_.power);
  const int each = std::max(1, (options_.limit + rounds - 1) / rounds);
  for (int round = 0; round < rounds; ++round) {
    const int left = options_.limit - static_cast<int>(block.pattern.size());
    if (left <= 0 || !grow(block, std::min(each, left))) return;
    solve(block);
  }
}

/// Adds rows to the pattern, at most so many.  @return whether there were any
template <class T>
bool FsaiRows<T>::grow(FsaiBlock<T>& block, int most) {
  const Lap watch(pattern_seconds);
  const int width = static_cast<int>(block.pattern.size());
  ++stamp_;
  touched_.clear();
  for (const int j : block.pattern) mark_[j] = stamp_;
  for (int c = 0; c < block.count; ++c) mark_[block.row[c]] = stamp_;
  // The rows of A times g, outside of the pattern.
  const auto spread = [&](int j, int c, const T& by) {
    for (int k = A_.ia[j]; k < A_.ia[j + 1]; ++k) {
      const int i = A_.ja[k];
      if (!taken_[i] || (mark_[i] == stamp_ && place_[i] < 0)) continue;
      if (mark_[i] != stamp_) {
        mark_[i] = stamp_;
        place_[i] = static_cast<int>(touched_.size());
        touched_.push_back(i);
        residual_[2 * touched_.size() - 2] = residual_[2 * touched_.size() - 1] = T{};
      }
      residual_[2 * static_cast<std::size_t>(place_[i]) + static_cast<std::size_t>(c)] +=
          product(A_.a[k], by);
    }
  };
  for (int c = 0; c < block.count; ++c) {
    spread(block.row[c], c, T(1));
    for (int k = 0; k < width; ++k) spread(block.pattern[k], c, block.g[c * width + k]);
  }
  gain_.resize(touched_.size());
  const double enough = options_.threshold * options_.threshold;
  for (std::size_t k = 0; k < touched_.size(); ++k) {
    place_[touched_[k]] = -1;
    gain_[k] = 0;
    for (int c = 0; c < block.count; ++c)
      gain_[k] += squared(residual_[2 * k + static_cast<std::size_t>(c)]) /
                  (diagonal_[touched_[k]] * diagonal_[block.row[c]]);
  }
  Vector<int>& order = chosen_;
  order.clear();
  for (std::size_t k = 0; k < touched_.size(); ++k)
    if (gain_[k] > enough) order.push_back(static_cast<int>(k));
  const auto better = [&](int p, int q) {
    return gain_[p] > gain_[q] || (gain_[p] == gain_[q] && touched_[p] < touched_[q]);
  };
  if (static_cast<int>(order.size()) > most) {
    std::nth_element(order.begin(), order.begin() + most, order.end(), better);
    order.resize(static_cast<std::size_t>(most));
  }
  for (const int k : order) block.pattern.push_back(touched_[k]);
  return !order.empty();
}

/// The entries of the block's rows on its pattern.
template <class T>
void FsaiRows<T>::solve(FsaiBlock<T>& block) {
  const int width = static_cast<int>(block.pattern.size());
  const auto size = static_cast<std::size_t>(width);
  block.g.assign(size * static_cast<std::size_t>(block.count), T{});
  if (width == 0) return;
  const FsaiSolution how = options_.solution;
  const bool all_rows = how == FsaiSolution::qr || how == FsaiSolution::lsqr;
  std::size_t m = size;
  {
    const Lap watch(build_seconds);
    std::sort(block.pattern.begin(), block.pattern.end());
    for (int k = 0; k < width; ++k) place_[block.pattern[k]] = k;
    touched_.assign(block.pattern.begin(), block.pattern.end());
    const auto enter = [&](int j) {
      for (int k = A_.ia[j]; k < A_.ia[j + 1]; ++k) {
        const int i = A_.ja[k];
        if (place_[i] >= 0 || !taken_[i]) continue;
        place_[i] = static_cast<int>(touched_.size());
        touched_.push_back(i);
      }
    };
    if (all_rows) {
      for (const int j : block.pattern) enter(j);
      for (int c = 0; c < block.count; ++c) enter(block.row[c]);
    }
    m = touched_.size();
    matrix_.assign(m * size, T{});
    rhs_.assign(m * static_cast<std::size_t>(block.count), T{});
    const auto fill = [&](int j, T* column, double sign) {
      for (int k = A_.ia[j]; k < A_.ia[j + 1]; ++k)
        if (place_[A_.ja[k]] >= 0) column[place_[A_.ja[k]]] = sign * A_.a[k];
    };
    for (std::size_t k = 0; k < size; ++k) fill(block.pattern[k], &matrix_[k * m], 1);
    for (int c = 0; c < block.count; ++c)
      fill(block.row[c], &rhs_[static_cast<std::size_t>(c) * m], -1);
    for (const int j : touched_) place_[j] = -1;
  }
  const Lap watch(solve_seconds);
  constexpr double tolerance = 1e-3;
  if (how == FsaiSolution::direct) {
    eliminate(width, block.count, matrix_.data(), rhs_.data());
    std::copy_n(rhs_.data(), block.g.size(), block.g.data());
    return;
  }
  for (int c = 0; c < block.count; ++c) {
    T *const b = &rhs_[static_cast<std::size_t>(c) * m],
             *const x = &block.g[static_cast<std::size_t>(c) * size];
    const int rows = static_cast<int>(m);
    if (how == FsaiSolution::qr) {
      Vector<T> copy = matrix_;
      least_squares(rows, width, copy.data(), b, work_, x);
    } else if (how == FsaiSolution::iterative) {
      conjugate_residuals(width, matrix_.data(), b, tolerance, work_, x);
    } else {
      dense_lsqr(rows, width, matrix_.data(), b, tolerance, work_, x);
    }
  }
}

/// Drops small entries, and tells the largest that is left.
template <class T>
void FsaiRows<T>::drop(FsaiBlock<T>& block) const {
  block.growth = 0;
  const std::size_t width = block.pattern.size();
  for (int c = 0; c < block.count; ++c)
    for (std::size_t k = 0; k < width; ++k) {
      T& entry = block.g[static_cast<std::size_t>(c) * width + k];
      const double size = magnitude(entry) * weight_[block.pattern[k]] / weight_[block.row[c]];
      if (size < options_.drop)
        entry = T{};
      else
        block.growth = larger(size, block.growth);
    }
}

/// D = g A g^T.
template <class T>
void FsaiRows<T>::form_pivot(FsaiBlock<T>& block) {
  const int width = static_cast<int>(block.pattern.size());
  with_places(block, [&] {
    const auto entry = [&](int c, int k) {
      return k < width ? block.g[c * width + k] : T(k == width + c ? 1 : 0);
    };
    const auto form = [&](int p, int q) {
      T sum{};
      for (int k = 0; k < width + block.count; ++k) {
        const T left = entry(p, k);
        if (left == T{}) continue;
        const int j = k < width ? block.pattern[k] : block.row[k - width];
        T along{};
        for (int at = A_.ia[j]; at < A_.ia[j + 1]; ++at)
          if (const int place = place_[A_.ja[at]]; place >= 0)
            along += product(A_.a[at], entry(q, place));
        sum += product(left, along);
      }
      return sum;
    };
    block.d11 = form(0, 0);
    block.d21 = block.count == 2 ? form(1, 0) : T{};
    block.d22 = block.count == 2 ? form(1, 1) : T{};
  });
  const double w1 = weight_[block.row[0]];
  const double d11 = magnitude(block.d11) / (w1 * w1);
  if (block.count == 1) {
    block.quality = d11;
    return;
  }
  const double w2 = weight_[block.row[1]];
  const double d21 = magnitude(block.d21) / (w1 * w2), d22 = magnitude(block.d22) / (w2 * w2);
  const double det = magnitude(product(block.d11, block.d22) - product(block.d21, block.d21)) /
                     (w1 * w1 * w2 * w2);
  const double largest = std::max({d11, d21, d22});
  block.quality = largest > 0 ? det / largest : 0;
}

template class FsaiRows<double>;
template class FsaiRows<zcomplex>;

}  // namespace vlm::norv
