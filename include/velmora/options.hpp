// SPDX-License-Identifier: BSD-3-Clause
/// Options and results of the C++ interface, by name.
#ifndef VELMORA_OPTIONS_HPP
#define VELMORA_OPTIONS_HPP

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace velm {

/// What is known of a matrix; the more, the cheaper is its factor.
enum class Kind {
  automatic,               ///< found from the values, by comparing the matrix with its transpose
  positive_definite,       ///< symmetric or Hermitian: Cholesky
  symmetric,               ///< equal to its transpose; of complex ones, not Hermitian
  hermitian,               ///< equal to its adjoint; of real ones, symmetric
  structurally_symmetric,  ///< the pattern only; the diagonal should be strong
  general                  ///< nothing
};

/// How the order of elimination is found.
enum class Ordering { minimum_degree = 0, constrained_minimum_degree = 1, nested_dissection = 2 };

/// What is solved with a factor of A.
enum class Operation { plain, transposed, adjoint };

/// A choice that is best left to the kind of the matrix.
enum class Choice { automatic = -1, off = 0, on = 1 };

/// An integer that is left to the kind of the matrix.
inline constexpr int automatic = -1;

/// All options with their defaults.  The numbers in brackets are entries of velmora.h.
struct Options {
  Kind kind = Kind::automatic;
  /// Threads; below 1 as many as OpenMP gives [iparm(3)].
  int threads = 0;
  /// Go on until the solution is good: solves are measured, and where one is not good enough the
  /// library takes Krylov refinement and then other factors [iparm(40), iparm(42)]; pivots of
  /// symmetric indefinite kinds are 1x1 and 2x2 [iparm(21)], and a zero on the diagonal switches
  /// matching and scaling on.  False: the plain solve of the type, three products with the matrix
  /// cheaper, and as good as its pivots.
  bool robust = true;
  /// What is measured of a solution: 0 nothing, 1 backward errors, 2 also condition and bound on
  /// the error [iparm(40)].  Automatic: nothing, or if robust is set backward errors, and once for
  /// each factor also the condition, if the errors are not good.
  int accuracy = automatic;
  /// Componentwise backward error that robust goes on for; 0: 1e-12 [dparm(44)].
  double target = 0;
  Ordering ordering = Ordering::nested_dissection;  ///< [iparm(2)]
  /// Most steps of refinement; automatic: 10 where pivots may be perturbed and robust is set, else
  /// the type's [iparm(8)].
  int refinement = automatic;
  /// Pivots below 10^-perturbation are replaced; automatic: the type's [iparm(10)].
  int perturbation = automatic;
  Choice matching = Choice::automatic;  ///< large entries to the diagonal first [iparm(13)]
  Choice scaling = Choice::automatic;   ///< with the factors of the matching [iparm(11)]
  Choice pairs = Choice::automatic;     ///< 2x2 pivots of indefinite kinds [iparm(21)]
  /// Factor in single precision, where the type has that; Solver<float> sets it [iparm(29)].
  bool single_precision = false;
  /// The last unknowns, so many, are kept: their Schur complement is formed instead [iparm(38)].
  int keep = 0;
  /// Keep an old factor for new values: 10 L + K as docs/sequences.md has it [iparm(4)].  A solve
  /// that it does not serve factors anew if it is positive; robust then means that, and measuring.
  int old_factor = 0;
  /// A result that does not vary from run to run on several threads; no refinement [iparm(34)].
  bool fixed_order = false;
  /// Keep a copy of the matrix also where the caller's arrays could be read, so that they may go.
  bool own = false;
  /// Refuse a factorization that needs more memory than the machine has left.
  bool heed_memory = true;
  bool verbose = false;  ///< messages and reports on standard output
  /// Any other entries, by their numbers in velmora.h; they overrule what is above.
  std::vector<std::pair<int, int>> iparm;
  std::vector<std::pair<int, double>> dparm;
};

/// What a call is at.
enum class Phase { analysis = 11, factorization = 22, solution = 33, inversion = -22 };

/// Is told phase and share of it, about twenty times a second, on the thread of the call; false
/// ends the call with Cancelled, an exception with that exception.  velmora/progress.h has the
/// details.
using Listener = std::function<bool(Phase phase, double share)>;

/// Eigenvalues by sign, as the pivots show them.
struct Inertia {
  int positive = 0, negative = 0;
  int uncertain = 0;  ///< signs among them that rounding decided; 0: no eigenvalue is zero
};

/// What a solve was measured to be.
struct Accuracy {
  enum Verdict { not_measured = -1, good = 0, nearby = 1, useless = 2 };
  Verdict verdict = not_measured;
  double normwise = 0;       ///< backward error beside the largest entries of A, x and b
  double componentwise = 0;  ///< backward error row by row
  double condition = 0;      ///< estimate, with Options::accuracy 2, else 0
  double error_bound = 0;    ///< of max|x - x*| / max|x|, with Options::accuracy 2, else 0
  int rung = 0;              ///< how far robust had to go, see docs/accuracy.md; 0: the plain solve
  int refinement_steps = 0;
};

/// What a factorization came to.
struct Figures {
  std::int64_t nonzeros = 0;     ///< of L and U
  int gigaflop = 0;              ///< operations in 10^9, truncated
  int perturbed_pivots = 0;      ///< replaced ones
  std::int64_t analysis_kb = 0;  ///< peak of the analysis
  std::int64_t factor_kb = 0;    ///< factors and their work space; a forecast after the analysis
  int threads = 0;
};

}  // namespace velm

#endif
