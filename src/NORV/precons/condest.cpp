// SPDX-License-Identifier: BSD-3-Clause
/// Running estimate of the norm of the inverse of a unit triangular factor, see condest.hpp.
#include "NORV/precons/condest.hpp"

#include <cstdint>

namespace vlm::norv {

const char* const condest_strategy_names[6] = {"max change 1", "max change 2", "max change 3",
                                               "Orlund 1",     "Orlund 2",     "Orlund 3"};

namespace {

bool is_max_change(CondestStrategy s) { return s <= CondestStrategy::max_change_3; }
bool adds_mean(CondestStrategy s) {
  return s == CondestStrategy::max_change_3 || s == CondestStrategy::orlund_3;
}

/// A choice of signs, and what it would make of z behind the pivot.
template <class T, int W>
struct Candidate {
  T mu[W];
  double out[W];  ///< |block mu|
  double sum = 0, largest = 0;
  std::int64_t growth = 0;  ///< components that grow less those that shrink

  double largest_out() const {
    if constexpr (W == 2) return std::max(out[0], out[1]);
    return out[0];
  }
  double largest_step() const {
    if constexpr (W == 2) return std::max(magnitude(mu[0]), magnitude(mu[1]));
    return magnitude(mu[0]);
  }
};

template <class T, int W>
using Candidates = Candidate<T, W>[2 * W];

/// Signs in the order ++, +-, -+, --; for one row +, -.
template <class T, int W>
void set_steps(const PivotBlock<T, W>& pivot, const T (&z_here)[W], Candidates<T, W>& candidate) {
  for (int c = 0; c < 2 * W; ++c) {
    T rhs[W], image[W];
    for (int w = 0; w < W; ++w) {
      const bool minus = (c >> (W - 1 - w)) & 1;
      rhs[w] = T(minus ? -1.0 : 1.0) - z_here[w];
    }
    pivot.solve(rhs, candidate[c].mu);
    pivot.apply(candidate[c].mu, image);
    for (int w = 0; w < W; ++w) candidate[c].out[w] = magnitude(image[w]);
  }
}

/// The value against which growth is told by the strategies orlund_2 and orlund_3.
template <class T, int W>
double reference_of_entry(const PivotBlock<T, W>& pivot, const PivotRows<T, W>& rows, int p) {
  T entry[W], image[W];
  for (int w = 0; w < W; ++w) entry[w] = rows.value[w][p];
  pivot.apply(entry, image);
  double most = magnitude(image[0]);
  if constexpr (W == 2) most = std::max(most, magnitude(image[1]));
  return most;
}

template <class T, int W>
void walk_rows(CondestStrategy strategy, const PivotBlock<T, W>& pivot, const PivotRows<T, W>& rows,
               const T* z, int* touched, Candidates<T, W>& candidate) {
  constexpr double small = 0.5;  // changes below it don't count
  const bool counts_growth = !is_max_change(strategy);
  for (int p = 0; p < rows.length; ++p) {
    const T old_value = z[rows.column[p]];
    double old = magnitude(old_value);
    if (strategy >= CondestStrategy::orlund_2) old = reference_of_entry(pivot, rows, p);
    if (touched != nullptr) ++touched[rows.column[p]];
    for (auto& c : candidate) {
      T next = old_value + product(rows.value[0][p], c.mu[0]);
      if constexpr (W == 2) next += product(rows.value[1][p], c.mu[1]);
      const double size = magnitude(next);
      c.sum += size;
      c.largest = std::max(c.largest, size);
      if (!counts_growth) continue;
      if (size > std::max(2 * old, small)) ++c.growth;
      if (old > std::max(2 * size, small)) --c.growth;
    }
  }
}

/// Larger sum, the earlier one at a tie; for an empty row the larger step, the last one at a tie.
template <class T, int W>
int choose_by_sum(CondestStrategy strategy, int length, const Candidates<T, W>& candidate) {
  int best = 0;
  if (length > 0 || strategy == CondestStrategy::orlund_1) {
    for (int c = 1; c < 2 * W; ++c)
      if (candidate[c].sum > candidate[best].sum) best = c;
  } else if (is_max_change(strategy)) {
    for (int c = 1; c < 2 * W; ++c)
      if (!(candidate[c].largest_step() < candidate[best].largest_step())) best = c;
  } else {
    best = 2 * W - 1;
  }
  return best;
}

}  // namespace

template <class T, int W>
CondestStep<T, W> condest_look(CondestStrategy strategy, double kappa,
                               const PivotBlock<T, W>& pivot, const T (&z_here)[W],
                               const PivotRows<T, W>& rows, const T* z, int* touched) {
  Candidates<T, W> candidate;
  set_steps(pivot, z_here, candidate);
  walk_rows(strategy, pivot, rows, z, touched, candidate);
  int best = choose_by_sum<T, W>(strategy, rows.length, candidate);
  CondestStep<T, W> step;
  if (!is_max_change(strategy)) {
    step.bound = std::max(candidate[best].largest_out(), candidate[best].largest);
    if (step.bound > kappa) return step;
    for (int c = 0; c < 2 * W; ++c)
      if (candidate[c].growth > candidate[best].growth) best = c;
  }
  Candidate<T, W>& chosen = candidate[best];
  if (strategy == CondestStrategy::max_change_2) {
    T image[W];
    pivot.apply(chosen.mu, image);
    std::copy(image, image + W, chosen.mu);
    pivot.apply(chosen.mu, image);
    for (int w = 0; w < W; ++w) chosen.out[w] = magnitude(image[w]);
  }
  step.taken = true;
  std::copy(chosen.mu, chosen.mu + W, step.mu);
  std::copy(chosen.out, chosen.out + W, step.out);
  step.bound = chosen.largest_out();
  if (!is_max_change(strategy)) step.bound = std::max(step.bound, chosen.largest);
  if (adds_mean(strategy) && rows.length > 0) step.bound += chosen.sum / rows.length;
  return step;
}

template <class T>
T condest_fixed(T d, T z_here, const PivotRows<T, 1>& rows, T* z, int* touched, T* out) {
  const T plus = divide(T(1) - z_here, d), minus = divide(T(-1) - z_here, d);
  double sum_plus = 0, sum_minus = 0;
  for (int p = 0; p < rows.length; ++p) {
    const int j = rows.column[p];
    sum_plus += magnitude(z[j] + product(rows.value[0][p], plus));
    sum_minus += magnitude(z[j] + product(rows.value[0][p], minus));
    if (touched != nullptr) ++touched[j];
  }
  const T mu[1] = {sum_minus < sum_plus ? plus : minus};
  *out = product(d, mu[0]);
  condest_take(rows, mu, z);
  return mu[0];
}

template <class T>
void condest_fixed_undo(T mu, const PivotRows<T, 1>& rows, T* z) {
  const T back[1] = {-mu};
  condest_take(rows, back, z);
}

#define NORV_INSTANTIATE(T)                                                                       \
  template CondestStep<T, 1> condest_look(CondestStrategy, double, const PivotBlock<T, 1>&,       \
                                          const T(&)[1], const PivotRows<T, 1>&, const T*, int*); \
  template CondestStep<T, 2> condest_look(CondestStrategy, double, const PivotBlock<T, 2>&,       \
                                          const T(&)[2], const PivotRows<T, 2>&, const T*, int*); \
  template T condest_fixed(T, T, const PivotRows<T, 1>&, T*, int*, T*);                           \
  template void condest_fixed_undo(T, const PivotRows<T, 1>&, T*)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
