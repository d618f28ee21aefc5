// SPDX-License-Identifier: BSD-3-Clause
/// Interpolation and coarse matrices, see interpolation.hpp.
#include "NORV/multilevel/interpolation.hpp"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "NORV/corelib/row_shares.hpp"

namespace vlm::norv {
namespace {

template <class T>
class Interpolation {
 public:
  struct Weight {
    int column;
    T value;
  };

  Interpolation(const Rows<T>& A, const Graph& S, const Splitting& split, int components)
      : A_(A), S_(S), split_(split), components_(components), diagonal_(A.m, T()) {
    for (int i = 0; i < A.m; ++i)
      for (int p = A.ia[i]; p < A.ia[i + 1]; ++p)
        if (A.ja[p] == i) diagonal_[i] = A.a[p];
  }

  /// Coarse unknown that j is, or -1.
  int coarse(int j) const {
    if (components_ == 1) return split_.number[j];
    const int block = split_.number[j / components_];
    return block < 0 ? -1 : block * components_ + j % components_;
  }

  /// Most coarse unknowns that one fine one may see.
  std::size_t longest() const {
    std::size_t most = 1;
    for (int i = 0; i < S_.n; ++i) {
      if (coarse(i) >= 0) continue;
      std::size_t count = 0;
      for (int k = S_.start[i]; k < S_.start[i + 1]; ++k) {
        const int j = S_.target[k];
        count += coarse(j) >= 0 ? 1 : S_.start[j + 1] - S_.start[j];
      }
      most = std::max(most, count);
    }
    return most;
  }

  /// Scratch of a thread.
  struct Scratch {
    Scratch(int n, std::size_t longest) : place(n, -1), weights(longest), met(longest + 1) {}
    Vector<int> place;  ///< of an unknown in weights, from `base` on, where it is there
    Vector<Weight> weights;
    Vector<Weight> met;  ///< what the row of a neighbour says of them
    int base = 0, count = 0;

    /// Empties the row.
    void begin() {
      if (base > std::numeric_limits<int>::max() / 2) {
        std::fill(place.begin(), place.end(), -1);
        base = 0;
      }
      base += count;
      count = 0;
    }
    int find(int j) const { return place[j] >= base ? place[j] - base : -1; }
    void add(int j) {
      if (find(j) >= 0) return;
      place[j] = base + count;
      weights[count++] = {j, T{}};
    }
  };

  /// The weights of fine unknown i, columns numbered on this level.
  void row(int i, Scratch& s) const {
    s.begin();
    for_strong(i, [&](int k) {
      if (coarse(k) >= 0) return s.add(k);
      for_strong(k, [&](int l) {
        if (coarse(l) >= 0) s.add(l);
      });
    });
    T diagonal{};
    int strong = S_.start[i];
    for (int p = A_.ia[i]; p < A_.ia[i + 1]; ++p) {
      const int k = A_.ja[p];
      while (strong < S_.start[i + 1] && S_.target[strong] < k) ++strong;
      if (other_component(i, k)) continue;
      const int at = k == i ? -1 : s.find(k);
      if (at >= 0)
        s.weights[at].value += A_.a[p];
      else if (k != i && strong < S_.start[i + 1] && S_.target[strong] == k)
        distribute(i, k, A_.a[p], s, diagonal);
      else
        diagonal += A_.a[p];
    }
    if (diagonal == T{}) s.count = 0;
    for (int w = 0; w < s.count; ++w) s.weights[w].value = quotient(-s.weights[w].value, diagonal);
  }

 private:
  template <class F>
  void for_strong(int i, const F& f) const {
    for (int k = S_.start[i]; k < S_.start[i + 1]; ++k) f(S_.target[k]);
  }
  bool other_component(int i, int j) const {
    return components_ > 1 && i % components_ != j % components_;
  }

  /// Replaces fine unknown k in row i by what its own row says, entries of the sign opposite to its
  /// diagonal entry; `value` is that of (i, k).
  void distribute(int i, int k, T value, Scratch& s, T& diagonal) const {
    const T sign = maybe_conj<true>(diagonal_[k]);
    T sum{};
    int count = 0;
    for (int p = A_.ia[k]; p < A_.ia[k + 1]; ++p) {
      const int j = A_.ja[p], at = s.find(j);
      if ((at < 0 && j != i) || !(real_part(product(A_.a[p], sign)) < 0)) continue;
      s.met[count++] = {at, A_.a[p]};
      sum += A_.a[p];
    }
    if (sum == T{}) {
      diagonal += value;
      return;
    }
    const T part = quotient(value, sum);
    for (int m = 0; m < count; ++m) {
      T& to = s.met[m].column >= 0 ? s.weights[s.met[m].column].value : diagonal;
      to += product(part, s.met[m].value);
    }
  }

  const Rows<T> A_;
  const Graph& S_;
  const Splitting& split_;
  const int components_;
  Vector<T> diagonal_;
};

/// Leaves the largest weights, scaled so that their sum stays; returns how many.
template <class Weight>
int truncate(Weight* weights, int count, int most) {
  if (count <= most) return count;
  auto all = weights[0].value;
  for (int w = 1; w < count; ++w) all += weights[w].value;
  std::nth_element(weights, weights + most, weights + count, [](const Weight& a, const Weight& b) {
    const double x = modulus(a.value), y = modulus(b.value);
    return x != y ? x > y : a.column < b.column;
  });
  auto kept = weights[0].value;
  for (int w = 1; w < most; ++w) kept += weights[w].value;
  constexpr double cancelled = 0.1;  // the sum of weights of both signs is no scale
  if (modulus(kept) <= cancelled * modulus(all)) return most;
  for (int w = 0; w < most; ++w) weights[w].value = product(weights[w].value, quotient(all, kept));
  return most;
}

}  // namespace

template <class T>
OwnSmat extended_interpolation(const Rows<T>& A, const Graph& S, const Splitting& split,
                               int components, int most) {
  using Rule = Interpolation<T>;
  const Rule rule(A, S, split, components);
  const int nthreads = row_threads(A.ia[A.m]);
  const std::size_t longest = rule.longest();
  Vector<typename Rule::Scratch> scratch;
  scratch.reserve(nthreads);
  for (int thread = 0; thread < nthreads; ++thread) scratch.emplace_back(A.m, longest);
  // Each row at `most` times its number, then side by side.
  Vector<typename Rule::Weight> weights(static_cast<std::size_t>(A.m) * most);
  OwnSmat P(smat_new(static_cast<unsigned>(A.m),
                     static_cast<unsigned>(split.coarse) * static_cast<unsigned>(components),
                     type_of(0, is_complex_v<T>)));
  const auto for_shares = [&](const auto& f) {
    for_row_shares(A.ia, A.m, nthreads, [&](int thread, int first, int last) {
      for (int i = first; i < last; ++i) f(i, scratch[thread]);
    });
  };
  for_shares([&](int i, auto& s) {
    auto* const put = weights.data() + static_cast<std::size_t>(i) * most;
    if (const int number = rule.coarse(i); number >= 0) {
      *put = {number, T(1)};
      P->ia[i + 1] = 1;
      return;
    }
    rule.row(i, s);
    const int count = P->ia[i + 1] = truncate(s.weights.data(), s.count, most);
    for (int w = 0; w < count; ++w) put[w] = {rule.coarse(s.weights[w].column), s.weights[w].value};
    std::sort(put, put + count, [](const auto& a, const auto& b) { return a.column < b.column; });
  });
  reserve_entries(P.get(), counts_to_starts(P->ia, P->m));
  T* const values = values_as<T>(P->a);
  for_shares([&](int i, auto&) {
    const auto* const row = weights.data() + static_cast<std::size_t>(i) * most;
    for (int k = P->ia[i]; k < P->ia[i + 1]; ++k) {
      P->ja[k] = row[k - P->ia[i]].column;
      values[k] = row[k - P->ia[i]].value;
    }
  });
  return P;
}

OwnSmat coarse_matrix(const smat* R, const smat* A, const smat* P) {
  OwnSmat C;
  {
    const OwnSmat AP(smat_matmul(A, P));
    C.reset(smat_matmul(R, AP.get()));
  }
  by_kind(C->is_complex, [&](auto kind) {
    using T = decltype(kind);
    bool missing = false, zero = false;
    for_each_diagonal(C.get(), [&](int, int k) {
      missing |= k < 0;
      zero |= k >= 0 && values_as<T>(C->a)[k] == T{};
    });
    if (missing)
      C->is_complex ? smat_insert_zero_diags_cpx(C.get()) : smat_insert_zero_diags(C.get());
    if (!missing && !zero) return;
    T* const a = values_as<T>(C->a);
    for_each_diagonal(C.get(), [&](int i, int d) {
      const auto is_zero = [](const T& v) { return v == T{}; };
      if (a[d] == T{} && std::all_of(a + C->ia[i], a + C->ia[i + 1], is_zero)) a[d] = T(1);
    });
  });
  return C;
}

template OwnSmat extended_interpolation(const Rows<double>&, const Graph&, const Splitting&, int,
                                        int);
template OwnSmat extended_interpolation(const Rows<zcomplex>&, const Graph&, const Splitting&, int,
                                        int);

}  // namespace vlm::norv
