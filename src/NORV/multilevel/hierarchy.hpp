// SPDX-License-Identifier: BSD-3-Clause
/// Levels of a multigrid method and their cycle, whichever method made them: a V-cycle, which
/// visits a level twice where that is much smaller than the one above and not the coarsest.
///
/// A level holds its matrix, a smoother and the transfers to the next one; the coarsest level goes
/// to the direct solver.  A cycle is a fixed linear operation: where the smoother is Gauss-Seidel,
/// the transfers are each other's transpose and as many sweeps follow as precede, a symmetric one.
///
/// The matrix of the first level is the caller's and must outlive the hierarchy.
#pragma once

#include <memory>

#include "NORV/multilevel/gauss_seidel.hpp"
#include "NORV/multilevel/mildlt.hpp"
#include "NORV/solvers/solvers.hpp"
#include "norv/multilevel.h"

namespace vlm::norv {

struct ReleaseSmat {
  void operator()(smat* A) const { smat_free(A); }
};
using OwnSmat = std::unique_ptr<smat, ReleaseSmat>;

struct ReleasePrecon {
  void operator()(precon* M) const { precon_free(M, -1); }
};

/// The numbers of aml_params.
enum class Smoothing { none, ilut, gauss_seidel };

/// From one level to the next.
template <class T>
struct Transfer {
  OwnSmat P, R;          ///< prolongation and restriction, as long as the level and the next one
  OwnSmat coarse;        ///< matrix of the next level
  Vector<T> eliminated;  ///< [n] inverse of the block that the step eliminates exactly, 0
                         ///< elsewhere; empty: no such correction
};

template <class T>
class Hierarchy {
 public:
  /// @param A          the first level
  /// @param symmetric  A is its own transpose
  Hierarchy(smat* A, bool symmetric, const aml_params& params);

  /// The level that is the coarsest so far.
  smat* coarsest() const { return levels_.back().A; }
  bool symmetric() const { return symmetric_; }
  int levels() const { return static_cast<int>(levels_.size()); }
  const smat* matrix(int level) const { return levels_[level].A; }
  const smat* prolongation(int level) const { return levels_[level].transfer.P.get(); }
  const smat* restriction(int level) const { return levels_[level].transfer.R.get(); }

  /// Makes the coarsest level a smoothed one, and transfer.coarse the coarsest.
  void add_level(Transfer<T>&& transfer);
  /// Factorizes the coarsest level, after which there are no others.
  void finish();

  /// x := B b, one cycle from zero.
  void apply(const vec* b, vec* x) { cycle(0, b, x); }

  /// Entries of all levels and of what stands beside them.
  std::int64_t entries() const;

 private:
  struct Level {
    smat* A = nullptr;
    OwnSmat owned;  ///< of all levels but the first
    Transfer<T> transfer;
    GaussSeidel<T> sweeps;
    std::unique_ptr<precon, ReleasePrecon> ilut;
    ScratchVec r, work;
    ScratchVec next_b, next_x;  ///< of the next level
    ScratchVec again;           ///< likewise, where that is visited twice
  };

  void cycle(std::size_t level, const vec* b, vec* x);
  void smooth_down(Level& level, const vec* b, vec* x);
  void smooth_up(Level& level, const vec* b, vec* x);

  bool symmetric_;
  aml_params params_;
  Vector<Level> levels_;
  std::unique_ptr<CoarseLevel> coarse_;
};

/// Whether a matrix with both triangles stored is its own transpose.
template <class T>
bool is_symmetric(const Rows<T>& A);

}  // namespace vlm::norv
