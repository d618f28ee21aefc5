// SPDX-License-Identifier: BSD-3-Clause
/// Parallel loops over long vectors: copies, updates, and sums of absolute values.
///
/// A loop is cut into one contiguous piece a thread; short vectors stay on the calling thread.
/// Each thread keeps its partial sum on its own cache lines, and the sums are added in the
/// order of the threads, so that a result depends on the number of threads only.  The routines
/// open their own parallel region, and none for one thread.  Complex vectors are passed as twice as
/// many doubles.
#pragma once

#include <omp.h>

#include <cmath>
#include <cstddef>
#include <memory>
#include <new>

namespace vlm {

/// A thread's part of a sum.  128 bytes: adjacent cache lines are fetched in pairs.
template <class Sum>
struct alignas(128) PartialSum {
  Sum value{};
};

/// Runs body(thread, team), which returns the thread's part, on a team and adds up the parts.
/// The calling thread is the team, without a parallel region, where one thread is asked for or
/// there is no memory for the parts.
template <class Body>
auto sum_over_team(int nthreads, const Body& body) {
  using Sum = decltype(body(0, 1));
  using Part = PartialSum<Sum>;
  const std::unique_ptr<Part[]> parts(
      nthreads > 1 ? new (std::nothrow) Part[static_cast<std::size_t>(nthreads)] : nullptr);
  if (!parts) return body(0, 1);
#pragma omp parallel num_threads(nthreads)
  {
    const int thread = omp_get_thread_num();
    parts[static_cast<std::size_t>(thread)].value = body(thread, omp_get_num_threads());
  }
  Sum total{};
  for (int thread = 0; thread < nthreads; ++thread)
    total += parts[static_cast<std::size_t>(thread)].value;
  return total;
}

/// Sum of term(k) for first <= k < last, in eight interleaved chains.
template <class Term>
auto interleaved_sum(std::size_t first, std::size_t last, const Term& term) {
  decltype(term(first)) chain[8] = {};
  std::size_t k = first;
  for (; k + 8 <= last; k += 8)
    for (std::size_t c = 0; c < 8; ++c) chain[c] += term(k + c);
  for (; k < last; ++k) chain[0] += term(k);
  return ((chain[0] + chain[1]) + (chain[2] + chain[3])) +
         ((chain[4] + chain[5]) + (chain[6] + chain[7]));
}

/// Sum of term(k), a number of any kind, for 0 <= k < length.
template <class Term>
auto parallel_sum(std::size_t length, int nthreads, const Term& term) {
  constexpr std::size_t worth_a_team = 100000;
  return sum_over_team(length < worth_a_team ? 1 : nthreads, [&](int thread, int team) {
    const auto begin = [&](int t) {
      return length / static_cast<std::size_t>(team) * static_cast<std::size_t>(t);
    };
    return interleaved_sum(begin(thread), thread + 1 == team ? length : begin(thread + 1), term);
  });
}

/// Sum of |x|.
inline double sum_of_absolutes(std::size_t length, const double* x, int nthreads) {
  return parallel_sum(length, nthreads, [=](std::size_t k) { return std::abs(x[k]); });
}

/// y = x; returns the sum of |x|.
inline double conv8_16(std::size_t length, const double* x, double* y, int nthreads) {
  return parallel_sum(length, nthreads, [=](std::size_t k) { return std::abs(y[k] = x[k]); });
}

/// y = y + x; returns the sum of |x|.
inline double sum8_16(std::size_t length, const double* x, double* y, int nthreads) {
  return parallel_sum(length, nthreads, [=](std::size_t k) {
    y[k] += x[k];
    return std::abs(x[k]);
  });
}

/// z = y and y = y + x; returns the sum of |x|.
inline double keep_and_add(std::size_t length, const double* x, double* y, double* z,
                           int nthreads) {
  return parallel_sum(length, nthreads, [=](std::size_t k) {
    z[k] = y[k];
    y[k] += x[k];
    return std::abs(x[k]);
  });
}

}  // namespace vlm
