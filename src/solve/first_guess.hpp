// SPDX-License-Identifier: BSD-3-Clause
/// A first guess from the solutions of earlier systems: the combination of them that leaves the
/// least residual in the system at hand (P. F. Fischer, Projection techniques for iterative
/// solution of Ax = b with successive right-hand sides, 1998).
///
/// Where matrices and right-hand sides move smoothly from step to step, so do the solutions, and a
/// few of them foretell the next one up to a high order of the step.  Where they don't, the
/// residual says so, and the guess is zero.
#pragma once

#include <cstddef>

#include "base/amuxy.hpp"
#include "base/memory.hpp"

namespace vlm {

/// The last solutions of one sequence, column after column of the right-hand sides.
class EarlierSolutions : public TellsItsSize {
 public:
  /// As many as are kept at most.
  static constexpr int most = 4;

  /// Solutions of which a block of `bytes` holds some; those of another shape are forgotten.
  /// @param length  doubles of one column
  void provide(std::size_t length, int nrhs, bool transpose, std::size_t bytes);
  /// Keeps one more, in the place of the oldest.  @param x  [length, nrhs]
  void keep(const double* x);
  void forget() { count_ = next_ = rest_ = failures_ = 0; }

  /// Whether a guess is worth its products: there are solutions, and the last guesses were not in
  /// vain.  One that was lets the next 1, 2, 4, up to 8 solves go without.
  bool promise() const { return count_ > 0 && rest_ == 0; }
  void note_guess(bool gained);

  int count() const { return count_; }
  std::size_t length() const { return length_; }
  std::size_t bytes() const { return values_.size() * sizeof(double); }
  /// The solutions of column j, side by side and in no order.  [length, count()]
  const double* of_column(int j) const {
    return values_.data() + static_cast<std::size_t>(j) * static_cast<std::size_t>(room_) * length_;
  }

 private:
  Vector<double> values_;  ///< [length, room, nrhs]
  std::size_t length_ = 0;
  int nrhs_ = 0, room_ = 0, count_ = 0, next_ = 0;
  int rest_ = 0, failures_ = 0;  ///< solves without a guess; guesses in vain, one after the other
  bool transpose_ = false;
};

struct GuessCall {
  const EarlierSolutions& earlier;
  const SparseProduct& product;  ///< the system at hand
  int nrhs = 1;
  const double* b = nullptr;   ///< right-hand sides, n by nrhs
  double* x = nullptr;         ///< out: the guesses
  double* residual = nullptr;  ///< out: what they leave of b
  double* gain = nullptr;      ///< out: norm of b over that of the residual, a column each  [nrhs]
  double* work = nullptr;      ///< guess_bytes() bytes
};

/// Bytes of work, a multiple of sizeof(double).
std::size_t guess_bytes(const SparseProduct& product, const EarlierSolutions& earlier);

/// Guesses every column; a gain of 1 is that of the guess zero.  One product with each of the
/// solutions, and vector operations.
/// @return whether any column gained
bool guess(const GuessCall& call);

}  // namespace vlm
