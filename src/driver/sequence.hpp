// SPDX-License-Identifier: BSD-3-Clause
/// Sequences of matrices: when a factor is kept for the next matrix, and how long an iteration with
/// it may take.  Functions of measured times and counts, without a clock of their own.
#pragma once

#include "solve/stabilised.hpp"

namespace vlm {

/// iparm(20) where no iteration was affordable.
inline constexpr int not_affordable = -5;

/// iparm(4) = 10 L + K.
struct StabilisedOption {
  int k = 0;                 ///< K, with the sign of the whole: 0 off, > 0 with factorizations on
                             ///< failure, < 0 without
  double tolerance = 1e-12;  ///< 10^-L; the built-in one for L = 0
};
StabilisedOption stabilised_option(int entry);

/// Of one factor, since it was made.  All zero: no solve has measured anything.
struct ReuseHistory {
  int budget = 0;        ///< iterations that the last solve found affordable
  bool failed = false;   ///< an iteration did not succeed, or could not be afforded
  int steps = 0;         ///< stabilised solves
  double work = 0;       ///< of them, in solves
  double last = 0;       ///< of the last one
  double factoring = 0;  ///< time of the factorization, in solves of the last call
  // what factors before this one went through
  int setbacks = 0;  ///< kept factors that failed, one after the other
  int pause = 0;     ///< numeric calls for which no factor is kept
};

/// Time of a factorization, of one solve, and what the method needs.
struct MeasuredTimes {
  double factor = 0, solve = 0;  ///< seconds
  int solves_per_step = 1;
};

/// The limits of an iteration: 1.35 |K| times what the factorization is worth in solves, and one;
/// at most 100.  150 for K < 0.  0 where the solve takes no time, so that none is worth it.
IterationLimits iteration_limits(int k, const MeasuredTimes& times);
/// The limits where no other factor can follow, or none that is better.
IterationLimits widest_limits();

/// Whether a call that may factor keeps a finished factor.
///
/// Kept with K < 0, but after a failure.  With K > 0 also not where fewer than five iterations were
/// affordable; where the last solve took longer than all since the factorization on the average, it
/// included; and during a pause: after the first failure of a kept factor the next matrix gets a
/// factor of its own, after the second in a row the next two, then four, up to 16.
/// @param figure  iparm(20) as the call has it: negative after a failure
bool keeps_factor(const ReuseHistory& history, int k, int figure);

/// A factorization begins.
void note_factorization(ReuseHistory& history);
/// A stabilised solve ended.
/// @param fresh  the factor is one of this call
void note_solve(ReuseHistory& history, const IterationLimits& limits, const MeasuredTimes& times,
                const IterationResult& result, bool fresh);
/// A solve without iteration took `seconds`.
void note_plain_solve(ReuseHistory& history, double seconds);

}  // namespace vlm
