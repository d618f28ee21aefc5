// SPDX-License-Identifier: BSD-3-Clause
/// Strong couplings and the coarse unknowns, see strength.hpp.
#include "NORV/multilevel/strength.hpp"

#include <algorithm>
#include <limits>

#include "NORV/corelib/row_shares.hpp"
#include "base/clock.hpp"

namespace vlm::norv {
namespace {

/// Bounds from which the couplings of a row are strong.
struct Bounds {
  double negative, positive;
  bool strong(double c) const { return c > 0 ? c >= negative : c < 0 && -c >= positive; }
};

/// Unknowns by weight, those of equal weight in a list; what was entered last comes first.
class WeightQueue {
 public:
  explicit WeightQueue(const Vector<int>& weights)
      : weight_(weights), next_(weights.size(), none), before_(weights.size(), none) {
    for (int i = static_cast<int>(weights.size()); i-- > 0;) enter(i);
  }

  /// An unknown of largest weight, which leaves the queue; -1: there is none.
  int take() {
    while (top_ >= 0 && first_[top_] == none) --top_;
    if (top_ < 0) return -1;
    const int i = first_[top_];
    remove(i);
    return i;
  }
  int weight(int i) const { return weight_[i]; }

  void remove(int i) {
    if (before_[i] >= 0)
      next_[before_[i]] = next_[i];
    else
      first_[weight_[i]] = next_[i];
    if (next_[i] >= 0) before_[next_[i]] = before_[i];
  }
  void change(int i, int by) {
    remove(i);
    weight_[i] = std::max(weight_[i] + by, 0);
    enter(i);
  }

 private:
  static constexpr int none = -1;

  void enter(int i) {
    const int w = weight_[i];
    if (w >= static_cast<int>(first_.size())) first_.resize(w + 1, none);
    next_[i] = first_[w];
    before_[i] = none;
    if (next_[i] >= 0) before_[next_[i]] = i;
    first_[w] = i;
    top_ = std::max(top_, w);
  }

  Vector<int> weight_, next_, before_;
  Vector<int> first_;  ///< by weight
  int top_ = -1;
};

enum State : signed char { undecided, fine, coarse };

}  // namespace

template <class T>
Graph strong_couplings(const Rows<T>& A, const StrengthOptions& options) {
  const int components = options.components;
  // f(j, c) for the couplings of row i, c its size, below zero for a positive one.
  const auto couplings = [&](int i, const auto& f) {
    T d{};
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k)
      if (A.ja[k] == i) d = A.a[k];
    const double size = modulus(d);
    const T sign = size > 0 ? quotient(d, T(size)) : T(1);
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      const int j = A.ja[k];
      if (j == i || (components > 1 && j % components != i % components)) continue;
      f(j, options.signs ? -real_part(product(A.a[k], maybe_conj<true>(sign))) : modulus(A.a[k]));
    }
  };
  const auto bounds = [&](int i) {
    double negative = 0, any = 0;
    couplings(i, [&](int, double c) {
      negative = std::max(negative, c);
      any = std::max(any, std::fabs(c));
    });
    constexpr double least = std::numeric_limits<double>::min();
    return Bounds{std::max(options.negative * negative, least),
                  std::max(options.positive * any, least)};
  };
  const int nthreads = row_threads(A.ia[A.m]);
  Graph S;
  S.n = A.m;
  S.start.resize(A.m + 1);
  S.start[0] = 0;
  for_row_shares(A.ia, A.m, nthreads, [&](int, int first, int last) {
    for (int i = first; i < last; ++i) {
      const Bounds b = bounds(i);
      int count = 0;
      couplings(i, [&](int, double c) { count += b.strong(c); });
      S.start[i + 1] = count;
    }
  });
  for (int i = 0; i < A.m; ++i) S.start[i + 1] += S.start[i];
  S.target.resize(S.start[A.m]);
  for_row_shares(A.ia, A.m, nthreads, [&](int, int first, int last) {
    for (int i = first; i < last; ++i) {
      const Bounds b = bounds(i);
      int put = S.start[i];
      couplings(i, [&](int j, double c) {
        if (b.strong(c)) S.target[put++] = j;
      });
    }
  });
  return S;
}

Graph transposed(const Graph& G) {
  Graph R;
  R.n = G.n;
  R.start.assign(G.n + 1, 0);
  for (const int j : G.target) ++R.start[j + 1];
  for (int i = 0; i < G.n; ++i) R.start[i + 1] += R.start[i];
  R.target.resize(G.target.size());
  Vector<int> next(R.start.begin(), R.start.end() - 1);
  for (int i = 0; i < G.n; ++i)
    for (int k = G.start[i]; k < G.start[i + 1]; ++k) R.target[next[G.target[k]]++] = i;
  return R;
}

Splitting coarsen_rs(const Graph& S) {
  double seconds = 0;
  Splitting split;
  {
    const Stopwatch watch(seconds);
    const Graph dependents = transposed(S);
    const auto row = [](const Graph& G, int i) {
      return std::pair(G.target.begin() + G.start[i], G.target.begin() + G.start[i + 1]);
    };
    const auto for_row = [&](const Graph& G, int i, const auto& f) {
      for (auto [k, end] = row(G, i); k != end; ++k) f(*k);
    };
    Vector<int> weights(S.n);
    for (int i = 0; i < S.n; ++i) weights[i] = dependents.start[i + 1] - dependents.start[i];
    Vector<signed char> state(S.n, undecided);
    // Of those on whom none depends: coupled with nothing, so that a sweep solves for them, or
    // with a fine unknown, by which they can be interpolated.
    const auto has_no_use = [&](int i) {
      const auto [k, end] = row(S, i);
      return k == end || std::find_if(k, end, [&](int j) { return state[j] == fine; }) != end;
    };
    WeightQueue queue(weights);
    for (int i; (i = queue.take()) >= 0;) {
      if (queue.weight(i) == 0 && has_no_use(i)) {
        state[i] = fine;
        continue;
      }
      state[i] = coarse;
      for_row(dependents, i, [&](int j) {
        if (state[j] != undecided) return;
        state[j] = fine;
        queue.remove(j);
        for_row(S, j, [&](int k) {
          if (state[k] == undecided) queue.change(k, 1);
        });
      });
      for_row(S, i, [&](int j) {
        if (state[j] == undecided) queue.change(j, -1);
      });
    }
    split.number.resize(S.n);
    for (int i = 0; i < S.n; ++i) split.number[i] = state[i] == coarse ? split.coarse++ : -1;
  }
  _norv_print_stat_msg("Ruge-Stueben coarsening took %f secs.", seconds);
  return split;
}

template Graph strong_couplings(const Rows<double>&, const StrengthOptions&);
template Graph strong_couplings(const Rows<zcomplex>&, const StrengthOptions&);

}  // namespace vlm::norv
