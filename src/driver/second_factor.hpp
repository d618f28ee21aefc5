// SPDX-License-Identifier: BSD-3-Clause
/// Another factor of the caller's matrix, with other settings than the caller's.
///
/// It has a handle of its own, so that nothing of the caller's changes: values, analysis, factor
/// and options are as they were.  Where the settings ask for another type the matrix is written out
/// for it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/memory.hpp"
#include "driver/call.hpp"
#include "driver/options.hpp"
#include "numeric/free_lu.hpp"
#include "solve/refine.hpp"

namespace vlm {

/// What is chosen anew; all else is as in the caller's options.
struct FactorSettings {
  int mtype = 0;
  int matching = 0;  ///< iparm(13)
  bool scaled = false, pairs = false;
  int perturbation = 0;  ///< iparm(10)
  OrderMethod order = OrderMethod::dissection;
  bool user_order = false;
  bool free_pivots = false;  ///< FreeLu; types 11 and 13
  bool operator==(const FactorSettings&) const = default;
};

class SecondFactor : public TellsItsSize {
 public:
  SecondFactor() = default;
  ~SecondFactor() { release(); }
  SecondFactor(const SecondFactor&) = delete;
  SecondFactor& operator=(const SecondFactor&) = delete;

  /// Factors the matrix of the call.  @return class of the error; what was there is released
  int factor(const Call& call, const Options& options, const FactorSettings& settings);

  /// Whether it was made of the values of the call.
  bool is_of(const Call& call) const;

  /// Solves as the caller's options mean it, or with the transposed matrix.
  /// Columns are solved as many at a time as there are.
  SolveStep step(bool transpose);

  /// Signs and replaced pivots.
  const FactorResult& result() const { return result_; }
  /// Bytes that a factorization was short of, where its error is error_memory.
  std::size_t wanted() const { return wanted_; }
  bool has_signs() const;
  std::size_t bytes() const;

 private:
  void release();
  int run(const Call& call, int phase);
  void set_options(const Call& call, const Options& options, const FactorSettings& settings);
  void expand(const Call& call, const MatrixType& from);
  int factor_freely(const Call& call);

  std::array<void*, 64> handle_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
  int mtype_ = 0;
  InputMatrix matrix_;
  Vector<int> ia_, ja_, order_;
  Vector<double> a_;
  bool free_ = false;
  FreeLu lu_;
  FactorResult result_;
  std::uint64_t values_ = 0;  ///< checksum of the caller's
  std::size_t wanted_ = 0;
};

}  // namespace vlm
