// SPDX-License-Identifier: BSD-3-Clause
/// Smoothed aggregation, see aggregation.hpp.
#include "NORV/multilevel/aggregation.hpp"

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/row_shares.hpp"

namespace vlm::norv {
namespace {

/// Nodes of each aggregate: `node` from start[g] to start[g+1].
struct Members {
  Vector<int> start, node;

  explicit Members(const Aggregates& aggregates)
      : start(aggregates.count + 1, 0), node(aggregates.of.size()) {
    for (const int g : aggregates.of)
      if (g >= 0) ++start[g + 1];
    for (int g = 0; g < aggregates.count; ++g) start[g + 1] += start[g];
    Vector<int> next(start.begin(), start.end() - 1);
    for (std::size_t i = 0; i < aggregates.of.size(); ++i)
      if (const int g = aggregates.of[i]; g >= 0) node[next[g]++] = static_cast<int>(i);
  }
};

/// Orthonormalizes the modes within each aggregate: Gram-Schmidt, twice.  A mode that depends on
/// those before it becomes zero there.
/// @param modes  in, and the orthonormal ones in their place
/// @return the triangular factors: the modes of the next level
template <class T>
Vector<T> orthonormalize(const Members& members, int block_size, Modes<T>& modes) {
  const int count = modes.count, groups = static_cast<int>(members.start.size()) - 1;
  Vector<T> next(static_cast<std::size_t>(groups) * count * count, T());
  const auto for_rows = [&](int g, const auto& f) {
    for (int m = members.start[g]; m < members.start[g + 1]; ++m)
      for (int c = 0; c < block_size; ++c)
        f(&modes.values[(static_cast<std::size_t>(members.node[m]) * block_size + c) * count]);
  };
  const auto one = [&](int g) {
    T* const factor = &next[static_cast<std::size_t>(g) * count * count];
    const auto norm = [&](int c) {
      double sum = 0;
      for_rows(g, [&](T* row) { sum += squared(row[c]); });
      return std::sqrt(sum);
    };
    for (int c = 0; c < count; ++c) {
      const double before = norm(c);
      for (int pass = 0; pass < 2; ++pass)
        for (int p = 0; p < c; ++p) {
          T dot{};
          for_rows(g, [&](T* row) { dot += product(maybe_conj<true>(row[p]), row[c]); });
          for_rows(g, [&](T* row) { row[c] -= product(dot, row[p]); });
          factor[p * count + c] += dot;
        }
      constexpr double dependent = 1e-8;
      const double left = norm(c);
      const double scale = left > dependent * before ? 1 / left : 0;
      for_rows(g, [&](T* row) { row[c] = product(row[c], scale); });
      factor[c * count + c] = scale > 0 ? T(left) : T();
    }
  };
  const auto work = static_cast<std::int64_t>(members.start[groups]) * block_size * count * count;
  for_row_shares(members.start.data(), groups, row_threads(work), [&](int, int first, int last) {
    for (int g = first; g < last; ++g) one(g);
  });
  return next;
}

/// Largest eigenvalue of D^-1 A: the smaller one of its bound by rows and of an estimate by the
/// power method that is on the safe side.
template <class T>
double largest_eigenvalue(const smat* A, const Rows<T>& R, const Vector<T>& inverse, double bound) {
  constexpr double as_laplacian = 2.1;  // there the bound is sharp
  if (bound <= as_laplacian) return bound;
  constexpr int steps = 12;
  constexpr double safety = 1.1;
  const ScratchVec x(is_complex_v<T> ? vec_new_cpx(A->n) : vec_new(A->n)),
      y = scratch_like(x.get());
  std::uint64_t state = 1;
  for (unsigned i = 0; i < A->n; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    values<T>(x.get())[i] = T(static_cast<double>(state >> 40) / (1 << 24) - 0.5);
  }
  double growth = 0;
  for (int step = 0; step < steps; ++step) {
    const double before = vec_euclid_norm(x.get());
    smat_vecmul(y.get(), A, x.get());
    T *const to = values<T>(x.get()), *const from = values<T>(y.get());
    for_parts(R.m, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) to[i] = product(from[i], inverse[i]);
    });
    growth = before > 0 ? vec_euclid_norm(x.get()) / before : 0;
    if (growth == 0 || !std::isfinite(growth)) return bound;
    vec_scale(1 / (growth * before), x.get());
  }
  return std::min(bound, safety * growth);
}

/// Forms the rows of the smoothed prolongation, node by node.  Single unknowns are smoothed by the
/// matrix of their strong couplings; blocks by all, since what is dropped could be made good for
/// constants on the diagonal, but not for rotations.
template <class T>
class Smoothed {
 public:
  Smoothed(const Rows<T>& A, const StrongNodes<T>& nodes, const Aggregates& aggregates,
           int block_size, const Modes<T>& modes)
      : A_(A), nodes_(nodes), aggregates_(aggregates), bs_(block_size), modes_(modes) {}

  int nodes() const { return nodes_.A.m; }

  /// Scratch of a thread.
  struct Scratch {
    Scratch(int nodes, int aggregates)
        : strong(nodes, -1), place(aggregates, -1), groups(aggregates) {}
    Vector<int> strong;  ///< by node: the node whose row it is strong in
    Vector<int> place;   ///< by aggregate: its number among those of the row
    Vector<int> groups;  ///< of the row
    int count = 0;
  };

  /// Finds the nodes by which node i is smoothed, and their aggregates, which rise.
  void begin(int i, Scratch& s) const {
    s.count = 0;
    const auto enter = [&](int j) {
      s.strong[j] = i;
      const int g = aggregates_.of[j];
      if (g < 0 || (s.place[g] >= 0 && s.place[g] < s.count && s.groups[s.place[g]] == g)) return;
      s.place[g] = s.count;
      s.groups[s.count++] = g;
    };
    enter(i);
    for (int k = nodes_.A.ia[i]; k < nodes_.A.ia[i + 1]; ++k)
      if (bs_ > 1 || nodes_(i, k)) enter(nodes_.A.ja[k]);
    std::sort(s.groups.begin(), s.groups.begin() + s.count);
    for (int k = 0; k < s.count; ++k) s.place[s.groups[k]] = k;
  }

  /// Diagonal entry of row r of node i in the filtered matrix, on which what is dropped of the same
  /// component lies; `bound` grows to the sum of moduli of the row over it.
  T diagonal(int i, int r, const Scratch& s, double& bound) const {
    T own{}, dropped{};
    double sum = 0;
    for (int k = A_.ia[r]; k < A_.ia[r + 1]; ++k) {
      const int j = A_.ja[k];
      if (j == r)
        own = A_.a[k];
      else if (s.strong[j / bs_] == i)
        sum += modulus(A_.a[k]);
      else if (j % bs_ == r % bs_)
        dropped += A_.a[k];
    }
    // Not where the entry would lose its sign or size.
    const T d = modulus(own + dropped) >= 0.3 * modulus(own) ? own + dropped : own;
    if (d != T{}) bound = std::max(bound, 1 + sum / modulus(d));
    return d;
  }

  /// Row r of node i: q(r) - step / d(r) (A q)(r).
  /// @param values  of the aggregates of the row, `modes` each
  void fill(int i, int r, T step, T inverse, const Scratch& s, T* values) const {
    const int count = modes_.count;
    std::fill(values, values + s.count * count, T());
    const auto add = [&](const T& factor, int j) {
      const int g = aggregates_.of[j / bs_];
      if (g < 0) return;
      const T* const q = &modes_.values[static_cast<std::size_t>(j) * count];
      T* const to = values + s.place[g] * count;
      for (int c = 0; c < count; ++c) to[c] += product(factor, q[c]);
    };
    add(T(1), r);
    if (inverse == T{}) return;
    const T factor = product(step, inverse);
    for (int k = A_.ia[r]; k < A_.ia[r + 1]; ++k) {
      const int j = A_.ja[k];
      if (j != r && s.strong[j / bs_] == i) add(-product(factor, A_.a[k]), j);
    }
    add(-step, r);
  }

 private:
  const Rows<T> A_;
  const StrongNodes<T>& nodes_;
  const Aggregates& aggregates_;
  const int bs_;
  const Modes<T>& modes_;
};

}  // namespace

template <class T>
StrongNodes<T>::StrongNodes(const Rows<T>& matrix, double threshold)
    : A(matrix), bound_(threshold * threshold), diagonal_(matrix.m, 0.0), largest_(matrix.m, 0.0) {
  for (int i = 0; i < A.m; ++i)
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
      double& of_row = A.ja[k] == i ? diagonal_[i] : largest_[i];
      of_row = std::max(of_row, modulus(A.a[k]));
    }
}

template <class T>
Aggregates aggregate_vmb(const StrongNodes<T>& strong) {
  const Rows<T>& A = strong.A;
  Aggregates result;
  Vector<int>& of = result.of;
  of.assign(A.m, -1);
  const auto for_strong = [&](int i, const auto& f) {
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k)
      if (strong(i, k)) f(A.ja[k], k);
  };
  Vector<char> alone(A.m, 1);
  for (int i = 0; i < A.m; ++i) {
    bool open = of[i] < 0;
    for_strong(i, [&](int j, int) {
      open &= of[j] < 0;
      alone[i] = 0;
    });
    if (!open || alone[i]) continue;
    of[i] = result.count;
    for_strong(i, [&](int j, int) { of[j] = result.count; });
    ++result.count;
  }
  const Vector<int> first = of;
  for (int i = 0; i < A.m; ++i) {
    if (first[i] >= 0) continue;
    double largest = 0;
    for_strong(i, [&](int j, int k) {
      if (first[j] < 0 || modulus(A.a[k]) <= largest) return;
      largest = modulus(A.a[k]);
      of[i] = first[j];
    });
  }
  for (int i = 0; i < A.m; ++i) {
    if (of[i] >= 0 || alone[i]) continue;
    of[i] = result.count;
    for_strong(i, [&](int j, int) {
      if (of[j] < 0) of[j] = result.count;
    });
    ++result.count;
  }
  return result;
}

template <class T>
OwnSmat smoothed_prolongation(const smat* A, const StrongNodes<T>& nodes,
                              const Aggregates& aggregates, const ProlongationOptions& options,
                              Modes<T>& modes) {
  const int bs = options.block_size, count = modes.count;
  const Rows<T> R = rows<T>(A);
  Vector<T> next;
  {
    const Members members(aggregates);
    next = orthonormalize(members, bs, modes);
  }
  const Smoothed<T> rule(R, nodes, aggregates, bs, modes);
  const int nthreads = row_threads(A->nnz);
  Vector<typename Smoothed<T>::Scratch> scratch;
  scratch.reserve(nthreads);
  for (int t = 0; t < nthreads; ++t) scratch.emplace_back(rule.nodes(), aggregates.count);
  OwnSmat P(smat_new(A->m, static_cast<unsigned>(aggregates.count) * static_cast<unsigned>(count),
                     type_of(0, is_complex_v<T>)));
  const auto for_nodes = [&](const auto& f) {
    for_row_shares(nodes.A.ia, rule.nodes(), nthreads, [&](int thread, int first, int last) {
      auto& s = scratch[thread];
      for (int i = first; i < last; ++i) {
        rule.begin(i, s);
        f(thread, i, s);
      }
    });
  };
  Vector<T> inverse(A->m);
  Vector<double> bounds(static_cast<std::size_t>(nthreads) * 16, 0.0);  // a cache line pair each
  for_nodes([&](int thread, int i, const auto& s) {
    for (int r = i * bs; r < (i + 1) * bs; ++r) {
      const T d = rule.diagonal(i, r, s, bounds[static_cast<std::size_t>(thread) * 16]);
      inverse[r] = d != T{} ? quotient(T(1), d) : T();
      P->ia[r + 1] = s.count * count;
    }
  });
  const double bound = *std::max_element(bounds.begin(), bounds.end());
  const double eigenvalue = largest_eigenvalue(A, R, inverse, bound);
  const T step = T(eigenvalue > 0 ? options.omega * 2 / eigenvalue : 0.0);
  reserve_entries(P.get(), counts_to_starts(P->ia, P->m));
  T* const values = values_as<T>(P->a);
  for_nodes([&](int, int i, const auto& s) {
    for (int r = i * bs; r < (i + 1) * bs; ++r) {
      int put = P->ia[r];
      for (int g = 0; g < s.count; ++g)
        for (int c = 0; c < count; ++c) P->ja[put++] = s.groups[g] * count + c;
      rule.fill(i, r, step, inverse[r], s, values + P->ia[r]);
    }
  });
  modes.values = std::move(next);
  return P;
}

template class StrongNodes<double>;
template class StrongNodes<zcomplex>;
template Aggregates aggregate_vmb(const StrongNodes<double>&);
template Aggregates aggregate_vmb(const StrongNodes<zcomplex>&);
template OwnSmat smoothed_prolongation(const smat*, const StrongNodes<double>&, const Aggregates&,
                                       const ProlongationOptions&, Modes<double>&);
template OwnSmat smoothed_prolongation(const smat*, const StrongNodes<zcomplex>&, const Aggregates&,
                                       const ProlongationOptions&, Modes<zcomplex>&);

}  // namespace vlm::norv
